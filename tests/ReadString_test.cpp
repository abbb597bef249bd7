// The example host as a user runs it: arguments, output, exit status and the line that tells a failure.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
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

Outcome RunHost(const std::vector<std::string>& arguments)
{
    const kztest::TempFolder folder;
    std::string command = "'" KZ_READ_STRING "'";
    for (const std::string& argument : arguments) {
        command += " '" + argument + "'";
    }
    command += " >'" + folder.File("out") + "' 2>'" + folder.File("err") + "'";
    const int status = std::system(command.c_str());
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
        const std::string last = outcome.err.substr(outcome.err.rfind('\n', outcome.err.size() - 2) + 1);
        const std::string said =
            "read_string: " +
            (row.status == 2 || row.arguments.empty() ? "" : row.arguments[row.arguments[0] == "--list"] + ": ");
        EXPECT_TRUE(row.failure == nullptr ? last.empty() : last.starts_with(said)) << last;
        EXPECT_TRUE(row.failure == nullptr || last.ends_with(row.failure + std::string("\n"))) << last;
    }
}

}  // namespace
