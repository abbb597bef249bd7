// The command-line companion of the INI engine as a user runs it: every command, exit status and kind of output.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "JsonLines.h"
#include "RowFiles.h"
#include "TempFolder.h"

namespace {

using kztest::Json;
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

struct Outcome {
    int status;  // -1 when it died
    std::string out;
    std::string err;
};

// A folder with files, in which kzini runs.
class Kzini : public testing::Test {
protected:
    Outcome Run(Strings arguments, const std::string& input = "") const
    {
        arguments.insert(arguments.begin(), KZ_KZINI);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const std::string err = outputs.File("err");
        const std::string in = outputs.Write("in", input);
        const pid_t child = fork();
        if (child == 0) {
            const bool isReady = chdir(folder.File("").c_str()) == 0 &&
                                 std::freopen(in.c_str(), "r", stdin) != nullptr &&
                                 std::freopen(outName.c_str(), "w", stdout) != nullptr &&
                                 std::freopen(err.c_str(), "w", stderr) != nullptr;
            _exit(isReady ? execv(KZ_KZINI, argv.data()) : -1);
        }
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, kztest::ReadWholeFile(outputs.File("out")),
                kztest::ReadWholeFile(err)};
    }

    kztest::TempFolder folder;
    kztest::TempFolder outputs;
    std::string outName = outputs.File("out");
};

// A row's files are in the folder before the run, and those of `after` afterwards, with the mode they had, which a copy
// has too. `in` is the standard input. Where a row has a `dry`, that is the output of a dry run, which changes nothing.
TEST_F(Kzini, Rows)
{
    constexpr auto kMode = fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read;
    for (const Json& row : kztest::ReadJsonLines("vectors/kzini.jsonl")) {
        SCOPED_TRACE(row.Line());
        fs::remove_all(folder.File(""));
        fs::create_directory(folder.File(""));
        kztest::MakeFiles(row["files"], folder);
        const kztest::Files before = FilesIn(row["files"]);
        for (const auto& [name, file] : before) {
            if (file.starts_with("file ")) {
                fs::permissions(folder.File(name), kMode);
            }
        }
        Strings arguments;
        for (const Json& argument : row["arguments"].Items()) {
            arguments.push_back(argument.Str());
        }
        const std::string input = row.Has("in") ? row["in"].Str() : "";
        if (row.Has("dry")) {
            arguments.push_back("--dry-run");
            const Outcome dry = Run(arguments, input);
            EXPECT_EQ(0, dry.status);
            EXPECT_EQ(row["dry"].Str(), dry.out);
            EXPECT_EQ(before, FilesIn(folder));
            arguments.pop_back();
        }
        const Outcome outcome = Run(arguments, input);
        EXPECT_EQ(row["status"].Int(), outcome.status);
        EXPECT_EQ(row["out"].Str(), outcome.out);
        EXPECT_EQ(row["err"].Str(), outcome.err);
        const kztest::Files after = row.Has("after") ? FilesIn(row["after"]) : before;
        EXPECT_EQ(after, FilesIn(folder));
        for (const auto& [name, file] : after) {
            const bool isKept = file.starts_with("file ") && (before.count(name) != 0 || name.ends_with('~'));
            EXPECT_TRUE(!isKept || fs::status(folder.File(name)).permissions() == kMode) << name;
        }
    }
}

TEST_F(Kzini, KeepsHardLinksWhenAsked)
{
    folder.Write("a.ini", "[s]\nt=1\n");
    fs::create_hard_link(folder.File("a.ini"), folder.File("b.ini"));
    EXPECT_EQ(3, Run({"set", "a.ini", "s", "t", "2"}).status);
    EXPECT_EQ(0, Run({"set", "a.ini", "s", "t", "3", "--in-place", "--backup"}).status);
    EXPECT_EQ("[s]\nt=3\n", kztest::ReadWholeFile(folder.File("b.ini")));
    EXPECT_EQ("[s]\nt=1\n", kztest::ReadWholeFile(folder.File("a.ini~")));
}

TEST_F(Kzini, SurvivesHugeFiles)
{
    constexpr std::size_t kHuge = 1 << 20;
    std::string parts = "[s]\n";
    for (int i = 0; i < 20000; ++i) {
        const std::string number = std::to_string(i);
        parts += "t" + std::to_string(i % 7) + " Line" + number + "=\\x4\n[s" + number + "]\n";
    }
    for (const std::string& text : {parts, std::string(kHuge, '['), std::string(kHuge, '='),
                                    "[s]\n" + std::string(kHuge, 'x') + "=" + std::string(kHuge, '"')}) {
        for (const Strings& arguments : {Strings{"check", "a.ini", "--json"},
                                         {"list", "a.ini"},
                                         {"sort", "a.ini"},
                                         {"set", "a.ini", "s", "t", "v"}}) {
            folder.Write("a.ini", text);
            const int status = Run(arguments).status;
            EXPECT_TRUE(status == 0 || status == 3) << arguments[0] << ": " << status << text.substr(0, 10);
        }
    }
}

TEST_F(Kzini, TellsItsVersionAndOfAFullDisk)
{
    const Outcome version = Run({"list", "--version"});
    EXPECT_EQ(0, version.status);
    EXPECT_TRUE(version.out.starts_with("kzini "));
    folder.Write("a.ini", "[s]\n");
    outName = "/dev/full";
    EXPECT_EQ(4, Run({"list", "a.ini"}).status);
}

}  // namespace
