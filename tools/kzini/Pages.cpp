#include "Pages.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace kzini {

namespace {

constexpr std::size_t kTextWidth = 80;

// Of the manual page; a change of its text changes it.
constexpr char kPageDate[] = "November 24, 2026";

constexpr char kSummary[] = "reads and edits INI files";

// What holds for all commands, a paragraph each.
constexpr const char* kNotes[] = {
    "A FILE that is \"-\" is the standard input; an edit of it prints the whole new text. An empty SECTION means the "
    "items "
    "in front of the first section. Names compare without regard to the case of A to Z.",
    "An edit changes, adds or removes the lines of one item, section or comment and leaves every other byte alone: "
    "spacing, quotes, order, repeated tags, comments and line ends. Before the file is replaced the new text is read "
    "again, and unless just the wanted item differs nothing is written. Symbolic links are followed. The file is "
    "locked "
    "for the time of the edit, so that edits by kzini at the same time all take place; other programs take no part in "
    "that.",
    "A line that starts with \";\" or \"#\" is a comment. Text in UTF-16 or with NULs is refused.",
};

bool IsShown(const Option& option)
{
    return option.text != nullptr;
}

unsigned OptionsOf(const Command& command)
{
    return command.options | kCommonOptions;
}

// "--nth N", "--list[=WORD]" or "-h, --help".
std::string Usage(const Option& option)
{
    std::string text;
    if (option.letter != 0) {
        text = std::string("-") + option.letter + ", ";
    }
    text += std::string("--") + option.name;
    if (option.takes == Takes::kArgument) {
        text += std::string(" ") + option.argument;
    } else if (option.takes == Takes::kMaybe) {
        text += std::string("[=") + option.argument + "]";
    }
    return text;
}

// What an option does, with the words that it takes.
std::string Meaning(const Option& option)
{
    std::string text = option.text;
    for (std::size_t i = 0; i < option.choices.size(); ++i) {
        text += i == 0 ? std::string("; ") + option.argument + " is " : std::string(" or ");
        text += option.choices[i];
    }
    return text + (option.choices.empty() ? "" : ", the first unless told");
}

// Words filled into lines behind an indentation.
std::string Filled(std::string_view text, std::size_t indent)
{
    const std::string blanks(indent, ' ');
    std::string result;
    std::string line;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (!line.empty() && indent + line.size() + 1 + end > kTextWidth) {
            result += blanks + line + "\n";
            line.clear();
        }
        line += line.empty() ? "" : " ";
        line += text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return result + blanks + line + "\n";
}

// A term and what it means, in two columns.
std::string Row(const std::string& term, std::size_t width, const std::string& meaning)
{
    std::string text = Filled(meaning, width + 4);
    text.replace(2, term.size(), term);
    return text;
}

std::string OptionRows(unsigned bits)
{
    std::string text;
    for (const Option& option : kOptions) {
        if (IsShown(option) && (option.bit & bits) != 0) {
            text += Row(Usage(option), 16, Meaning(option));
        }
    }
    return text;
}

// Text of a manual page: a backslash, and a period or quote at the start of a line, mean something there.
std::string Mdoc(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        const bool isStart = result.empty() || result.back() == '\n';
        result += isStart && (c == '.' || c == '\'') ? "\\&" : "";
        result += c == '\\' ? std::string("\\e") : c == '-' ? std::string("\\-") : std::string(1, c);
    }
    return result;
}

// Each sentence starts a line, as manual pages have it.
std::string MdocSentences(std::string_view text)
{
    std::string lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(". "), text.size());
        lines += Filled(text.substr(0, end + 1), 0);
        text.remove_prefix(std::min(end + 2, text.size()));
    }
    return Mdoc(lines);
}

// "FILE [SECTION]" as macros on one line.
std::string MdocOperands(std::string_view operands)
{
    std::string result;
    bool isWord = false;
    for (const char c : operands) {
        if (c == '[' || c == ']') {
            result += c == '[' ? " Oo" : " Oc";
            isWord = false;
        } else if (c == ' ') {
            isWord = false;
        } else {
            result += isWord ? "" : " Ar ";
            result += c;
            isWord = true;
        }
    }
    return result.substr(1);
}

std::string MdocFlag(const Option& option)
{
    std::string text = std::string("Fl Fl ") + Mdoc(option.name);
    if (option.takes == Takes::kArgument) {
        text += std::string(" Ar ") + option.argument;
    } else if (option.takes == Takes::kMaybe) {
        text += std::string(" Ns Oo = Ns Ar ") + option.argument + " Oc";
    }
    return text;
}

