// What kzini can do: a function for each command of the table in Options.cpp. They read the file into a Document, ask
// or edit it, and append to the output.
#ifndef KZINI_COMMANDS_H
#define KZINI_COMMANDS_H

#include <string>

#include "Options.h"

namespace kzini {

// Queries.cpp
void Get(const Request& request, std::string* output);
void List(const Request& request, std::string* output);
void Check(const Request& request, std::string* output);

// Edits.cpp
void Set(const Request& request, std::string* output);
void Unset(const Request& request, std::string* output);
void Rename(const Request& request, std::string* output);
void Merge(const Request& request, std::string* output);
void Comment(const Request& request, std::string* output);
void Sort(const Request& request, std::string* output);

}  // namespace kzini

#endif
