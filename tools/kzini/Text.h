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

// A value with the escapes of the file format, as its raw form stands in a file.
std::string Escaped(std::string_view value);

// A JSON string with its quotes. A byte that is no part of well-formed UTF-8 is written as an escaped lone surrogate,
// \udc80 to \udcff: still valid JSON, and Python's "surrogateescape" turns it back into the byte.
std::string JsonString(std::string_view text);

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