std::string MdocItem(const Option& option)
{
    const std::string letter = option.letter != 0 ? std::string("Fl ") + option.letter + " , " : "";
    return ".It " + letter + MdocFlag(option) + "\n" + MdocSentences(Meaning(option) + ".");
}

std::string MdocCommands()
{
    std::string text;
    for (const Command& command : kCommands) {
        text += std::string(".It Cm ") + command.name + " " + MdocOperands(command.operands) + "\n" +
                MdocSentences(command.details);
        std::string names;
        for (const Option& option : kOptions) {
            if ((option.bit & command.options) != 0) {
                names += (names.empty() ? "" : " ,\n.Fl Fl ") + Mdoc(option.name);
            }
        }
        text += names.empty() ? "" : ".Pp\nOptions:\n.Fl Fl " + names + " .\n";
    }
    return text;
}

std::string ManPage()
{
    std::string text = std::string(".Dd ") + kPageDate + "\n.Dt KZINI 1\n.Os\n.Sh NAME\n.Nm kzini\n.Nd " + kSummary +
                       "\n.Sh SYNOPSIS\n";
    for (const Command& command : kCommands) {
        text += std::string(".Nm kzini\n.Cm ") + command.name + "\n.Op Ar options\n." + MdocOperands(command.operands) +
                "\n";
    }
    text += ".Nm kzini\n.Cm help\n.Op Ar command\n.Sh DESCRIPTION\n";
    for (const char* const note : kNotes) {
        text += (note == kNotes[0] ? "" : ".Pp\n") + MdocSentences(note);
    }
    text +=
        ".Pp\nThe commands:\n.Bl -tag -width Ds\n" + MdocCommands() + ".El\n.Pp\nThe options:\n.Bl -tag -width Ds\n";
    for (const Option& option : kOptions) {
        text += IsShown(option) ? MdocItem(option) : "";
    }
    text +=
        ".El\n.Pp\nWhat follows\n.Fl Fl\nis no option.\n.Sh FILES\n.Bl -tag -width Ds\n.It Pa FILE~\n"
        "The file before an edit with\n.Fl Fl backup .\n.El\n.Sh EXIT STATUS\n.Bl -tag -width Ds\n";
    for (std::size_t i = 0; i < kExitTexts.size(); ++i) {
        text += ".It " + std::to_string(i) + "\n" + Mdoc(kExitTexts[i]) + ".\n";
    }
    text += ".El\n.Pp\nEvery failure says one line on the standard error.\n.Sh EXAMPLES\n";
    for (const Command& command : kCommands) {
        text += std::string(".Dl ") + Mdoc(command.example) + "\n";
    }
    return text;
}

// A completion script: `text` with a marker in it replaced by the lines of each command or option.
std::string OptionWords(unsigned bits)
{
    std::string words;
    for (const Option& option : kOptions) {
        if (IsShown(option) && (option.bit & bits) != 0) {
            words += (words.empty() ? "--" : " --") + std::string(option.name);
        }
    }
    return words;
}

std::string JoinedNames()
{
    std::string names;
    for (const Command& command : kCommands) {
        names += std::string(command.name) + " ";
    }
    return names + "help";
}

// Sections and tags come from the file. They are compared here and not given to compgen, which would expand what a
// stranger wrote into the file.
constexpr char kBashTail[] =
    R"sh(    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    elif ((${#words[@]} == 1)); then
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    else
        local line
        while IFS= read -r line; do
            if ((${#words[@]} == 3)); then line=${line%%=*}; fi
            if [[ $line == "$cur"* ]]; then COMPREPLY+=("$(printf %q "$line")"); fi
        done < <(case ${#words[@]} in
            2) kzini list "${words[1]}" 2>/dev/null ;;
            3) kzini list "${words[1]}" "${words[2]}" 2>/dev/null ;;
        esac)
    fi
}
complete -o filenames -F _kzini kzini
)sh";

std::string BashCompletion()
{
    std::string text =
        "# bash completion for kzini\n_kzini()\n{\n    local cur=${COMP_WORDS[COMP_CWORD]} words=() options word\n"
        "    COMPREPLY=()\n"
        "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        if [[ $word != -* ]]; then words+=(\"$word\"); fi\n    done\n"
        "    case ${words[0]-} in\n";
    for (const Command& command : kCommands) {
        text += std::string("        ") + command.name + ") options='" + OptionWords(OptionsOf(command)) + "' ;;\n";
    }
    text += "        *)\n            mapfile -t COMPREPLY < <(compgen -W '" + JoinedNames() + " " +
            OptionWords(kTopOptions) + "' -- \"$cur\")\n            return\n            ;;\n    esac\n";
    return text + kBashTail;
}

