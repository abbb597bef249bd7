// The table, and the parser that reads it. Pages.cpp makes everything that people read from the same table.

#include "Options.h"

#include <charconv>

#include "Commands.h"

namespace kzini {

namespace {

constexpr const char* kSeparators[] = {"comma", "space"};
constexpr const char* kPages[] = {"man", "bash", "zsh", "fish"};

constexpr Option kOptionTable[] = {
    {kAll, "all", 0, Takes::kNothing, "", {}, "every item of the tag, where it stands several times"},
    {kNth, "nth", 0, Takes::kArgument, "N", {}, "the N-th item of the tag, from 1"},
    {kAdd, "add", 0, Takes::kNothing, "", {}, "one more item of the tag, behind those that are there"},
    {kExisting, "existing", 0, Takes::kNothing, "", {}, "change only what is there, make nothing"},
    {kList, "list", 0, Takes::kMaybe, "WORD", kSeparators,
     "the value is a list, its elements separated by commas or by white space"},
    {kRaw, "raw", 0, Takes::kNothing, "", {}, "values as they stand in the file, without escapes"},
    {kDefault, "default", 0, Takes::kArgument, "VALUE", {}, "print this where the section or item is missing"},
    {kShell, "shell", 0, Takes::kNothing, "", {}, "quote values for sh; a section's items as NAME='value'"},
    {kLine, "line", 0, Takes::kArgument, "N", {}, "the comment on line N"},
    {kRemove, "remove", 0, Takes::kNothing, "", {}, "remove that comment"},
    {kWidth, "width", 0, Takes::kArgument, "N", {}, "cut written lines of more than N bytes"},
    {kDryRun, "dry-run", 0, Takes::kNothing, "", {}, "print the lines that would change, write nothing"},
    {kBackup, "backup", 0, Takes::kNothing, "", {}, "keep the old file as FILE~"},
    {kInPlace,
     "in-place",
     0,
     Takes::kNothing,
     "",
     {},
     "write into the file itself, which keeps its hard links; a crash may lose it"},
    {kJson, "json", 0, Takes::kNothing, "", {}, "print results and errors as JSON"},
    {kColons,
     "colons",
     0,
     Takes::kNothing,
     "",
     {},
     "\":\" separates tag and value too; items before the first section are in \"(null)\""},
    {kNoHash, "no-hash", 0, Takes::kNothing, "", {}, "\"#\" at the start of a line starts no comment"},
    {kHelp, "help", 'h', Takes::kNothing, "", {}, "print help, of one command behind its name"},
    {kVersion, "version", 'V', Takes::kNothing, "", {}, "print the version"},
    // For the build, and in no help.
    {kGenerate, "generate", 0, Takes::kArgument, "PAGE", kPages, nullptr},
};

constexpr unsigned kEditOptions = kDryRun | kBackup | kInPlace;

constexpr Command kCommandTable[] = {
    {"get", "FILE SECTION [TAG]", 2, 3, kAll | kNth | kList | kRaw | kDefault | kShell, "print a value or a section",
     "Prints the value of TAG, or all items of SECTION. Of a tag that stands several times it prints the last value, "
     "which is the one that programs read; --all prints every value, --nth N one of them. With --list each element "
     "of the value stands on a line of its own. With --shell a value is one word for sh, and the items of a section "
     "are "
     "assignments, in whose names \"_\" stands for each byte that such a name can't have.",
     "kzini get demo.ini Server Host --default localhost", &Get},
    {"set", "FILE SECTION TAG VALUE", 4, 4, kAll | kNth | kAdd | kExisting | kList | kRaw | kEditOptions,
     "change or make an item",
     "Gives TAG a value. The file, the section and the item are made where they are missing, unless --existing is "
     "there. A tag that stands several times needs --all, --nth N or --add. With --list VALUE is added to the elements "
     "of the value unless it is one of them.",
     "kzini set demo.ini Server Host example.org", &Set},
    {"unset", "FILE SECTION [TAG [ELEMENT]]", 2, 4, kAll | kNth | kList | kRaw | kEditOptions,
     "remove an item or a section",
     "Removes an item, or a section with all its items. Comments stay. A tag that stands several times needs --all or "
     "--nth N. With --list just ELEMENT leaves the value.",
     "kzini unset demo.ini Server Port", &Unset},
    {"rename", "FILE SECTION [TAG] NEW-NAME", 3, 4, kAll | kNth | kEditOptions, "rename an item or a section",
     "Gives an item or a section another name where it stands. A name that another one has is refused.",
     "kzini rename demo.ini Server Host Name", &Rename},
    {"merge", "FILE OTHER", 2, 2, kAdd | kExisting | kEditOptions, "take the items of another file",
     "Sets each item of OTHER in FILE. The values of a tag that stands several times in OTHER are all made where FILE "
     "has "
     "none, and take the places of as many where FILE has as many; any other number is refused. With --add the values "
     "that FILE lacks stand beside those that it has, and none changes.",
     "kzini merge demo.ini other.ini", &Merge},
    {"comment", "FILE [SECTION [TAG]] [TEXT]", 1, 4, kNth | kLine | kRemove | kEditOptions,
     "add, change or remove a comment",
     "Adds a comment in front of an item or a section, or at the end of the file when neither is told. --line N with a "
     "TEXT changes the comment on that line, --line N with --remove removes it. With FILE alone all comments are "
     "printed with their lines.",
     "kzini comment demo.ini Server Host 'where to go'", &Comment},
    {"list", "FILE [SECTION]", 1, 2, kRaw, "print the sections, or a section's items",
     "Prints the names of the sections, or the items of SECTION as tag=value, their values as they stand in the file. "
     "With --json the sections with their items.",
     "kzini list demo.ini Server --json", &List},
    {"sort", "FILE", 1, 1, kWidth | kEditOptions, "sort sections and items",
     "Puts sections and items in the order of their names. This is the one command that writes the whole file anew: "
     "each line in the usual form, values that were cut on one line unless --width says otherwise, notes behind \"]\" "
     "lost. Comments go with the item or section that they stand in front of.",
     "kzini sort demo.ini --dry-run", &Sort},
    {"check", "FILE", 1, 1, 0, "tell which lines can't be read",
     "Prints each line that is neither section, item, comment nor blank, and each item before the first section.",
     "kzini check demo.ini", &Check},
};

constexpr const char* kExitTable[] = {
    "done",
    "no such section, item, comment or element",
    "usage",
    "refused: the file, or what was asked for it",
    "a file or the standard output can't be read or written, or memory is out",
};

// Of each of these sets one option at most may be there.
constexpr unsigned kExclusive[] = {kAll | kNth | kAdd, kList | kAll, kList | kAdd, kShell | kJson, kAdd | kExisting};

std::string NameOf(const Option& option)
{
    return std::string("--") + option.name;
}

// "--name" or "--name=..." or "-l". Null for a word that names none.
const Option* FindOption(std::string_view word)
{
    for (const Option& option : kOptionTable) {
        const bool isLetter = option.letter != 0 && word.size() == 2 && word[0] == '-' && word[1] == option.letter;
        const std::string name = NameOf(option);
        const bool isName =
            word.substr(0, name.size()) == name &&
            (word.size() == name.size() || (word[name.size()] == '=' && option.takes != Takes::kNothing));
        if (isLetter || isName) {
            return &option;
        }
    }
    return nullptr;
}

int NumberOf(const Option& option, std::string_view text)
{
    // Digits to the end: from_chars takes no blanks and stops at anything else, and a number that fits no int is an
    // error of its own.
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < 1) {
        FailUsage(NameOf(option) + " takes a number from 1");
    }
    return number;
}

void RequireChoice(const Option& option, std::string_view word)
{
    std::string choices;
    for (const char* const choice : option.choices) {
        if (word == choice) {
            return;
        }
        choices += choices.empty() ? "" : " or ";
        choices += choice;
    }
    if (!choices.empty()) {
        FailUsage(NameOf(option) + " takes " + choices);
    }
}

void TakeArgument(const Option& option, std::string_view argument, Request* request)
{
    RequireChoice(option, argument);
    switch (option.bit) {
        case kNth:
            request->nth = NumberOf(option, argument);
            break;
        case kLine:
            request->line = NumberOf(option, argument);
            break;
        case kWidth:
            request->width = NumberOf(option, argument);
            break;
        case kDefault:
            request->fallback = argument;
            break;
        case kList:
            request->separator = argument == "space" ? ' ' : ',';
            break;
        default:
            request->generate = argument;
            break;
    }
}

// Takes the option of the first word and what belongs to it; returns how many words these are.
std::size_t TakeOption(std::span<const std::string_view> words, Request* request)
{
    const Option* const option = FindOption(words[0]);
    if (option == nullptr) {
        FailUsage("no option " + std::string(words[0]));
    }
    request->options |= option->bit;
    const std::size_t equals = words[0].find('=');
    if (equals != std::string_view::npos) {
        TakeArgument(*option, words[0].substr(equals + 1), request);
    } else if (option->takes == Takes::kArgument) {
        if (words.size() < 2) {
            FailUsage(NameOf(*option) + " lacks its " + option->argument);
        }
        TakeArgument(*option, words[1], request);
        return 2;
    }
    return 1;
}

void RequireOptionsOf(const Command& command, const Request& request)
{
    for (const Option& option : kOptionTable) {
        if (request.Has(option.bit) && ((command.options | kCommonOptions | kTopOptions) & option.bit) == 0) {
            FailUsage(std::string(command.name) + " has no option " + NameOf(option));
        }
    }
    for (const unsigned set : kExclusive) {
        std::string names;
        int count = 0;
        for (const Option& option : kOptionTable) {
            if (request.Has(option.bit & set)) {
                names += (count++ == 0 ? "" : " and ") + NameOf(option);
            }
        }
        if (count > 1) {
            FailUsage(names + " exclude each other");
        }
    }
}

void RequireSense(const Request& request)
{
    const Command& command = *request.command;
    if (request.operands.size() < command.fewest || request.operands.size() > command.most) {
        FailUsage("usage: kzini " + std::string(command.name) + " " + command.operands);
    }
    RequireOptionsOf(command, request);
    if (request.operands[0] == "-" && request.Has(kBackup | kInPlace)) {
        FailUsage("--backup and --in-place are for files");
    }
    if (request.operands[0] == "-" && request.Has(kJson) && (command.options & kDryRun) != 0 && !request.Has(kDryRun)) {
        FailUsage("the text and JSON can't both go to the standard output");
    }
}

}  // namespace

