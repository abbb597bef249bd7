// The commands and options of kzini. One table of them, in Options.cpp, is what the parser, the help, the man page and
// the shell completions are made from.
#ifndef KZINI_OPTIONS_H
#define KZINI_OPTIONS_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kzini {

enum ExitStatus { kDone = 0, kNoSuchItem = 1, kUsage = 2, kRefused = 3, kInputOutput = 4 };

// What each status means, for people. Its place is its number.
extern const std::span<const char* const> kExitTexts;

// Ends the program with a status and one line on stderr.
struct Failure {
    ExitStatus status;
    std::string text;  // its control characters are made printable
};

// Ends the program for words that make no request.
[[noreturn]] void FailUsage(const std::string& why);

// An option is known by its bit, so that a set of them is a sum.
enum OptionBit : unsigned {
    kAll = 1U << 0,
    kNth = 1U << 1,
    kAdd = 1U << 2,
    kExisting = 1U << 3,
    kList = 1U << 4,
    kRaw = 1U << 5,
    kDefault = 1U << 6,
    kShell = 1U << 7,
    kLine = 1U << 8,
    kRemove = 1U << 9,
    kWidth = 1U << 10,
    kDryRun = 1U << 11,
    kBackup = 1U << 12,
    kInPlace = 1U << 13,
    kJson = 1U << 14,
    kColons = 1U << 15,
    kNoHash = 1U << 16,
    kHelp = 1U << 17,
    kVersion = 1U << 18,
    kGenerate = 1U << 19,
};

// How an option takes its argument: "--nth N" and "--nth=N", or "--list" and "--list=WORD", or not at all.
enum class Takes { kNothing, kArgument, kMaybe };

struct Option {
    OptionBit bit;
    const char* name;  // without "--"
    char letter;       // the same in one letter, or 0
    Takes takes;
    const char* argument;                  // as people see it
    std::span<const char* const> choices;  // the words that it may be; none when it is free
    const char* text;
};

struct Request;

struct Command {
    const char* name;
    const char* operands;  // as the usage tells them; the first is a file
    std::size_t fewest;
    std::size_t most;
    unsigned options;
    const char* summary;  // half a line
    const char* details;  // sentences
    const char* example;  // a whole command line, for a file demo.ini
    // Appends what goes to the standard output. Throws Failure, which keeps that output.
    void (*run)(const Request& request, std::string* output);
};

extern const std::span<const Option> kOptions;
extern const std::span<const Command> kCommands;

// Options of every command, which no line of a command repeats.
constexpr unsigned kCommonOptions = kJson | kColons | kNoHash;
// Options that stand alone.
constexpr unsigned kTopOptions = kHelp | kVersion;

// What the words of a command line ask for.
struct Request {
    const Command* command = nullptr;
    std::vector<std::string> operands;
    unsigned options = 0;
    int nth = 0;
    int line = 0;
    int width = -1;
    std::string fallback;  // of --default
    char separator = ',';  // of --list: a comma, or a blank for any white space
    std::string generate;

    bool Has(unsigned bits) const { return (options & bits) != 0; }
    // The operand at this place, or null.
    const std::string* At(std::size_t index) const { return index < operands.size() ? &operands[index] : nullptr; }
};

const Command* FindCommand(std::string_view name);

// Reads the words. Throws Failure for what is no request, except that operands of a request for help or for the version
// are not looked at.
Request ParseRequest(std::span<const std::string_view> words);

}  // namespace kzini

#endif
