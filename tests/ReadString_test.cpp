// The example host as a user runs it: arguments, output, exit status and the line that tells a failure.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ResImage.h"
#include "TempFolder.h"

namespace {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

Outcome RunHost(std::vector<std::string> arguments)
{
    const kztest::TempFolder folder;
    arguments.insert(arguments.begin(), KZ_READ_STRING);
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int fd = STDOUT_FILENO;
    for (const char* name : {"out", "err"}) {
        posix_spawn_file_actions_addopen(&actions, fd++, folder.File(name).c_str(), O_WRONLY | O_CREAT, 0600);
    }
    pid_t child = 0;
    int status = -1;
    EXPECT_EQ(posix_spawn(&child, KZ_READ_STRING, &actions, nullptr, argv.data(), environ), 0);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_TRUE(WIFEXITED(status)) << "the host died";
    return {WEXITSTATUS(status), kztest::ReadWholeFile(folder.File("out")), kztest::ReadWholeFile(folder.File("err"))};
}

TEST(ReadString, DoesWhatIsAskedOrSaysWhatIsWrong)
{
    const std::string strings = kztest::DataFile("rsrc/strings.rsrc");
    const std::string relative = std::filesystem::relative(strings).string();
    const kztest::TempFolder folder;
    const std::string beyond = kztest::DataFile("rsrc/damaged/block_beyond.rsrc");
    const std::string odd = folder.Write(
        "odd",
        kztest::ResImage({{"A\tB\\", -2, "1", "\xFF~"}, {"TYPE", 9, "", "name"}, {"TYPE", 7, "123", "", 2}}).Bytes());
    struct Row {
        int line;
        std::vector<std::string> arguments;
        int status;
        std::string out;      // all of stdout
        const char* failure;  // the end of stderr's last line
    };
    const Row kRows[] = {
        {__LINE__, {}, 0, "The quick brown fox\n", nullptr},
        {__LINE__, {strings}, 0, "The quick brown fox\n", nullptr},
        {__LINE__, {relative}, 0, "The quick brown fox\n", nullptr},
        {__LINE__, {strings, "1000", "2"}, 0, "Waiting for input\n", nullptr},
        {__LINE__, {strings, "1001", "3"}, 0, "Close\n", nullptr},
        {__LINE__, {strings, "1000", "0"}, 1, "", "(kzErrResNotFound, 15)"},
        {__LINE__, {strings, "-7", "1"}, 1, "", "(kzErrResNotFound, 15)"},
        {__LINE__, {strings, "128", "1"}, 1, "", "(kzErrResNotFound, 15)"},
        {__LINE__, {strings, "1000"}, 2, "", "(kzErrArgument, 1)"},
        {__LINE__, {strings, "1000", "2x"}, 2, "", "(kzErrArgument, 1)"},
        {__LINE__, {strings, "1000", "99999999999"}, 2, "", "(kzErrArgument, 1)"},
        {__LINE__, {strings, "1000", "2", "3"}, 2, "", "(kzErrArgument, 1)"},
        {__LINE__, {"--list", kztest::DataFile("rsrc/empty.rsrc")}, 0, "", nullptr},
        {__LINE__, {"--list", odd}, 0, "A\\x09B\\x5C\t-2\t1\t\\xFF~\nTYPE\t7\t3\t\nTYPE\t9\t0\tname\n", nullptr},
        {__LINE__, {"--list", beyond}, 3, "AAAA\t1\t3\t\nAAAA\t2\t-1\t\n", "(kzErrEndOfFile, 4)"},
        {__LINE__, {"--list", folder.File("missing")}, 4, "", "(kzErrNotFound, 7)"},
        {__LINE__, {"--list"}, 2, "", "(kzErrArgument, 1)"},
        {__LINE__, {folder.Write("text", std::string(99, 'x'))}, 3, "", "(kzErrResFileNotOpen, 13)"},
        {__LINE__, {folder.Write("short", "RSRC\r\n")}, 3, "", "(kzErrEndOfFile, 4)"},
        {__LINE__, {kztest::DataFile("rsrc/damaged/version4.rsrc")}, 3, "", "(kzErrResFileVersion, 122)"},
        {__LINE__, {kztest::DataFile("rsrc/damaged/map_types.rsrc")}, 3, "", "(kzErrGeneric, 42)"},
        {__LINE__, {folder.File("missing")}, 4, "", "(kzErrNotFound, 7)"},
        {__LINE__, {kztest::DataFile("rsrc")}, 4, "", ")"},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        const Outcome outcome = RunHost(row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.out, row.out);
        if (row.failure == nullptr) {
            EXPECT_EQ(outcome.err, "");
            continue;
        }
        const std::string end = std::string(row.failure) + "\n";
        ASSERT_GE(outcome.err.size(), end.size());
        EXPECT_EQ(outcome.err.substr(outcome.err.size() - end.size()), end) << outcome.err;
        const std::string last = outcome.err.substr(outcome.err.rfind('\n', outcome.err.size() - 2) + 1);
        const std::string said =
            "read_string: " + (row.status == 2 ? "" : row.arguments[row.arguments[0] == "--list"] + ": ");
        EXPECT_EQ(last.compare(0, said.size(), said), 0) << last;
    }
}

}  // namespace
