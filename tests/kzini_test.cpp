// The command-line companion of the INI engine as a user runs it: every command, exit status and kind of output.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "TempFolder.h"

namespace {

using Strings = std::vector<std::string>;

struct Outcome {
    int status;  // -1 when it died
    std::string out;
    std::string err;
};

constexpr char kText[] =
    "; the top\n"
    "[net]\n"
    "; where to\n"
    "host = here\n"
    "port = 80\n"
    "\n"
    "no item\n"
    "[Colours]\n"
    "red = \"a \\\"rose\\\"\\n\"\n"
    "; the end\n";

class Kzini : public testing::Test {
protected:
    // Runs a program; the standard output goes to a file of the folder, or to `out`.
    Outcome RunProgram(const std::string& program, Strings arguments, const std::string& out = "") const
    {
        arguments.insert(arguments.begin(), program);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const std::string outName = out.empty() ? folder.File("out") : out;
        const std::string errName = folder.File("err");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const int flags = O_WRONLY | O_CREAT | O_TRUNC;
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outName.c_str(), flags, 0600);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errName.c_str(), flags, 0600);
        pid_t child = 0;
        int status = -1;
        EXPECT_EQ(posix_spawnp(&child, program.c_str(), &actions, nullptr, argv.data(), environ), 0);
        EXPECT_EQ(waitpid(child, &status, 0), child);
        posix_spawn_file_actions_destroy(&actions);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out.empty() ? kztest::ReadWholeFile(outName) : "",
                kztest::ReadWholeFile(errName)};
    }

    // Runs kzini and checks that each failure, and nothing else, has its line.
    Outcome Run(const Strings& arguments, const std::string& out = "") const
    {
        const Outcome outcome = RunProgram(KZ_KZINI, arguments, out);
        const bool isDone = outcome.status == 0;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), isDone ? 0 : 1) << outcome.err;
        EXPECT_EQ(outcome.err.compare(0, 7, "kzini: "), isDone ? -7 : 0) << outcome.err;
        return outcome;
    }

    // What Python makes of a JSON text, with `data` in the place of the parsed one.
    std::string OfJson(const std::string& json, const std::string& expression) const
    {
        const std::string file = folder.Write("json", json);
        const std::string program =
            "import json,sys; data=json.load(open(sys.argv[1],encoding='utf-8')); "
            "sys.stdout.buffer.write((" +
            expression + ").encode('utf-8','surrogateescape'))";
        const Outcome outcome = RunProgram("python3", {"-c", program, file});
        EXPECT_EQ(outcome.status, 0) << outcome.err << json;
        return outcome.out;
    }

    kztest::TempFolder folder;
};

TEST_F(Kzini, AnswersQueries)
{
    const std::string file = folder.Write("a.ini", kText);
    const std::string good = folder.Write("good.ini", "; c\n[s]\n\na=\n");
    const std::string early = folder.Write("early.ini", "a:=1\n\n[s]\nb:2\n");
    const std::string empty = folder.Write("empty.ini", "");
    const std::string mark = folder.Write("mark.ini", "\xEF\xBB\xBF[s]\r\na=1\r\n");
    struct Row {
        int line;
        Strings arguments;
        int status;
        std::string out;
    };
    const Row kRows[] = {
        {__LINE__, {"get", file, "net", "host"}, 0, "here\n"},
        {__LINE__, {"get", file, " NET ", "Host"}, 0, "here\n"},
        {__LINE__, {"get", file, "colours", "red"}, 0, "a \"rose\"\n\n"},
        {__LINE__, {"get", good, "s", "a"}, 0, "\n"},
        {__LINE__, {"get", mark, "s", "a"}, 0, "1\n"},
        {__LINE__, {"get", early, "(null)", "a", "--colons"}, 0, "1\n"},
        {__LINE__, {"get", file, "net", "red"}, 1, ""},
        {__LINE__, {"get", file, "none", "red"}, 1, ""},
        {__LINE__, {"get", early, "s", "b"}, 1, ""},
        {__LINE__, {"list", file}, 0, "net\nColours\n"},
        {__LINE__, {"list", file, "net"}, 0, "host=here\nport=80\n"},
        {__LINE__, {"list", file, "colours"}, 0, "red=a \\\"rose\\\"\\n\n"},
        {__LINE__, {"list", empty}, 0, ""},
        {__LINE__, {"list", file, "none"}, 1, ""},
        {__LINE__, {"check", file}, 3, "7: neither item, section nor comment: no item\n"},
        {__LINE__, {"check", good}, 0, "every line can be read, 4 in all\n"},
        {__LINE__, {"check", mark}, 0, "every line can be read, 2 in all\n"},
        {__LINE__, {"check", empty}, 0, "every line can be read, 0 in all\n"},
        {__LINE__,
         {"check", early},
         3,
         "1: an item before any section: a:=1\n4: neither item, section nor comment: b:2\n"},
        {__LINE__, {"check", early, "--colons"}, 0, "every line can be read, 4 in all\n"},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        const Outcome outcome = Run(row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.out, row.out);
    }
    EXPECT_EQ(kztest::ReadWholeFile(file), kText);
}

