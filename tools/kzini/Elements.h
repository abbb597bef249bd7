// Values that are lists: elements separated by commas or by white space. Blanks around an element are no part of it,
// and an empty element is none.
#ifndef KZINI_ELEMENTS_H
#define KZINI_ELEMENTS_H

#include <string>
#include <string_view>
#include <vector>

namespace kzini {

// Views into `list`. The separator is a comma, or a blank for any white space.
std::vector<std::string_view> ElementsOf(std::string_view list, char separator);

// Whether `text` is one whole element.
bool IsElement(std::string_view text, char separator);

// The list with one more element behind the last, unless it has it; separated as the others are.
std::string WithElement(const std::string& list, char separator, std::string_view element);

// The list without this element, wherever it stands, and without a separator for each.
std::string WithoutElement(std::string list, char separator, std::string_view element);

}  // namespace kzini

#endif
