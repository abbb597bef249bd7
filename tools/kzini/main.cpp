// kzini: reads and edits INI files from the command line. docs/ini.md describes it.
//
// A failure says one line on stderr, as JSON where that is asked for, and what the output holds by then is printed all
// the same.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "Options.h"
#include "Pages.h"
#include "Text.h"

using kzini::Failure;
using kzini::Request;

namespace {

// Everything that goes to the standard output.
void Run(const Request& request, std::string* output)
{
    if (request.Has(kzini::kGenerate)) {
        *output = kzini::GeneratedPage(request.generate);
    } else if (request.Has(kzini::kHelp)) {
        *output = request.command == nullptr ? kzini::HelpText() : kzini::HelpText(*request.command);
    } else if (request.Has(kzini::kVersion)) {
        *output = "kzini " KZINI_VERSION "\n";
    } else {
        request.command->run(request, output);
    }
}

// False when not all could be written.
bool Print(const std::string& output)
{
    errno = 0;
    const bool isWritten = std::fwrite(output.data(), 1, output.size(), stdout) == output.size();
    return std::fflush(stdout) == 0 && isWritten;
}

// Looked for in front of all parsing, because the words may be what fails.
bool HasJson(const std::vector<std::string_view>& words)
{
    for (const std::string_view word : words) {
        if (word == "--" || word == "--json") {
            return word == "--json";
        }
    }
    return false;
}

void Tell(const Failure& failure, bool isJson)
{
    const std::string line =
        isJson ? "{" + kzini::Member("error", failure.text) + ", " + kzini::Member("status", failure.status) + "}"
               : "kzini: " + kzini::Printable(failure.text);
    std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string_view> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    std::string output;
    Failure failure{kzini::kDone, {}};
    try {
        Run(kzini::ParseRequest(words), &output);
    } catch (const Failure& failed) {
        failure = failed;
    } catch (const std::bad_alloc&) {
        failure = {kzini::kInputOutput, "out of memory"};
    }
    if (!Print(output)) {
        failure = {kzini::kInputOutput, std::string("standard output: ") + std::strerror(errno)};
    }
    if (failure.status != kzini::kDone) {
        Tell(failure, HasJson(words));
    }
    return failure.status;
}