const std::span<const char* const> kExitTexts = kExitTable;
const std::span<const Option> kOptions = kOptionTable;
const std::span<const Command> kCommands = kCommandTable;

void FailUsage(const std::string& why)
{
    throw Failure{kUsage, why + "; see kzini --help"};
}

const Command* FindCommand(std::string_view name)
{
    for (const Command& command : kCommandTable) {
        if (command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

Request ParseRequest(std::span<const std::string_view> words)
{
    // Options may stand anywhere in front of "--"; "-" alone and "-1" are none. The first word that is no option names
    // the command.
    Request request;
    std::string_view name;
    bool hasOptions = true;
    while (!words.empty()) {
        const std::string_view word = words[0];
        std::size_t taken = 1;
        if (hasOptions && word == "--") {
            hasOptions = false;
        } else if (hasOptions && (word.substr(0, 2) == "--" || FindOption(word) != nullptr)) {
            taken = TakeOption(words, &request);
        } else if (name.empty()) {
            name = word;
        } else {
            request.operands.emplace_back(word);
        }
        words = words.subspan(taken);
    }
    if (name == "help") {
        request.options |= kHelp;
        name = request.operands.empty() ? std::string_view() : std::string_view(request.operands[0]);
    }
    request.command = FindCommand(name);
    if (request.command == nullptr && (!name.empty() || !request.Has(kTopOptions | kGenerate))) {
        FailUsage(name.empty() ? "no command" : "no command " + std::string(name));
    }
    if (!request.Has(kTopOptions | kGenerate)) {
        RequireSense(request);
    }
    return request;
}

}  // namespace kzini
