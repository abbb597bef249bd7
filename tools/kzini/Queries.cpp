// The commands that change nothing.

#include <map>
#include <utility>

#include "Commands.h"
#include "Document.h"
#include "Elements.h"
#include "Engine.h"
#include "Text.h"

namespace kzini {

namespace {

std::string ValueOf(const Request& request, const Item& item)
{
    return request.Has(kRaw) ? item.raw : Decoded(item.raw);
}

std::string JsonOf(const Request& request, const Item& item)
{
    return "{" + Member("tag", item.tag) + ", " + Member("value", ValueOf(request, item)) + ", " +
           Member("line", item.line) + "}";
}

std::string JsonOf(const Request& request, const Section& section)
{
    return "{" + Member("name", section.name) + ", " + Member("line", section.line) + ", " +
           Array("items", section.items, [&request](const Item& item) { return JsonOf(request, item); }) + "}";
}

void PrintSectionsAsJson(const Request& request, const std::vector<Section>& sections, std::string* output)
{
    const auto format = [&request](const Section& section) { return JsonOf(request, section); };
    *output += "{" + Array("sections", sections, format) + "}\n";
}

// The section of this name, or nothing but its name where the file has it without any items.
Section SectionNamed(const Document& document, const std::string& name)
{
    for (Section& section : document.Sections()) {
        if (IsSameName(document.NameOf(section.name), document.NameOf(name))) {
            return std::move(section);
        }
    }
    document.FailMissing(name, nullptr);
}

// Assignments that sh can read. Two tags that come to one name would hide each other.
void PrintAssignments(const Request& request, const Document& document, const Section& section, std::string* output)
{
    std::map<std::string, std::string> tags;
    std::string text;
    for (const Item& item : section.items) {
        const std::string name = ShellName(item.tag);
        const auto [place, isNew] = tags.emplace(name, item.tag);
        if (!isNew && !IsSameName(place->second, item.tag)) {
            document.Refuse(place->second + " and " + item.tag + " are one name for sh, " + name);
        }
        text += name + "=" + ShellQuoted(ValueOf(request, item)) + "\n";
    }
    *output += text;
}

void PrintItems(const Section& section, std::string* output)
{
    for (const Item& item : section.items) {
        *output += Printable(item.tag) + "=" + Printable(item.raw) + "\n";
    }
}

void GetSection(const Request& request, const Document& document, std::string* output)
{
    if (request.Has(kAll | kNth | kList | kDefault)) {
        FailUsage("--all, --nth, --list and --default are for one TAG");
    }
    const Section section = SectionNamed(document, request.operands[1]);
    if (request.Has(kJson)) {
        PrintSectionsAsJson(request, {section}, output);
    } else if (request.Has(kShell)) {
        PrintAssignments(request, document, section, output);
    } else {
        PrintItems(section, output);
    }
}

// The values that are asked for, in order: the last, one or all of a tag's.
std::vector<std::string> ValuesOf(const Request& request, const Document& document)
{
    const std::string section = document.NameOf(request.operands[1]);
    const std::string& tag = request.operands[2];
    if (request.Has(kDefault) && document.Count(section, tag) == 0) {
        return {request.fallback};
    }
    std::vector<std::string> values;
    for (const Item& item : document.Items(section, tag)) {
        values.push_back(ValueOf(request, item));
    }
    const std::size_t wanted = request.Has(kNth) ? static_cast<std::size_t>(request.nth) : values.size();
    if (wanted > values.size()) {
        throw Failure{kNoSuchItem, document.path() + ": " + tag + " stands " + TimesText(values.size()) + " in " +
                                       PlaceText(section)};
    }
    return request.Has(kAll) ? values : std::vector<std::string>{values[wanted - 1]};
}

}  // namespace

void Get(const Request& request, std::string* output)
{
    const Document document(request, request.operands[0], Document::Purpose::kQuery);
    if (request.operands.size() == 2) {
        GetSection(request, document, output);
        return;
    }
    std::vector<std::string> values = ValuesOf(request, document);
    if (request.Has(kList)) {
        const std::string list = values[0];
        values.clear();
        for (const std::string_view element : ElementsOf(list, request.separator)) {
            values.emplace_back(element);
        }
    }
    if (request.Has(kJson)) {
        const bool isOne = !request.Has(kAll | kList);
        const std::string what =
            isOne ? Member("value", values[0])
                  : Array("values", values, [](const std::string& each) { return JsonString(each); });
        *output += "{" + Member("section", request.operands[1]) + ", " + Member("tag", request.operands[2]) + ", " +
                   what + "}\n";
        return;
    }
    for (const std::string& value : values) {
        // A value goes out as it is, not in printable form, because a script compares it.
        *output += (request.Has(kShell) ? ShellQuoted(value) : value) + "\n";
    }
}

void List(const Request& request, std::string* output)
{
    const Document document(request, request.operands[0], Document::Purpose::kQuery);
    const std::string* const name = request.At(1);
    const std::vector<Section> sections =
        name == nullptr ? document.Sections() : std::vector<Section>{SectionNamed(document, *name)};
    if (request.Has(kJson)) {
        PrintSectionsAsJson(request, sections, output);
    } else if (name != nullptr) {
        PrintItems(sections[0], output);
    } else {
        for (const Section& section : sections) {
            *output += section.name.empty() ? "" : Printable(section.name) + "\n";
        }
    }
}

void Check(const Request& request, std::string* output)
{
    const Document document(request, request.operands[0], Document::Purpose::kQuery);
    // The findings are the output; that there are any is a failure besides, so that a script sees it in the status.
    const std::vector<BadLine> bad = document.BadLines();
    const int count = IniEditCountLines(document.edit());
    if (request.Has(kJson)) {
        const auto format = [](const BadLine& line) {
            return "{" + Member("line", line.line) + ", " + Member("text", line.text) + ", " +
                   Member("reason", line.reason) + "}";
        };
        *output += "{" + Flag("good", bad.empty()) + ", " + Member("lineCount", count) + ", " +
                   Array("badLines", bad, format) + "}\n";
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

}  // namespace kzini
