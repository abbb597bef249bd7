// Each command reads the file into a Document, asks or edits it, and appends to the output. A failure is thrown from
// where it is found; what the output holds by then is printed all the same.

#include "Commands.h"

#include "Text.h"

namespace kzini {

namespace {

[[noreturn]] void FailMissing(const Request& request, const std::string& section, const std::string* tag)
{
    const std::string where = tag == nullptr ? "" : *tag + " in ";
    throw Failure{kNoSuchItem, request.operands[0] + ": no " + where + "section [" + section + "]"};
}

const std::string* OperandAt(const Request& request, std::size_t index)
{
    return index < request.operands.size() ? &request.operands[index] : nullptr;
}

// A member of a JSON object.
std::string Member(const char* name, std::string_view value)
{
    return JsonString(name) + ": " + JsonString(value);
}
std::string Member(const char* name, long long value)
{
    return JsonString(name) + ": " + std::to_string(value);
}
std::string Flag(const char* name, bool value)
{
    return JsonString(name) + (value ? ": true" : ": false");
}

// A JSON array of what `format` makes of each element.
template <typename Elements, typename Format>
std::string Array(const char* name, const Elements& elements, Format format)
{
    std::string text = JsonString(name) + ": [";
    const char* separator = "";
    for (const auto& element : elements) {
        text += separator;
        text += format(element);
        separator = ", ";
    }
    return text + "]";
}

void Get(const Request& request, std::string* output)
{
    const Document document(request.operands[0], request.options, Document::Purpose::kQuery);
    const std::string& section = request.operands[1];
    const std::string& tag = request.operands[2];
    // The value goes out as it is, not in printable form, because a script compares it.
    const char* value = nullptr;
    const int result = IniGetPointerToString(document.ini(), section.c_str(), tag.c_str(), &value);
    document.Require(result);
    if (result == 0) {
        FailMissing(request, section, &tag);
    }
    if (request.isJson) {
        *output += "{" + Member("section", section) + ", " + Member("tag", tag) + ", " + Member("value", value) + "}\n";
    } else {
        *output += std::string(value) + "\n";
    }
}

std::string JsonOf(const Item& item)
{
    return "{" + Member("tag", item.tag) + ", " + Member("value", item.value) + ", " + Member("line", item.line) + "}";
}

std::string JsonOf(const Section& section)
{
    return "{" + Member("name", section.name) + ", " + Member("line", section.line) + ", " +
           Array("items", section.items, [](const Item& item) { return JsonOf(item); }) + "}";
}

void List(const Request& request, std::string* output)
{
    const Document document(request.operands[0], request.options, Document::Purpose::kQuery);
    // A section's name is compared as the library compares it.
    Content content = document.content();
    const std::string* const name = OperandAt(request, 1);
    if (name != nullptr) {
        if (IniSectionExists(document.ini(), name->c_str()) != 1) {
            FailMissing(request, *name, nullptr);
        }
        std::erase_if(content, [name](const Section& section) {
            return qkini_StrICmpWithoutSurrWhiteSpace(section.name.c_str(), name->c_str()) != 0;
        });
    }
    if (request.isJson) {
        *output += "{" + Array("sections", content, [](const Section& section) { return JsonOf(section); }) + "}\n";
        return;
    }
    for (const Section& section : content) {
        if (name == nullptr) {
            *output += Printable(section.name) + "\n";
            continue;
        }
        for (const Item& item : section.items) {
            *output += Printable(item.tag) + "=" + Escaped(item.value) + "\n";
        }
    }
}

std::string JsonOf(const Change& change)
{
    return "{" + Member("change", change.isAdded ? "+" : "-") + ", " +
           Member("line", static_cast<long long>(change.line)) + ", " + Member("text", change.text) + "}";
}

// The end of every edit: the file is written, or what would change is told.
void Finish(const Request& request, const Document& document, std::string* output)
{
    const std::string text = document.TextToWrite();
    const bool isChanged = text != document.text();
    if (request.isJson || request.isDryRun) {
        const std::vector<Change> changes = ChangedLines(document.text(), text);
        if (request.isJson) {
            *output += "{" + Flag("changed", isChanged) + ", " + Flag("written", isChanged && !request.isDryRun) +
                       ", " + Array("lines", changes, [](const Change& change) { return JsonOf(change); }) + "}\n";
        } else {
            for (const Change& change : changes) {
                *output += (change.isAdded ? "+" : "-") + Printable(change.text) + "\n";
            }
        }
    }
    if (isChanged && !request.isDryRun) {
        document.Save();
    }
}

// Whether a value is the same in its raw form without quotes.
bool IsPlain(const std::string& value)
{
    return !value.empty() && Escaped(value) == value && value[0] != '\'';
}

void Set(const Request& request, std::string* output)
{
    const Document document(request.operands[0], request.options, Document::Purpose::kEditOrCreate);
    const std::string& value = request.operands[3];
    // A cut value keeps its blanks only in quotes.
    const bool isQuoted = !IsPlain(value) || document.options().width != -1;
    document.Require(IniPutStringWithOptions(document.ini(), request.operands[1].c_str(), request.operands[2].c_str(),
                                             Escaped(value).c_str(), isQuoted ? 1 : 0, 0));
    Finish(request, document, output);
}

void Unset(const Request& request, std::string* output)
{
    const Document document(request.operands[0], request.options, Document::Purpose::kEdit);
    const std::string& section = request.operands[1];
    const std::string* const tag = OperandAt(request, 2);
    // A section goes with its items; their comments stay.
    const int result = tag == nullptr ? IniRemoveSection(document.ini(), section.c_str())
                                      : IniRemoveItem(document.ini(), section.c_str(), tag->c_str());
    document.Require(result);
    if (result == 0) {
        FailMissing(request, section, tag);
    }
    Finish(request, document, output);
}

bool IsSameName(const std::string& a, const std::string& b)
{
    return qkini_StrICmpWithoutSurrWhiteSpace(a.c_str(), b.c_str()) == 0;
}

void RenameSection(const Request& request, const Document& document)
{
    const std::string& name = request.operands[1];
    const std::string& newName = request.operands[2];
    // The library would leave two sections of one name, of which the second could not be reached any more. Another case
    // of its own name is no other section.
    if (!IsSameName(name, newName) && IniSectionExists(document.ini(), newName.c_str()) == 1) {
        document.Refuse("there is a section [" + newName + "] already");
    }
    const int result = IniRenameSection(document.ini(), name.c_str(), newName.c_str());
    document.Require(result);
    if (result == 0) {
        FailMissing(request, name, nullptr);
    }
}

void RenameItem(const Request& request, Document* document)
{
    // Looked at first, so that a failure names its reason: the reading of the renamed text would only tell that
    // something is wrong.
    const std::string& section = request.operands[1];
    const std::string& tag = request.operands[2];
    const std::string& newTag = request.operands[3];
    if (IniItemExists(document->ini(), section.c_str(), tag.c_str()) != 1) {
        FailMissing(request, section, &tag);
    }
    if (!IsSameName(tag, newTag) && IniItemExists(document->ini(), section.c_str(), newTag.c_str()) == 1) {
        document->Refuse("there is " + newTag + " in section [" + section + "] already");
    }
    document->RenameItem(section, tag, newTag);
}

void Rename(const Request& request, std::string* output)
{
    Document document(request.operands[0], request.options, Document::Purpose::kEdit);
    if (request.operands.size() == 3) {
        RenameSection(request, document);
    } else {
        RenameItem(request, &document);
    }
    Finish(request, document, output);
}

void Sort(const Request& request, std::string* output)
{
    const Document document(request.operands[0], request.options, Document::Purpose::kEdit);
    document.Require(IniSort(document.ini()));
    Finish(request, document, output);
}

std::string JsonOf(const BadLine& bad)
{
    return "{" + Member("line", bad.line) + ", " + Member("text", bad.text) + ", " + Member("reason", bad.reason) + "}";
}

void Check(const Request& request, std::string* output)
{
    const Document document(request.operands[0], request.options, Document::Purpose::kQuery);
    // The findings are the output; that there are any is a failure besides, so that a script sees it in the status.
    const std::vector<BadLine> bad = document.BadLines();
    const int count = document.LineCount();
    if (request.isJson) {
        *output += "{" + Flag("good", bad.empty()) + ", " + Member("lineCount", count) + ", " +
                   Array("badLines", bad, [](const BadLine& line) { return JsonOf(line); }) + "}\n";
    } else {
        for (const BadLine& line : bad) {
            *output += std::to_string(line.line) + ": " + line.reason + ": " + Printable(line.text) + "\n";
        }
        if (bad.empty()) {
            *output += "every line can be read, " + std::to_string(count) + " in all\n";
        }
    }
    if (!bad.empty()) {
        document.Refuse(std::to_string(bad.size()) + " of " + std::to_string(count) + " lines can't be read");
    }
}

constexpr Command kCommands[] = {
    {"get", "FILE SECTION TAG", 3, 3, false, &Get},
    {"set", "FILE SECTION TAG VALUE", 4, 4, true, &Set},
    {"unset", "FILE SECTION [TAG]", 2, 3, true, &Unset},
    {"list", "FILE [SECTION]", 1, 2, false, &List},
    {"rename", "FILE SECTION [TAG] NEW-NAME", 3, 4, true, &Rename},
    {"sort", "FILE", 1, 1, true, &Sort},
    {"check", "FILE", 1, 1, false, &Check},
};

}  // namespace

const Command* FindCommand(std::string_view name)
{
    for (const Command& command : kCommands) {
        if (command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

std::string CommandsText()
{
    std::string text;
    for (const Command& command : kCommands) {
        text += "  kzini " + std::string(command.name) + " " + command.operands + "\n";
    }
    return text;
}

}  // namespace kzini
