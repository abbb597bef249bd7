// The commands that change a file. What the library proves of each edit is not proved again here; sorting writes the
// whole text anew, so it has a proof of its own.

#include <algorithm>
#include <map>
#include <set>

#include "Commands.h"
#include "Document.h"
#include "Elements.h"
#include "Engine.h"
#include "Text.h"

namespace kzini {

namespace {

using Purpose = Document::Purpose;

std::string JsonOf(const Change& change)
{
    return "{" + Member("change", change.isAdded ? "+" : "-") + ", " +
           Member("line", static_cast<long long>(change.line)) + ", " + Member("text", change.text) + "}";
}

// Tells what makes `text` of the file as it was.
void PrintChanges(const Request& request, const Document& document, std::string_view text, std::string* output)
{
    const std::vector<Change> changes = ChangedLines(document.original(), text);
    if (request.Has(kJson)) {
        const bool isChanged = text != document.original();
        *output += "{" + Flag("changed", isChanged) + ", " + Flag("written", isChanged && !request.Has(kDryRun)) +
                   ", " + Array("lines", changes, [](const Change& change) { return JsonOf(change); }) + "}\n";
        return;
    }
    for (const Change& change : changes) {
        *output += (change.isAdded ? "+" : "-") + Printable(change.text) + "\n";
    }
}

// The end of every edit: the file is written, or what would change is told.
void Finish(const Request& request, const Document& document, std::string* output)
{
    const std::string_view text = document.text();
    const bool isPrinted = document.IsStandardInput();
    if (text != document.original() && !request.Has(kDryRun) && !isPrinted) {
        document.Save();
    }
    if (request.Has(kJson | kDryRun)) {
        PrintChanges(request, document, document.text(), output);
    } else if (isPrinted) {
        *output += text;
    }
}

// Which of a tag's items is meant, for the library.
int WhichOf(const Request& request)
{
    return request.Has(kAll) ? kIniEditAll : request.Has(kNth) ? request.nth : kIniEditOnly;
}

// The options of the command that tell one of several items, for people.
std::string ChoicesText(const Request& request)
{
    std::string text = "--nth N";
    if (request.Has(kList)) {
        return text;
    }
    const bool mayAdd = (request.command->options & kAdd) != 0;
    if ((request.command->options & kAll) != 0) {
        text = std::string("--all") + (mayAdd ? ", " : " or ") + text;
    }
    return text + (mayAdd ? " or --add" : "");
}

// Throws Failure unless an edit of an item was done.
void RequireEdited(const Request& request, const Document& document, const std::string& section, const std::string& tag,
                   int result)
{
    const int count = result == kIniErrRepeated || result == 0 ? document.Count(section, tag) : 0;
    const std::string times =
        tag + " stands " + TimesText(static_cast<std::size_t>(count)) + " in " + PlaceText(section);
    if (result == kIniErrRepeated) {
        document.Refuse(times + ": say " + ChoicesText(request));
    }
    if (result == 0 && count > 0) {
        throw Failure{kNoSuchItem, document.path() + ": " + times};
    }
    if (result == 0) {
        document.FailMissing(section, &tag);
    }
    document.Require(result);
}

// The one item that an edit of a list is about.
Item ItemToEdit(const Request& request, const Document& document, const std::string& section, const std::string& tag)
{
    const std::vector<Item> items = document.Items(section, tag);
    if (!request.Has(kNth) && items.size() > 1) {
        RequireEdited(request, document, section, tag, kIniErrRepeated);
    }
    const std::size_t place = request.Has(kNth) ? static_cast<std::size_t>(request.nth) : 1;
    if (place > items.size()) {
        RequireEdited(request, document, section, tag, 0);
    }
    return items[place - 1];
}

// Elements are compared and joined as they stand in the file, so that the escapes of all others stay.
std::string RawElement(const Request& request)
{
    const std::string& element = request.operands[3];
    if (!IsElement(element, request.separator)) {
        FailUsage("an element is not empty and holds no separator");
    }
    return request.Has(kRaw) ? element : Encoded(element);
}

void SetList(const Request& request, const Document& document, const std::string& section, const std::string& tag,
             const std::string& list)
{
    RequireEdited(
        request, document, section, tag,
        IniEditSetItem(document.edit(), section.c_str(), tag.c_str(), WhichOf(request), list.c_str(), kIniEditRaw));
}

void SetElement(const Request& request, const Document& document, const std::string& section, const std::string& tag)
{
    const std::string element = RawElement(request);
    const bool isThere = document.Count(section, tag) > 0;
    const std::string old = isThere ? ItemToEdit(request, document, section, tag).raw : "";
    const std::string list = WithElement(old, request.separator, element);
    if (!isThere || list != old) {
        SetList(request, document, section, tag, list);
    }
}

void UnsetElement(const Request& request, const Document& document, const std::string& section, const std::string& tag)
{
    const std::string element = RawElement(request);
    const std::string old = ItemToEdit(request, document, section, tag).raw;
    const std::string list = WithoutElement(old, request.separator, element);
    if (list == old) {
        throw Failure{kNoSuchItem, document.path() + ": no element " + request.operands[3] + " in " + tag};
    }
    SetList(request, document, section, tag, list);
}

}  // namespace

void Set(const Request& request, std::string* output)
{
    const Document document(request, request.operands[0],
                            request.Has(kExisting) ? Purpose::kEdit : Purpose::kEditOrCreate);
    const std::string section = document.NameOf(request.operands[1]);
    const std::string& tag = request.operands[2];
    const char* const value = request.operands[3].c_str();
    const int valueOptions = request.Has(kRaw) ? kIniEditRaw : 0;
    const int count = document.Count(section, tag);
    if (count == 0 && request.Has(kExisting)) {
        document.FailMissing(section, &tag);
    }
    if (request.Has(kList)) {
        SetElement(request, document, section, tag);
    } else if (request.Has(kAdd)) {
        document.Require(IniEditAddItem(document.edit(), section.c_str(), tag.c_str(), value, valueOptions));
    } else {
        // "All" of none makes one.
        const int which = count == 0 && request.Has(kAll) ? static_cast<int>(kIniEditOnly) : WhichOf(request);
        RequireEdited(request, document, section, tag,
                      IniEditSetItem(document.edit(), section.c_str(), tag.c_str(), which, value, valueOptions));
    }
    Finish(request, document, output);
}

void Unset(const Request& request, std::string* output)
{
    if (request.Has(kList) != (request.operands.size() == 4)) {
        FailUsage("an ELEMENT and --list go together");
    }
    if (request.Has(kRaw) && !request.Has(kList)) {
        FailUsage("--raw is for an ELEMENT");
    }
    const Document document(request, request.operands[0], Purpose::kEdit);
    const std::string section = document.NameOf(request.operands[1]);
    const std::string* const tag = request.At(2);
    if (request.Has(kList)) {
        UnsetElement(request, document, section, *tag);
    } else if (tag != nullptr) {
        RequireEdited(request, document, section, *tag,
                      IniEditRemoveItem(document.edit(), section.c_str(), tag->c_str(), WhichOf(request)));
    } else {
        const int result = IniEditRemoveSection(document.edit(), section.c_str());
        document.Require(result);
        if (result == 0) {
            document.FailMissing(section, nullptr);
        }
    }
    Finish(request, document, output);
}

void Rename(const Request& request, std::string* output)
{
    const Document document(request, request.operands[0], Purpose::kEdit);
    const std::string section = document.NameOf(request.operands[1]);
    if (request.operands.size() == 4) {
        const std::string& tag = request.operands[2];
        const std::string& newTag = request.operands[3];
        const int result =
            IniEditRenameItem(document.edit(), section.c_str(), tag.c_str(), WhichOf(request), newTag.c_str());
        if (result == kIniErrExists) {
            document.Refuse("there is " + newTag + " in " + PlaceText(section) + " already");
        }
        RequireEdited(request, document, section, tag, result);
    } else {
        const int result = IniEditRenameSection(document.edit(), section.c_str(), request.operands[2].c_str());
        if (result == kIniErrExists) {
            document.Refuse("there is a section [" + request.operands[2] + "] already");
        }
        document.Require(result);
        if (result == 0) {
            document.FailMissing(section, nullptr);
        }
    }
    Finish(request, document, output);
}

namespace {

// The items of one tag of the other file.
using Values = std::vector<Item>;

void MergeTag(const Request& request, const Document& document, const std::string& section, const std::string& tag,
              const Values& values)
{
    IniEdit* const edit = document.edit();
    const int count = document.Count(section, tag);
    const int wanted = static_cast<int>(values.size());
    if (count == 0 && request.Has(kExisting)) {
        return;
    }
    if (!request.Has(kAdd) && count != 0 && count != wanted) {
        document.Refuse(tag + " stands " + TimesText(static_cast<std::size_t>(count)) + " in " + PlaceText(section) +
                        " and " + TimesText(values.size()) + " in " + request.operands[1] +
                        ": set it with --all, --nth N or --add");
    }
    std::set<std::string> old;
    if (request.Has(kAdd) && count > 0) {
        for (const Item& item : document.Items(section, tag)) {
            old.insert(item.raw);
        }
    }
    for (int i = 0; i < wanted; ++i) {
        const std::string& raw = values[static_cast<std::size_t>(i)].raw;
        if (!request.Has(kAdd) && count != 0) {
            document.Require(IniEditSetItem(edit, section.c_str(), tag.c_str(), i + 1, raw.c_str(), kIniEditRaw));
        } else if (old.insert(raw).second || !request.Has(kAdd)) {
            document.Require(IniEditAddItem(edit, section.c_str(), tag.c_str(), raw.c_str(), kIniEditRaw));
        }
    }
}

}  // namespace

void Merge(const Request& request, std::string* output)
{
    if (request.operands[0] == "-" && request.operands[1] == "-") {
        FailUsage("only one of the files can be the standard input");
    }
    // The other file is read and closed first, since it may be the same one.
    std::vector<Section> sections;
    {
        Request query = request;
        query.options &= ~unsigned{kInPlace};
        const Document other(query, request.operands[1], Purpose::kQuery);
        sections = other.Sections();
        for (Section& section : sections) {
            section.name = other.NameOf(section.name);
        }
    }
    const Document document(request, request.operands[0],
                            request.Has(kExisting) ? Purpose::kEdit : Purpose::kEditOrCreate);
    for (const Section& section : sections) {
        std::vector<std::string> order;
        std::map<std::string, Values, NameLess> tags;
        for (const Item& item : section.items) {
            Values& values = tags[item.tag];
            if (values.empty()) {
                order.push_back(item.tag);
            }
            values.push_back(item);
        }
        for (const std::string& tag : order) {
            MergeTag(request, document, section.name, tag, tags[tag]);
        }
    }
    Finish(request, document, output);
}

namespace {

void PrintComments(const Request& request, std::string* output)
{
    const Document document(request, request.operands[0], Purpose::kQuery);
    std::vector<IniEditLine> comments;
    const int count = IniEditCountLines(document.edit());
    for (int i = 1; i <= count; ++i) {
        const IniEditLine line = document.Line(i);
        if (line.kind == kIniEditComment) {
            comments.push_back(line);
        }
    }
    if (request.Has(kJson)) {
        const auto format = [](const IniEditLine& line) {
            return "{" + Member("line", line.number) + ", " +
                   Member("text", std::string_view(line.text, line.textSize)) + "}";
        };
        *output += "{" + Array("comments", comments, format) + "}\n";
        return;
    }
    for (const IniEditLine& line : comments) {
        *output += std::to_string(line.number) + ": " + Printable({line.text, line.textSize}) + "\n";
    }
}

// The text as a comment: behind the mark that the file's first comment has, unless it has one of its own.
std::string CommentOf(const Request& request, const Document& document, const std::string& text)
{
    const std::size_t start = std::min(text.find_first_not_of(" \t"), text.size());
    const bool isComment = text[start] == ';' || (text[start] == '#' && !request.Has(kNoHash));
    if (isComment || text.empty()) {
        return text;
    }
    const int count = IniEditCountLines(document.edit());
    for (int i = 1; i <= count; ++i) {
        const IniEditLine line = document.Line(i);
        const std::string_view whole(line.text, line.textSize);
        if (line.kind == kIniEditComment) {
            return whole[whole.find_first_of(";#")] + (" " + text);
        }
    }
    return "; " + text;
}

void EditCommentLine(const Request& request, const Document& document)
{
    const int count = IniEditCountLines(document.edit());
    if (request.line > count || document.Line(request.line).kind != kIniEditComment) {
        throw Failure{kNoSuchItem, document.path() + ": no comment on line " + std::to_string(request.line)};
    }
    if (request.Has(kRemove)) {
        document.Require(IniEditRemoveComment(document.edit(), request.line));
    } else {
        const std::string text = CommentOf(request, document, request.operands[1]);
        document.Require(IniEditSetComment(document.edit(), request.line, text.c_str()));
    }
}

void AddComment(const Request& request, const Document& document)
{
    // FILE TEXT, FILE SECTION TEXT or FILE SECTION TAG TEXT.
    const std::string text = CommentOf(request, document, request.operands.back());
    const std::string section = request.operands.size() > 2 ? document.NameOf(request.operands[1]) : "";
    if (request.operands.size() == 2) {
        document.Require(IniEditAddComment(document.edit(), nullptr, nullptr, kIniEditOnly, text.c_str()));
    } else if (request.operands.size() == 3) {
        const int result = IniEditAddComment(document.edit(), section.c_str(), nullptr, WhichOf(request), text.c_str());
        if (result == kIniErrRepeated) {
            document.Refuse(PlaceText(section) + " begins several times: say --nth N");
        }
        document.Require(result);
        if (result == 0) {
            document.FailMissing(section, nullptr);
        }
    } else {
        const std::string& tag = request.operands[2];
        RequireEdited(request, document, section, tag,
                      IniEditAddComment(document.edit(), section.c_str(), tag.c_str(), WhichOf(request), text.c_str()));
    }
}

}  // namespace

void Comment(const Request& request, std::string* output)
{
    const std::size_t count = request.operands.size();
    if (!request.Has(kLine | kRemove) && count == 1) {
        if (request.Has(kNth | kDryRun | kBackup | kInPlace)) {
            FailUsage("a comment lacks its TEXT");
        }
        PrintComments(request, output);
        return;
    }
    if (request.Has(kLine | kRemove) && (!request.Has(kLine) || count != (request.Has(kRemove) ? 1U : 2U))) {
        FailUsage("a comment is changed with --line N TEXT and removed with --line N --remove");
    }
    if (request.Has(kNth) && count < 3) {
        FailUsage("--nth is for a SECTION or a TAG");
    }
    const Document document(request, request.operands[0], Purpose::kEdit);
    if (request.Has(kLine)) {
        EditCommentLine(request, document);
    } else {
        AddComment(request, document);
    }
    Finish(request, document, output);
}

namespace {

// Everything that programs read: the values of each tag of each section, in their order.
using Content = std::map<std::string, std::map<std::string, std::vector<std::string>, NameLess>, NameLess>;

Content ContentOf(const Document& document)
{
    Content content;
    for (const Section& section : document.Sections()) {
        auto& tags = content[section.name];
        for (const Item& item : section.items) {
            tags[item.tag].push_back(item.raw);
        }
    }
    return content;
}

// Whether at least half of the items have a blank in front of their "=". A look at the lines is enough, because a wrong
// guess costs looks and no content.
bool HasSpacedEquals(const Document& document)
{
    long balance = 0;
    const int count = IniEditCountLines(document.edit());
    for (int i = 1; i <= count; ++i) {
        const IniEditLine line = document.Line(i);
        const std::string_view text(line.text, line.textSize);
        const std::size_t equals = text.find('=');
        if (line.kind == kIniEditItem && equals != std::string_view::npos && equals > 0) {
            balance += text[equals - 1] == ' ' ? 1 : -1;
        }
    }
    return balance >= 0;
}

// The end of the first line, which all lines of a sorted file have.
std::string LineEnd(std::string_view text)
{
    const std::size_t at = text.find_first_of("\r\n");
    const bool isPair = at != std::string_view::npos && text.substr(at, 2) == "\r\n";
    return isPair ? "\r\n" : at != std::string_view::npos && text[at] == '\r' ? "\r" : "\n";
}

std::string SortedText(const Request& request, const Document& document)
{
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    std::vector<std::string> lines;
    std::vector<bool> asComments;
    const int count = IniEditCountLines(document.edit());
    for (int i = 1; i <= count; ++i) {
        const IniEditLine line = document.Line(i);
        lines.emplace_back(line.text, line.textSize);
        asComments.push_back(line.kind == kIniEditComment && line.text[0] != ';');
    }
    const SortOptions options{request.Has(kColons), HasSpacedEquals(document), request.width};
    std::string text(document.original().starts_with(kMark) ? kMark : "");
    const std::string end = LineEnd(document.original());
    for (const std::string& line : SortedLines(lines, asComments, options)) {
        text += line + end;
    }
    return text;
}

}  // namespace

void Sort(const Request& request, std::string* output)
{
    Document document(request, request.operands[0], Purpose::kEdit);
    for (const BadLine& line : document.BadLines()) {
        // The engine drops these; all other lines it keeps, as comments if as nothing else.
        const IniEditLine found = document.Line(line.line);
        if (found.kind != kIniEditUnrecognized) {
            document.Refuse("line " + std::to_string(line.line) +
                            " stands before any section and would be lost; see --colons");
        }
    }
    const Content before = ContentOf(document);
    document.Replace(SortedText(request, document));
    if (ContentOf(document) != before) {
        document.Refuse("the result would not be read back equal");
    }
    Finish(request, document, output);
}

}  // namespace kzini
