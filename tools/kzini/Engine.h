// What kzini asks the INI engine for beside edits: escapes and sorting. The engine is asked, and its rules are not
// written a second time, so that the two can't differ.
#ifndef KZINI_ENGINE_H
#define KZINI_ENGINE_H

#include <string>
#include <string_view>
#include <vector>

namespace kzini {

// What a raw value means, and the raw value that means `value`.
std::string Decoded(const std::string& raw);
std::string Encoded(const std::string& value);

// The lines with sections and items in the order of their names, as the engine writes them. Lines in `asComments`,
// numbered from 0, are comments whatever the engine would take them for. Throws Failure.
struct SortOptions {
    bool hasColons;
    bool isSpaced;  // " = " between tag and value
    int width;      // -1 without a limit
};
std::vector<std::string> SortedLines(const std::vector<std::string>& lines, const std::vector<bool>& asComments,
                                     const SortOptions& options);

}  // namespace kzini

#endif