// For the single quotes of zsh, inside of which "[", "]" and ":" mean something to its helpers.
std::string ZshText(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        result += c == '[' || c == ']' || c == ':' ? std::string("\\") + c : c == '\'' ? "'\\''" : std::string(1, c);
    }
    return result;
}

std::string ZshSpec(const Option& option)
{
    std::string text = std::string("'--") + option.name +
                       (option.takes == Takes::kArgument ? "="
                        : option.takes == Takes::kMaybe  ? "=-"
                                                         : "") +
                       "[" + ZshText(option.text) + "]";
    if (option.takes != Takes::kNothing) {
        text += std::string(option.takes == Takes::kMaybe ? "::" : ":") + option.argument + ":";
        for (std::size_t i = 0; i < option.choices.size(); ++i) {
            text += (i == 0 ? "(" : " ") + std::string(option.choices[i]);
        }
        text += option.choices.empty() ? "" : ")";
    }
    return text + "'";
}

std::string ZshCompletion()
{
    std::string text = "#compdef kzini\nlocal -a commands options\noptions=(\n";
    for (const Option& option : kOptions) {
        if ((option.bit & kTopOptions) != 0) {
            text += std::string("    '--") + option.name + ":" + ZshText(option.text) + "'\n";
        }
    }
    text += ")\ncommands=(\n";
    for (const Command& command : kCommands) {
        text += std::string("    '") + command.name + ":" + ZshText(command.summary) + "'\n";
    }
    text +=
        "    'help:print help'\n)\nif ((CURRENT == 2)); then\n    _describe command commands\n"
        "    _describe -o option options\n    return\nfi\n"
        "local command=$words[2]\n((CURRENT--))\nshift words\ncase $command in\n";
    for (const Command& command : kCommands) {
        text += std::string("    ") + command.name + ")\n        _arguments -S";
        for (const Option& option : kOptions) {
            text += (option.bit & OptionsOf(command)) != 0 ? " \\\n            " + ZshSpec(option) : "";
        }
        text += " \\\n            '1:file:_files' '*:operand: '\n        ;;\n";
    }
    return text + "    help) _describe command commands ;;\nesac\n";
}

std::string FishText(std::string_view text)
{
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return result + "'";
}

std::string FishCompletion()
{
    std::string text = "# fish completion for kzini\n";
    for (const Command& command : kCommands) {
        text += std::string("complete -c kzini -n __fish_use_subcommand -f -a ") + command.name + " -d " +
                FishText(command.summary) + "\n";
    }
    text += "complete -c kzini -n __fish_use_subcommand -f -a help -d 'print help'\n";
    for (const Option& option : kOptions) {
        std::string commands;
        for (const Command& command : kCommands) {
            commands += (option.bit & OptionsOf(command)) != 0 ? std::string(" ") + command.name : "";
        }
        if (!IsShown(option)) {
            continue;
        }
        text += "complete -c kzini";
        text += commands.empty() ? "" : " -n '__fish_seen_subcommand_from" + commands + "'";
        text += option.letter != 0 ? std::string(" -s ") + option.letter : "";
        text += std::string(" -l ") + option.name + " -d " + FishText(option.text);
        text += option.takes == Takes::kArgument ? " -x" : "";
        for (std::size_t i = 0; i < option.choices.size(); ++i) {
            text += (i == 0 ? " -a '" : " ") + std::string(option.choices[i]);
        }
        text += option.choices.empty() ? "\n" : "'\n";
    }
    return text;
}

}  // namespace

std::string HelpText()
{
    std::string text = std::string("kzini ") + kSummary + ".\n\n";
    for (const Command& command : kCommands) {
        text += Row(std::string(command.name) + " " + command.operands, 38, command.summary);
    }
    text += Row("help [COMMAND]", 38, "print more of a command, with an example") + "\n";
    for (const char* const note : kNotes) {
        text += Filled(note, 0) + "\n";
    }
    text += "Options:\n" + OptionRows(~0U) + Row("--", 16, "what follows is no option") + "\nExit status:\n";
    for (std::size_t i = 0; i < kExitTexts.size(); ++i) {
        text += Row(std::to_string(i), 2, kExitTexts[i]);
    }
    return text;
}

std::string HelpText(const Command& command)
{
    return std::string("kzini ") + command.name + " " + command.operands + "\n\n" + Filled(command.details, 0) +
           "\nOptions:\n" + OptionRows(OptionsOf(command)) + "\nExample:\n  " + command.example + "\n";
}

std::string GeneratedPage(std::string_view name)
{
    return name == "man"    ? ManPage()
           : name == "bash" ? BashCompletion()
           : name == "zsh"  ? ZshCompletion()
                            : FishCompletion();
}

}  // namespace kzini
