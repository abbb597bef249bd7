// kzini: reads and edits INI files from the command line. docs/ini.md tells of it.
//
// Exit status: 0 done; 1 no such item; 2 usage; 3 the file or what was asked is refused; 4 a file or the output can't
// be read or written, or memory is out. A failure says one line on stderr.

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "Commands.h"
#include "Text.h"

using kzini::Command;
using kzini::Failure;
using kzini::Request;

namespace {

constexpr char kHelpHead[] = "kzini reads and edits INI files.\n\n";
constexpr char kHelpTail[] =
    "\n"
    "  --json      print results as JSON\n"
    "  --dry-run   print the lines that would change, write nothing\n"
    "  --colons    \":\" separates tag and value too, and items may stand before the first section, in \"(null)\"\n"
    "  --width=N   cut written lines of more than N bytes\n"
    "  --help, --version\n"
    "  --          what follows is no option\n"
    "\n"
    "Exit status: 0 done, 1 no such item, 2 usage, 3 refused input, 4 failed input or output.\n";

[[noreturn]] void FailUsage(const std::string& why)
{
    throw Failure{kzini::kUsage, why + "; see kzini --help"};
}

void TakeOption(std::string_view option, Request* request)
{
    // A width is digits to the end: from_chars takes no blanks and stops at anything else, and one that fits no int is
    // an error of its own.
    constexpr std::string_view kWidth = "--width=";
    if (option == "--json") {
        request->isJson = true;
    } else if (option == "--dry-run") {
        request->isDryRun = true;
    } else if (option == "--colons") {
        request->options.hasColons = true;
    } else if (option.substr(0, kWidth.size()) == kWidth) {
        const char* const end = option.data() + option.size();
        const auto [stop, error] = std::from_chars(option.data() + kWidth.size(), end, request->options.width);
        if (error != std::errc() || stop != end || request->options.width < 1) {
            FailUsage("the width is a number from 1");
        }
    } else {
        FailUsage("no option " + std::string(option));
    }
}

// Everything that goes to the standard output.
void Run(int argc, char** argv, std::string* output)
{
    // Options may stand anywhere in front of "--". The first word that is none names the command.
    Request request;
    std::string name;
    bool hasOptions = true;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (hasOptions && argument == "--") {
            hasOptions = false;
        } else if (hasOptions && argument == "--help") {
            *output = kHelpHead + kzini::CommandsText() + kHelpTail;
            return;
        } else if (hasOptions && argument == "--version") {
            *output = "kzini " KZINI_VERSION "\n";
            return;
        } else if (hasOptions && argument.substr(0, 2) == "--") {
            TakeOption(argument, &request);
        } else if (name.empty()) {
            name = argument;
        } else {
            request.operands.emplace_back(argument);
        }
    }
    const Command* const command = kzini::FindCommand(name);
    if (command == nullptr) {
        FailUsage(name.empty() ? "no command" : "no command " + name);
    }
    if (request.operands.size() < command->fewest || request.operands.size() > command->most) {
        FailUsage("usage: kzini " + name + " " + command->operands);
    }
    if (request.isDryRun && !command->isEdit) {
        FailUsage("--dry-run is for commands that write");
    }
    command->run(request, output);
}

// False when not all could be written.
bool Print(const std::string& output)
{
    errno = 0;
    const bool isWritten = std::fwrite(output.data(), 1, output.size(), stdout) == output.size();
    return std::fflush(stdout) == 0 && isWritten;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string output;
    Failure failure{kzini::kDone, {}};
    try {
        Run(argc, argv, &output);
    } catch (const Failure& failed) {
        failure = failed;
    } catch (const std::bad_alloc&) {
        failure = {kzini::kInputOutput, "out of memory"};
    }
    if (!Print(output)) {
        failure = {kzini::kInputOutput, std::string("standard output: ") + std::strerror(errno)};
    }
    if (failure.status != kzini::kDone) {
        std::fprintf(stderr, "kzini: %s\n", kzini::Printable(failure.text).c_str());
    }
    return failure.status;
}