TEST_F(Kzini, RefusesUsageAndInput)
{
    const std::string file = folder.Write("a.ini", kText);
    const std::string early = folder.Write("early.ini", "a=1\n[s]\nb=2\n");
    const std::string wide = folder.Write("wide.ini", std::string("\xFF\xFE[\0s\0]\0", 8));
    struct Row {
        int line;
        Strings arguments;
        int status;
    };
    const Row kRows[] = {
        {__LINE__, {}, 2},
        {__LINE__, {"nothing", file}, 2},
        {__LINE__, {"get", file, "net"}, 2},
        {__LINE__, {"get", file, "net", "host", "more"}, 2},
        {__LINE__, {"get", file, "net", "host", "--dry-run"}, 2},
        {__LINE__, {"sort", file, "--wet\nrun"}, 2},
        {__LINE__, {"sort", file, "--width=0"}, 2},
        {__LINE__, {"sort", file, "--width=9x"}, 2},
        {__LINE__, {"unset", file, "net", "none"}, 1},
        {__LINE__, {"unset", file, "none"}, 1},
        {__LINE__, {"rename", file, "none", "some"}, 1},
        {__LINE__, {"rename", file, "net", "none", "some"}, 1},
        {__LINE__, {"rename", file, "net", "colours"}, 3},
        {__LINE__, {"rename", file, "net", "a]b"}, 3},
        {__LINE__, {"rename", file, "net", "(null)"}, 3},
        {__LINE__, {"rename", file, "net", "host", "PORT"}, 3},
        {__LINE__, {"rename", file, "net", "host", "a=b"}, 3},
        {__LINE__, {"rename", file, "net", "host", ";a"}, 3},
        {__LINE__, {"rename", file, "net", "host", "a = 1\n[x]\nb"}, 3},
        {__LINE__, {"rename", file, "net", "host", "host Line0001"}, 3},
        {__LINE__, {"set", file, "net", "host Line1", "x"}, 3},
        {__LINE__, {"set", file, "net", "", "x"}, 3},
        {__LINE__, {"set", file, "", "host", "x"}, 3},
        {__LINE__, {"set", file, "(null)", "host", "x"}, 3},
        {__LINE__, {"set", file, "net", "host", "long enough", "--width=10"}, 3},
        {__LINE__, {"set", early, "s", "b", "3"}, 3},
        {__LINE__, {"sort", early}, 3},
        {__LINE__, {"get", wide, "s", "a"}, 3},
        {__LINE__, {"set", wide, "s", "a", "1"}, 3},
        {__LINE__, {"get", folder.File("missing"), "s", "a"}, 4},
        {__LINE__, {"sort", folder.File("missing")}, 4},
        {__LINE__, {"set", folder.File("no/folder"), "s", "a", "1"}, 4},
        {__LINE__, {"get", folder.File("."), "s", "a"}, 4},
        {__LINE__, {"set", "/dev/full", "s", "a", "1"}, 4},
        {__LINE__, {"set", folder.File(std::string(250, 'x')), "s", "a", "1"}, 4},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        const Outcome outcome = Run(row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_EQ(Run({"list", file}, "/dev/full").status, 4);
    EXPECT_EQ(kztest::ReadWholeFile(file), kText);
    EXPECT_EQ(kztest::ReadWholeFile(early), "a=1\n[s]\nb=2\n");
}

std::string Replaced(std::string text, const std::string& from, const std::string& to)
{
    const std::size_t at = text.find(from);
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

TEST_F(Kzini, EditsKeepTheRestOfTheFile)
{
    struct Row {
        int line;
        Strings arguments;  // without the file, which comes second
        std::string out;    // of a dry run
        std::string after;
    };
    const std::string text = kText;
    const Row kRows[] = {
        {__LINE__, {"set", "net", "PORT", "81"}, "-port = 80\n+port = 81\n", Replaced(text, "port = 80", "port = 81")},
        {__LINE__, {"set", "net", "host", "here"}, "", text},
        {__LINE__,
         {"set", "net", "name", " \ta\x01 "},
         "+name = \"\\x20\\ta\\x01\\x20\"\n",
         Replaced(text, "port = 80\n", "port = 80\nname = \"\\x20\\ta\\x01\\x20\"\n")},
        {__LINE__, {"unset", "net", "host"}, "-host = here\n", Replaced(text, "host = here\n", "")},
        {__LINE__,
         {"unset", "Colours"},
         "-[Colours]\n-red = \"a \\\"rose\\\"\\n\"\n",
         Replaced(text, "[Colours]\nred = \"a \\\"rose\\\"\\n\"\n", "")},
        {__LINE__, {"rename", "net", "Net"}, "-[net]\n+[Net]\n", Replaced(text, "[net]", "[Net]")},
        {__LINE__,
         {"rename", "net", "host", " Old Host"},
         "-host = here\n+Old Host = here\n",
         Replaced(text, "host =", "Old Host =")},
        {__LINE__,
         {"sort"},
         "+\n+no item\n+[Colours]\n+red = \"a \\\"rose\\\"\\n\"\n-\n-no item\n-[Colours]\n-red = \"a "
         "\\\"rose\\\"\\n\"\n",
         "\nno item\n[Colours]\nred = \"a \\\"rose\\\"\\n\"\n; the top\n[net]\n; where to\nhost = here\nport = 80\n"
         "; the end\n"},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        const std::string file = folder.Write("a.ini", kText);
        Strings arguments = row.arguments;
        arguments.insert(arguments.begin() + 1, file);
        arguments.push_back("--dry-run");
        const Outcome dry = Run(arguments);
        EXPECT_EQ(dry.status, 0);
        EXPECT_EQ(dry.out, row.out);
        EXPECT_EQ(kztest::ReadWholeFile(file), kText);

        arguments.pop_back();
        const Outcome done = Run(arguments);
        EXPECT_EQ(done.status, 0);
        EXPECT_EQ(done.out, "");
        EXPECT_EQ(kztest::ReadWholeFile(file), row.after);
    }
}

TEST_F(Kzini, KeepsTheFormOfTheFile)
{
    const std::string target = folder.Write("target.ini", "\xEF\xBB\xBF[s]\na=1\nb=2\n");
    ASSERT_EQ(chmod(target.c_str(), 0600), 0);
    const std::string link = folder.File("link.ini");
    ASSERT_EQ(symlink("target.ini", link.c_str()), 0);
    EXPECT_EQ(Run({"set", link, "s", "c", "3"}).status, 0);
    EXPECT_EQ(kztest::ReadWholeFile(target), "\xEF\xBB\xBF[s]\na=1\nb=2\nc=3\n");
    struct stat status;
    ASSERT_EQ(lstat(link.c_str(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    ASSERT_EQ(stat(target.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);

    EXPECT_EQ(Run({"set", folder.File("new.ini"), "s", "--", "--c", "3"}).status, 0);
    EXPECT_EQ(kztest::ReadWholeFile(folder.File("new.ini")), "[s]\n--c = 3\n\n");

    const std::string cut = folder.Write("cut.ini", "[s]\nt Line0001=abc\nt Line0002=def\n");
    EXPECT_EQ(Run({"set", cut, "s", "u", "1 2 3 4 5", "--width=16"}).status, 0);
    EXPECT_EQ(kztest::ReadWholeFile(cut), "[s]\nt=abcdef\nu=\"1 2 3 4 5\"\n");
    EXPECT_EQ(Run({"set", cut, "s", "u", "1 2 3 4 5", "--width=17", "--dry-run"}).out, "");
    EXPECT_EQ(Run({"set", cut, "s", "u", "1 2 3 4 5 6 7 8", "--width=18"}).status, 0);
    EXPECT_EQ(kztest::ReadWholeFile(cut),
              "[s]\nt=abcdef\nu Line0001=\"1 2\"\nu Line0002=\" 3 \"\nu Line0003=\"4 5\"\nu Line0004=\" 6 \"\n"
              "u Line0005=\"7 8\"\n");
    EXPECT_EQ(Run({"get", cut, "s", "u"}).out, "1 2 3 4 5 6 7 8\n");
}

TEST_F(Kzini, GivesBackWhatWasSet)
{
    const Strings kValues = {
        "",    " ",  "   ",  " a ",      "\t",    "\n",  "a\nb\r\n", "\"",         "\"\"", "\"a\"",
        "'a'", "'",  "\\",   "a\\",      "\\x41", "\\n", "\x01\x7F", "a=b",        "=",    "; c",
        "[s]", "-1", "\xFF", "\xC3\xA9", "a  b",  "\v",  "\" \"",    "x Line0001", "%s%n", "\xC0\x80",
    };
    const std::string file = folder.File("a.ini");
    std::string json;
    std::string all;
    for (const std::string& value : kValues) {
        SCOPED_TRACE(testing::PrintToString(value));
        EXPECT_EQ(Run({"set", file, "s", "t", value}).status, 0);
        EXPECT_EQ(Run({"get", file, "s", "t"}).out, value + "\n");
        json += (json.empty() ? "[" : ",") + Run({"get", file, "s", "t", "--json"}).out;
        all += value + "|";
    }
    EXPECT_EQ(OfJson(json + "]", "''.join(one['value'] + '|' for one in data)"), all);
}

TEST_F(Kzini, SpeaksJson)
{
    const std::string file = folder.Write("a.ini", kText);
    EXPECT_EQ(OfJson(Run({"get", file, "net", "host", "--json"}).out, "repr(data)"),
              "{'section': 'net', 'tag': 'host', 'value': 'here'}");
    EXPECT_EQ(OfJson(Run({"list", file, "NET", "--json"}).out, "repr(data)"),
              "{'sections': [{'name': 'net', 'line': 2, 'items': [{'tag': 'host', 'value': 'here', 'line': 4}, "
              "{'tag': 'port', 'value': '80', 'line': 5}]}]}");
    EXPECT_EQ(OfJson(Run({"list", file, "--json"}).out, "'-'.join(s['name'] for s in data['sections'])"),
              "net-Colours");
    EXPECT_EQ(OfJson(Run({"check", file, "--json"}).out, "repr(data)"),
              "{'good': False, 'lineCount': 10, 'badLines': [{'line': 7, 'text': 'no item', 'reason': "
              "'neither item, section nor comment'}]}");
    EXPECT_EQ(OfJson(Run({"set", file, "net", "port", "81", "--json", "--dry-run"}).out, "repr(data)"),
              "{'changed': True, 'written': False, 'lines': [{'change': '-', 'line': 5, 'text': 'port = 80'}, "
              "{'change': '+', 'line': 5, 'text': 'port = 81'}]}");
    EXPECT_EQ(OfJson(Run({"unset", file, "net", "port", "--json"}).out, "repr(data)"),
              "{'changed': True, 'written': True, 'lines': [{'change': '-', 'line': 5, 'text': 'port = 80'}]}");
    EXPECT_EQ(OfJson(Run({"sort", folder.Write("b.ini", "[s]\na=1\n"), "--json"}).out, "repr(data)"),
              "{'changed': False, 'written': False, 'lines': []}");

    // Each kind of byte that is not UTF-8: alone, cut, overlong, a surrogate, beyond the last character.
    const std::string odd =
        "\x80 \xC3 \xE2\x82 \xC0\xAF \xED\xA0\x80 \xF4\x90\x80\x80 \xF0\x9F\x98\x80 \xE2\x82\xAC\xFF";
    const std::string other = folder.Write("odd.ini", "[" + odd + "]\n" + odd + "=" + odd + "\n");
    EXPECT_EQ(OfJson(Run({"list", other, "--json"}).out,
                     "data['sections'][0]['name'] + data['sections'][0]['items'][0]['tag'] + "
                     "data['sections'][0]['items'][0]['value']"),
              odd + odd + odd);
}

TEST_F(Kzini, SurvivesHostileFiles)
{
    Strings texts = {
        std::string(1, '\0'),
        std::string(1 << 20, '['),
        std::string(1 << 20, '='),
        "[s]\n" + std::string(1 << 20, 'x') + "=" + std::string(1 << 20, '"'),
        std::string("[s]\n\r\0\n\r\na=\\\n", 14),
        "[s]\na Line1=\"x\na Line2=y\"\nb Line99999999999999999999=1\n",
        "[]\n[ ]\n[(null)]\na=1\n[(NULL)]\nb=2\n",
    };
    std::string many = "[s]\n";
    for (int i = 0; i < 20000; ++i) {
        many += "t" + std::to_string(i % 7) + " Line" + std::to_string(i) + "=\\x4\n[s" + std::to_string(i) + "]\n";
    }
    texts.push_back(many);
    std::minstd_rand random(7);
    const std::string alphabet = std::string("[]=:;\"'\\x \t\r\nab1\xFF") + '\0';
    for (int i = 0; i < 10; ++i) {
        std::string text;
        for (int j = 0; j < 200; ++j) {
            text += alphabet[random() % alphabet.size()];
        }
        texts.push_back(text);
    }
    for (const std::string& text : texts) {
        SCOPED_TRACE(testing::PrintToString(text.substr(0, 300)));
        for (const Strings& command : {Strings{"check"}, {"list"}, {"sort"}, {"set", "s", "t", "v"}}) {
            for (const char* option : {"--json", "--colons"}) {
                Strings arguments = command;
                arguments.insert(arguments.begin() + 1, folder.Write("a.ini", text));
                arguments.push_back(option);
                const int status = Run(arguments).status;
                EXPECT_TRUE(status == 0 || status == 3) << command[0] << ": " << status;
            }
        }
    }
}

TEST_F(Kzini, TellsAboutItself)
{
    const Outcome help = Run({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* command : {"get", "set", "unset", "list", "rename", "sort", "check"}) {
        EXPECT_NE(help.out.find("kzini " + std::string(command) + " FILE"), std::string::npos) << command;
    }
    const Outcome version = Run({"list", "--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.compare(0, 6, "kzini "), 0);
}

}  // namespace
