// What people and shells read of kzini, all of it made from the table in Options.cpp.
#ifndef KZINI_PAGES_H
#define KZINI_PAGES_H

#include <string>
#include <string_view>

#include "Options.h"

namespace kzini {

// All commands and options, a line each; and one command with its options and an example.
std::string HelpText();
std::string HelpText(const Command& command);

// "man": the manual page, in mdoc; "bash", "zsh" and "fish": completions.
std::string GeneratedPage(std::string_view name);

}  // namespace kzini

#endif
