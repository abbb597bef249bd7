// Text for the terminal and for other programs: printable forms, JSON, and the lines that two texts differ in. Every
// text here may come from a file of a stranger's, so none reaches a terminal as it is.
#ifndef KZINI_TEXT_H
#define KZINI_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kzini {

// The text on one line, for people: control characters as \t, \n, \r and \xHH.
std::string Printable(std::string_view text);

// One word for sh, in single quotes.
std::string ShellQuoted(std::string_view text);

// A name for a variable of sh: "_" for each byte that it can't have, and in front of a digit.
std::string ShellName(std::string_view text);

// A JSON string with its quotes. A byte that is no part of well-formed UTF-8 is written as an escaped lone surrogate,
// \udc80 to \udcff: still valid JSON, and Python's "surrogateescape" turns it back into the byte.
std::string JsonString(std::string_view text);

// Members of a JSON object.
std::string Member(const char* name, std::string_view value);
std::string Member(const char* name, long long value);
std::string Flag(const char* name, bool value);

// A member that is an array of what `format` makes of each element.
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

// A line that only one of two texts has; lines are numbered from 1 in the text that has them.
struct Change {
    bool isAdded;
    std::size_t line;
    std::string_view text;  // without its line feed
};

// What turns `before` into `after`, in order. Texts must outlive the result.
std::vector<Change> ChangedLines(std::string_view before, std::string_view after);

}  // namespace kzini

#endif
