// What kzini can do, by name.
#ifndef KZINI_COMMANDS_H
#define KZINI_COMMANDS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Document.h"

namespace kzini {

struct Request {
    std::vector<std::string> operands;  // the file first
    bool isJson = false;
    bool isDryRun = false;
    Document::Options options;
};

struct Command {
    std::string_view name;
    const char* operands;  // as the usage tells them
    std::size_t fewest;
    std::size_t most;
    bool isEdit;
    // Appends what goes to the standard output. Throws Failure, which keeps that output.
    void (*run)(const Request& request, std::string* output);
};

// Null for no such command.
const Command* FindCommand(std::string_view name);

// The usage of all commands, a line each.
std::string CommandsText();

}  // namespace kzini

#endif
