// The command-line companion of the INI engine as a user runs it: every command, exit status and kind of output.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "JsonLines.h"
#include "RowFiles.h"
#include "TempFolder.h"

namespace {

using kztest::Json;
using Strings = std::vector<std::string>;

struct Outcome {
    int status;  // -1 when it died
    std::string out;
    std::string err;
};

// A folder with files, in which kzini runs.
class Kzini : public testing::Test {
protected:
    Outcome Run(Strings arguments) const
    {
        arguments.insert(arguments.begin(), KZ_KZINI);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addchdir_np(&actions, folder.File("").c_str());
        const int flags = O_WRONLY | O_CREAT | O_TRUNC;
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outName.c_str(), flags, 0600);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, outputs.File("err").c_str(), flags, 0600);
        pid_t child = 0;
        int status = -1;
        EXPECT_EQ(0, posix_spawn(&child, KZ_KZINI, &actions, nullptr, argv.data(), environ));
        EXPECT_EQ(child, waitpid(child, &status, 0));
        posix_spawn_file_actions_destroy(&actions);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, kztest::ReadWholeFile(outputs.File("out")),
                kztest::ReadWholeFile(outputs.File("err"))};
    }

    kztest::TempFolder folder;
    kztest::TempFolder outputs;
    std::string outName = outputs.File("out");
};

// A row's files are in the folder before the run, and those of `after` afterwards. Where it has a `dry`, that is the
// output of a dry run, which changes nothing.
TEST_F(Kzini, Rows)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/kzini.jsonl")) {
        SCOPED_TRACE(row.Line());
        std::filesystem::remove_all(folder.File(""));
        std::filesystem::create_directory(folder.File(""));
        kztest::MakeFiles(row["files"], folder);
        const kztest::Files before = FilesIn(row["files"]);
        Strings arguments;
        for (const Json& argument : row["arguments"].Items()) {
            arguments.push_back(argument.Str());
        }
        if (row.Has("dry")) {
            arguments.push_back("--dry-run");
            const Outcome dry = Run(arguments);
            EXPECT_EQ(0, dry.status);
            EXPECT_EQ(row["dry"].Str(), dry.out);
            EXPECT_EQ(before, FilesIn(folder));
            arguments.pop_back();
        }
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(row["status"].Int(), outcome.status);
        EXPECT_EQ(row["out"].Str(), outcome.out);
        EXPECT_EQ(row["err"].Str(), outcome.err);
        EXPECT_EQ(row.Has("after") ? FilesIn(row["after"]) : before, FilesIn(folder));
    }
}

TEST_F(Kzini, KeepsLinksAndModes)
{
    const std::string target = folder.Write("target.ini", "[s]\na=1\n");
    ASSERT_EQ(0, chmod(target.c_str(), 0600));
    ASSERT_EQ(0, symlink("target.ini", folder.File("link.ini").c_str()));
    EXPECT_EQ(0, Run({"set", "link.ini", "s", "c", "3"}).status);
    EXPECT_EQ("[s]\na=1\nc=3\n", kztest::ReadWholeFile(target));
    EXPECT_TRUE(std::filesystem::is_symlink(folder.File("link.ini")));
    struct stat status;
    ASSERT_EQ(0, stat(target.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777u);
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
        "[s]\n",
    };
    for (int i = 0; i < 20000; ++i) {
        const std::string number = std::to_string(i);
        texts.back() += "t" + std::to_string(i % 7) + " Line" + number + "=\\x4\n[s" + number + "]\n";
    }
    std::minstd_rand random(7);
    const std::string alphabet = std::string("[]=:;\"'\\x \t\r\nab1\xFF") + '\0';
    for (int i = 0; i < 10; ++i) {
        std::string text(200, ' ');
        for (char& c : text) {
            c = alphabet[random() % alphabet.size()];
        }
        texts.push_back(text);
    }
    for (const std::string& text : texts) {
        SCOPED_TRACE(testing::PrintToString(text.substr(0, 300)));
        for (const Strings& command :
             {Strings{"check", "a.ini"}, {"list", "a.ini"}, {"sort", "a.ini"}, {"set", "a.ini", "s", "t", "v"}}) {
            for (const char* option : {"--json", "--colons"}) {
                folder.Write("a.ini", text);
                Strings arguments = command;
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
    EXPECT_EQ(0, help.status);
    for (const char* command : {"get", "set", "unset", "list", "rename", "sort", "check"}) {
        EXPECT_NE(std::string::npos, help.out.find("kzini " + std::string(command) + " FILE")) << command;
    }
    const Outcome version = Run({"list", "--version"});
    EXPECT_EQ(0, version.status);
    EXPECT_TRUE(version.out.starts_with("kzini "));
    outName = "/dev/full";
    folder.Write("a.ini", "[s]\n");
    EXPECT_EQ(4, Run({"list", "a.ini"}).status);
}

}  // namespace
