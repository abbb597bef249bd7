// Each line that is written is read first, by the rule of what a line is: a name or a value that it would not give back
// is refused here, with a code that says so. What a line means among others, as a part of a cut value does, is seen by
// the proof behind (IniEditProof), which all plans go through.

#include "IniEditPlan.h"

#include <algorithm>
#include <map>
#include <optional>

#include "KzAssert.h"

namespace qkini {

namespace {

std::string StringOf(Text text)
{
    return {text.begin, text.size};
}

Text TextOf(const std::string& text)
{
    return {text.data(), text.size()};
}

bool HasLineEnd(Text text)
{
    return text.Contains('\n') || text.Contains('\r') || text.Contains('\0');
}

bool IsSame(Text a, Text b)
{
    return a.size == b.size && memcmp(a.begin, b.begin, a.size) == 0;
}

EditPlan Failed(int result)
{
    return {result};
}

// A new name as it is written: white space at its ends is none of it, unless names compare byte for byte.
Text NewName(const EditRules& rules, Text name)
{
    return rules.caseSensitive ? name : Trimmed(name);
}

// What stands in front of an item's tag, and between it and its value.
struct Style {
    std::string indent;
    std::string separator;
};

// The parts of an item's line, which make it up in this order.
struct ItemParts {
    std::string indent;
    std::string tag;
    std::string separator;
    std::string rest;  // behind the value
};

ItemParts PartsOf(const EditText& text, unsigned number)
{
    const Text line = text.ContentOf(number);
    const Line read = text.rules().LineOf(line);
    KZ_ASSERT(read.kind == LineKind::kItem);
    const size_t quote = read.quote != 0 ? 1 : 0;
    return {StringOf({line.begin, read.name.begin}), StringOf(read.name),
            StringOf({read.name.end(), read.value.begin - quote}), StringOf({read.value.end() + quote, line.end()})};
}

// An item's line with a value, in these quotes or none, if it is read back as itself.
std::optional<std::string> TryLine(const EditRules& rules, const ItemParts& parts, Text value, char quote)
{
    std::string line = parts.indent + parts.tag + parts.separator;
    if (quote != 0) {
        line += quote;
    }
    line.append(value.begin, value.size);
    if (quote != 0) {
        line += quote;
    }
    line += parts.rest;
    const Line read = rules.LineOf(TextOf(line));
    const bool isRead = !HasLineEnd(TextOf(line)) && read.kind == LineKind::kItem && read.quote == quote &&
                        IsSame(read.name, TextOf(parts.tag)) && IsSame(read.value, value);
    return isRead ? std::optional<std::string>(std::move(line)) : std::nullopt;
}

struct WrittenItem {
    std::string line;
    char quote;
};

// The quotes that were there stay. Double ones come where a value could not be read back without any.
std::optional<WrittenItem> WriteItem(const EditRules& rules, const ItemParts& parts, Text value, char quote)
{
    const char tries[] = {quote, '"'};
    for (const char tried : tries) {
        if (std::optional<std::string> line = TryLine(rules, parts, value, tried)) {
            return WrittenItem{std::move(*line), tried};
        }
    }
    return std::nullopt;
}

// Lines that come in front of the one of that index, which may be one beyond the last. Each ends as the line in front
// of it does, or else as the line behind; where the last line has no end, the new last line has none.
Splice InsertLines(const EditText& text, unsigned index, const std::vector<std::string>& lines)
{
    KZ_ASSERT(index <= text.LineCount() && !lines.empty());
    const unsigned at = index < text.LineCount() ? text.At(index).begin : static_cast<unsigned>(text.bytes().size());
    std::string end;
    for (unsigned near = index; near > 0 && end.empty(); --near) {
        end = StringOf(text.LineEndOf(near - 1));
    }
    if (end.empty() && index < text.LineCount()) {
        end = StringOf(text.LineEndOf(index));
    }
    end = end.empty() ? "\n" : end;
    const bool endsOpen = index > 0 && text.LineEndOf(index - 1).IsEmpty();
    Splice splice{at, at, ""};
    for (const std::string& line : lines) {
        splice.text += endsOpen ? end + line : line + end;
    }
    return splice;
}

// The number of the element in front of which a line of that index stands.
unsigned ElementAt(const EditText& text, unsigned index)
{
    return index < text.LineCount() ? text.At(index).element : text.elementCount();
}

Splice ReplaceLine(const EditText& text, unsigned line, std::string content)
{
    const Text old = text.ContentOf(line);
    const unsigned begin = text.At(line).begin;
    return {begin, begin + static_cast<unsigned>(old.size), std::move(content)};
}

Splice RemoveLine(const EditText& text, unsigned line)
{
    return {text.At(line).begin, text.EndOf(line), ""};
}

// Picks of several what `which` means.
int Pick(std::vector<unsigned>* lines, int which)
{
    if (lines->empty() || which < kIniEditAll || which > static_cast<int>(lines->size())) {
        return 0;
    }
    if (which == kIniEditOnly && lines->size() > 1) {
        return kIniErrRepeated;
    }
    if (which > 0) {
        lines->assign(1, (*lines)[static_cast<size_t>(which) - 1]);
    }
    return 1;
}

int PickItems(const EditText& text, Text section, Text tag, int which, std::vector<unsigned>* lines)
{
    if (Trimmed(tag).IsEmpty()) {
        return kIniErrName;
    }
    *lines = text.ItemsOf(section, tag);
    return Pick(lines, which);
}

Touched TouchedItem(Text section, Text tag)
{
    // Without its items, what stands in front of the first section is no section for a host.
    return {{StringOf(section)}, {StringOf(tag)}, false, section.IsEmpty()};
}

// Where a new item of a section goes, and how it is written.
struct ItemPlace {
    unsigned index;
    Style style;
};

unsigned IndentOf(const EditText& text, unsigned line)
{
    const Text content = text.ContentOf(line);
    return static_cast<unsigned>(content.size - TrimmedLeft(content).size);
}

Style StyleOf(const EditText& text, unsigned line)
{
    const ItemParts parts = PartsOf(text, line);
    Style style{parts.indent, parts.separator};
    // An empty value hides what would stand in front of one, so the other side of the separator tells.
    if (text.At(line).valueSize == 0 && text.At(line).quote == 0) {
        const Text separator = Trimmed(TextOf(style.separator));
        const std::string front = style.separator.substr(0, style.separator.find(*separator.begin));
        style.separator = front + StringOf(separator) + front;
    }
    return style;
}

// The style of most items.
Style MostCommonStyle(const EditText& text)
{
    std::map<std::pair<std::string, std::string>, unsigned> counts;
    const std::pair<const std::pair<std::string, std::string>, unsigned>* most = nullptr;
    for (unsigned i = 0; i < text.LineCount(); ++i) {
        if (text.At(i).kind == kIniEditItem) {
            const Style style = StyleOf(text, i);
            const auto counted = counts.try_emplace({style.indent, style.separator}).first;
            ++counted->second;
            most = most == nullptr || counted->second > most->second ? &*counted : most;
        }
    }
    return most == nullptr ? Style{"", " = "} : Style{most->first.first, most->first.second};
}

// Behind the section's last item, and in front of the blank lines and comments that follow it. An item that is indented
// more than the section's first one, and what can't be read and is indented so, go on with a value for programs that
// know such lines: a new item is not written as one of them, nor put in front of them.
ItemPlace PlaceForItem(const EditText& text, Text section)
{
    const std::vector<bool> isMeant = text.AreOf(section);
    const std::vector<unsigned> lines = text.SectionsOf(section);
    unsigned index = lines.empty() ? 0 : lines.back() + 1;
    std::optional<unsigned> first;
    std::optional<unsigned> model;
    for (unsigned i = 0; i < text.LineCount(); ++i) {
        const EditLine& line = text.At(i);
        if (!isMeant[line.section]) {
            continue;
        }
        const bool isItem = line.kind == kIniEditItem || line.kind == kIniEditPart;
        if (isItem && (!first || text.At(*first).section != line.section)) {
            first = i;
        }
        if (isItem && IndentOf(text, i) <= IndentOf(text, *first)) {
            model = i;
        }
        const bool goesOn = line.kind == kIniEditUnrecognized && first && text.At(*first).section == line.section &&
                            IndentOf(text, i) > IndentOf(text, *first);
        if (isItem || goesOn) {
            index = i + 1;
        }
    }
    return {index, model ? StyleOf(text, *model) : MostCommonStyle(text)};
}

// The line of a new section; nothing when the name could not be read back.
std::optional<std::string> SectionLine(const EditText& text, Text name)
{
    std::string line = "[" + StringOf(name) + "]";
    const Line read = text.rules().LineOf(TextOf(line));
    // A host may read items in front of the first section as those of this one.
    const bool isRead = !HasLineEnd(name) && read.kind == LineKind::kSection && IsSame(read.name, name) &&
                        CompareBlind(name, Text("(null)")) != 0;
    return isRead ? std::optional<std::string>(std::move(line)) : std::nullopt;
}

// A section's line behind the last one and a blank line, with those that begin its content.
Splice AppendSection(const EditText& text, std::vector<std::string> lines)
{
    const unsigned count = text.LineCount();
    if (count > 0 && text.At(count - 1).kind != kIniEditBlank) {
        lines.insert(lines.begin(), "");
    }
    return InsertLines(text, count, lines);
}

// Whether a tag can be a new item's: it may not begin a run of parts.
bool IsNewTag(Text tag)
{
    return !tag.IsEmpty() && !IsFirstPart(tag);
}

// Adds what an item comes to with another value, which is on one line then.
int SetOne(const EditText& text, unsigned line, Text value, EditPlan* plan)
{
    const EditLine& at = text.At(line);
    ItemParts parts = PartsOf(text, line);
    parts.tag = StringOf(text.NameOf(line));
    std::optional<WrittenItem> written = WriteItem(text.rules(), parts, value, at.quote);
    if (!written) {
        return kIniErrName;
    }
    plan->splices.push_back(ReplaceLine(text, line, std::move(written->line)));
    for (const unsigned part : text.PartsOf(line)) {
        plan->splices.push_back(RemoveLine(text, part));
    }
    plan->changes.push_back({at.element, true, true, false, parts.tag, StringOf(value), written->quote});
    return 1;
}

// Adds what an item's line comes to with another tag. A part keeps its number.
int RenameOne(const EditText& text, unsigned line, Text oldTag, Text newTag, EditPlan* plan)
{
    const Text content = text.ContentOf(line);
    const Line read = text.rules().LineOf(content);
    const std::string number = StringOf(read.name).substr(oldTag.size);
    const ItemParts parts = PartsOf(text, line);
    const std::string tag = StringOf(newTag) + number;
    const std::string renamed = parts.indent + tag + StringOf({read.name.end(), content.end()});
    const Line again = text.rules().LineOf(TextOf(renamed));
    if (HasLineEnd(newTag) || again.kind != LineKind::kItem || !IsSame(again.name, TextOf(tag)) ||
        !IsSame(again.value, read.value)) {
        return kIniErrName;
    }
    plan->splices.push_back(ReplaceLine(text, line, renamed));
    return 1;
}

// Renames the parts behind an item's first line that have its tag.
int RenameParts(const EditText& text, unsigned line, Text newTag, EditPlan* plan)
{
    int result = 1;
    for (const unsigned part : text.PartsOf(line)) {
        const Text tag = text.rules().LineOf(text.ContentOf(part)).name;
        const Text base(tag.begin, ContinuationOf(tag).baseSize);
        if (result == 1 && text.rules().AreSame(base, text.NameOf(line))) {
            result = RenameOne(text, part, base, newTag, plan);
        }
    }
    return result;
}

// Whether a line may be written as a comment: a blank line is one too.
bool IsComment(const EditText& text, Text comment)
{
    const LineKind kind = text.rules().LineOf(comment).kind;
    return !HasLineEnd(comment) && (kind == LineKind::kComment || kind == LineKind::kBlank);
}

EditPlan InsertComments(const EditText& text, const std::vector<unsigned>& lines, Text comment)
{
    if (!IsComment(text, comment)) {
        return Failed(kIniErrName);
    }
    EditPlan plan{1};
    for (const unsigned line : lines) {
        plan.splices.push_back(InsertLines(text, line, {StringOf(comment)}));
    }
    return plan;
}

// Whether a line is there and is no section and no item.
bool IsCommentAt(const EditText& text, unsigned line)
{
    if (line >= text.LineCount()) {
        return false;
    }
    const auto kind = text.At(line).kind;
    return kind == kIniEditComment || kind == kIniEditBlank || kind == kIniEditUnrecognized;
}

}  // namespace

// The items picked get the value where they stand; kIniEditOnly alone adds a missing one.
EditPlan PlanSetItem(const EditText& text, Text section, Text tag, int which, Text value)
{
    std::vector<unsigned> lines;
    const int picked = PickItems(text, section, tag, which, &lines);
    if (picked == 0 && which == kIniEditOnly) {
        return PlanAddItem(text, section, tag, value);
    }
    EditPlan plan{picked};
    plan.touched = TouchedItem(section, tag);
    for (size_t i = 0; i < lines.size() && plan.result == 1; ++i) {
        plan.result = SetOne(text, lines[i], value, &plan);
    }
    return plan;
}

// The line that comes is written like the section's others. A missing section comes with it, in front of it, at the
// end.
EditPlan PlanAddItem(const EditText& text, Text section, Text tag, Text value)
{
    const Text name = NewName(text.rules(), tag);
    const Text sectionName = NewName(text.rules(), section);
    const bool isThere = section.IsEmpty() || !text.SectionsOf(section).empty();
    const ItemPlace place = PlaceForItem(text, section);
    const ItemParts parts{place.style.indent, StringOf(name), place.style.separator, ""};
    std::optional<WrittenItem> written = WriteItem(text.rules(), parts, value, 0);
    if (!written || !IsNewTag(name)) {
        return Failed(kIniErrName);
    }
    EditPlan plan{1};
    plan.touched = TouchedItem(section, tag);
    const unsigned index = isThere ? place.index : text.LineCount();
    const unsigned element = ElementAt(text, index);
    if (isThere) {
        plan.splices.push_back(InsertLines(text, index, {written->line}));
    } else {
        const std::optional<std::string> line = SectionLine(text, sectionName);
        if (!line) {
            return Failed(kIniErrName);
        }
        plan.splices.push_back(AppendSection(text, {*line, written->line}));
        plan.changes.push_back({element, false, true, true, StringOf(sectionName)});
        plan.touched.mayCome = true;
    }
    plan.changes.push_back({element, false, true, false, StringOf(name), StringOf(value), written->quote});
    return plan;
}

// A cut value goes with all its parts, or the rest would be read as items of their own.
EditPlan PlanRemoveItem(const EditText& text, Text section, Text tag, int which)
{
    std::vector<unsigned> lines;
    EditPlan plan{PickItems(text, section, tag, which, &lines)};
    plan.touched = TouchedItem(section, tag);
    for (size_t i = 0; i < lines.size() && plan.result == 1; ++i) {
        plan.splices.push_back(RemoveLine(text, lines[i]));
        for (const unsigned part : text.PartsOf(lines[i])) {
            plan.splices.push_back(RemoveLine(text, part));
        }
        plan.changes.push_back({text.At(lines[i]).element, true, false});
    }
    return plan;
}

// The names alone are replaced, those of the further parts too; the engine then reads the same value under the new tag.
EditPlan PlanRenameItem(const EditText& text, Text section, Text tag, int which, Text newTag)
{
    std::vector<unsigned> lines;
    EditPlan plan{PickItems(text, section, tag, which, &lines)};
    const Text name = NewName(text.rules(), newTag);
    plan.touched = TouchedItem(section, tag);
    plan.touched.tags.push_back(StringOf(name));
    if (plan.result == 1 && !IsNewTag(name)) {
        return Failed(kIniErrName);
    }
    if (plan.result == 1 && !text.rules().AreSame(tag, name) && !text.ItemsOf(section, name).empty()) {
        return Failed(kIniErrExists);
    }
    for (size_t i = 0; i < lines.size() && plan.result == 1; ++i) {
        const unsigned line = lines[i];
        plan.result = RenameOne(text, line, text.NameOf(line), name, &plan);
        plan.result = plan.result == 1 ? RenameParts(text, line, name, &plan) : plan.result;
        plan.changes.push_back({text.At(line).element, true, true, false, StringOf(name), StringOf(text.ValueOf(line)),
                                text.At(line).quote});
    }
    return plan;
}

// The name must read back as itself, so it goes through the line that would be written.
EditPlan PlanAddSection(const EditText& text, Text section)
{
    const Text name = NewName(text.rules(), section);
    const std::optional<std::string> line = SectionLine(text, name);
    if (!line) {
        return Failed(kIniErrName);
    }
    if (!text.SectionsOf(name).empty()) {
        return Failed(kIniErrExists);
    }
    EditPlan plan{1};
    plan.splices.push_back(AppendSection(text, {*line}));
    plan.changes.push_back({text.elementCount(), false, true, true, StringOf(name)});
    plan.touched = {{StringOf(name)}, {}, true};
    return plan;
}

// Its header and item lines go, at each place of it; what can't be read stays, since nobody knows what it means.
EditPlan PlanRemoveSection(const EditText& text, Text section)
{
    EditPlan plan{1};
    const std::vector<bool> isMeant = text.AreOf(section);
    for (unsigned i = 0; i < text.LineCount(); ++i) {
        const EditLine& line = text.At(i);
        const bool isElement = line.kind == kIniEditSection || line.kind == kIniEditItem;
        if (!isMeant[line.section] || !(isElement || line.kind == kIniEditPart)) {
            continue;
        }
        plan.splices.push_back(RemoveLine(text, i));
        if (isElement) {
            plan.changes.push_back({line.element, true, false});
        }
    }
    plan.touched = {{StringOf(section)}, {}, true};
    return plan.changes.empty() ? Failed(0) : plan;
}

// The bytes of the name alone are replaced in each header: what stands around the brackets stays.
EditPlan PlanRenameSection(const EditText& text, Text section, Text newName)
{
    const std::vector<unsigned> lines = text.SectionsOf(section);
    const Text name = NewName(text.rules(), newName);
    if (section.IsEmpty()) {
        return Failed(kIniErrName);
    }
    if (lines.empty()) {
        return Failed(0);
    }
    if (!SectionLine(text, name)) {
        return Failed(kIniErrName);
    }
    if (!text.rules().AreSame(section, name) && !text.SectionsOf(name).empty()) {
        return Failed(kIniErrExists);
    }
    EditPlan plan{1};
    plan.touched = {{StringOf(section), StringOf(name)}, {}, true};
    for (const unsigned line : lines) {
        const EditLine& at = text.At(line);
        const unsigned begin = at.begin + at.name;
        plan.splices.push_back({begin, begin + at.nameSize, StringOf(name)});
        plan.changes.push_back({at.element, true, true, true, StringOf(name)});
    }
    return plan;
}

EditPlan PlanAddComments(const EditText& text, Text section, Text tag, int which, Text comment)
{
    std::vector<unsigned> lines;
    const int picked = PickItems(text, section, tag, which, &lines);
    return picked == 1 ? InsertComments(text, lines, comment) : Failed(picked);
}

EditPlan PlanAddSectionComments(const EditText& text, Text section, int which, Text comment)
{
    std::vector<unsigned> lines = section.IsEmpty() ? std::vector<unsigned>{0} : text.SectionsOf(section);
    const int picked = Pick(&lines, which);
    return picked == 1 ? InsertComments(text, lines, comment) : Failed(picked);
}

EditPlan PlanAddLastComment(const EditText& text, Text comment)
{
    return InsertComments(text, {text.LineCount()}, comment);
}

EditPlan PlanSetComment(const EditText& text, unsigned line, Text comment)
{
    if (!IsCommentAt(text, line)) {
        return Failed(0);
    }
    if (!IsComment(text, comment)) {
        return Failed(kIniErrName);
    }
    EditPlan plan{1};
    plan.splices.push_back(ReplaceLine(text, line, StringOf(comment)));
    return plan;
}

EditPlan PlanRemoveComment(const EditText& text, unsigned line)
{
    if (!IsCommentAt(text, line)) {
        return Failed(0);
    }
    EditPlan plan{1};
    plan.splices.push_back(RemoveLine(text, line));
    return plan;
}

// The splices stand in the order of the text and don't overlap, so one pass writes it.
std::string Spliced(const EditText& text, const std::vector<Splice>& splices)
{
    size_t size = text.bytes().size();
    for (const Splice& splice : splices) {
        size = size - (splice.end - splice.begin) + splice.text.size();
    }
    std::string result;
    result.reserve(size);
    unsigned at = 0;
    for (const Splice& splice : splices) {
        KZ_ASSERT(at <= splice.begin && splice.begin <= splice.end);
        result.append(text.bytes(), at, splice.begin - at);
        result += splice.text;
        at = splice.end;
    }
    result.append(text.bytes(), at, std::string::npos);
    KZ_ASSERT(result.size() == size);
    return result;
}

}  // namespace qkini
