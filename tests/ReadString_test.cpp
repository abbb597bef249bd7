// The example host as a user runs it: arguments, output, exit status and the line that tells a failure.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "JsonLines.h"
#include "ResImage.h"
#include "TempFolder.h"

namespace {

// Among a row's arguments are stored files, files made here, and the path of a stored one from this folder on. In
// "out" stands all of stdout, in "failure" the end of the last line of stderr.
TEST(ReadString, Vectors)
{
    const kztest::TempFolder folder, outputs;
    folder.Write(
        "odd",
        kztest::ResImage({{"A\tB\\", -2, "1", "\xFF~"}, {"TYPE", 9, "", "name"}, {"TYPE", 7, "123", "", 2}}).Bytes());
    folder.Write("text", std::string(99, 'x'));
    folder.Write("short", "RSRC\r\n");
    for (const kztest::Json& row : kztest::ReadJsonLines("vectors/read_string.jsonl")) {
        SCOPED_TRACE(row.Line());
        std::vector<std::string> arguments;
        std::string command = "'" KZ_READ_STRING "'";
        for (const kztest::Json& item : row["arguments"].Items()) {
            const std::string& text = item.Str();
            arguments.push_back(text == "relative"
                                    ? std::filesystem::relative(kztest::DataFile("rsrc/strings.rsrc")).string()
                                : text.starts_with("rsrc")  ? kztest::DataFile(text)
                                : text.starts_with("made/") ? folder.File(text.substr(5))
                                                            : text);
            command += " '" + arguments.back() + "'";
        }
        command += " >'" + outputs.File("out") + "' 2>'" + outputs.File("err") + "'";
        const int status = std::system(command.c_str());
        EXPECT_EQ(WEXITSTATUS(status), row["status"].Int());
        EXPECT_EQ(kztest::ReadWholeFile(outputs.File("out")), row["out"].Str());
        const std::string err = kztest::ReadWholeFile(outputs.File("err"));
        const std::string last = err.substr(err.rfind('\n', err.size() - 2) + 1);
        const std::string place =
            WEXITSTATUS(status) == 2 || arguments.empty() ? "" : arguments[arguments[0] == "--list"] + ": ";
        EXPECT_TRUE(row.Has("failure")
                        ? last.starts_with("read_string: " + place) && last.ends_with(row["failure"].Str() + "\n")
                        : last.empty())
            << last;
    }
}

}  // namespace
