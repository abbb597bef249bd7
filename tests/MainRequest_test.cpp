// The whole library at once: start, one string out of a resource file, stop; over and over, and from many threads.

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FileManager.h"
#include "LiveCounts.h"
#include "PathRef.h"
#include "ReportCatcher.h"
#include "ResourceManager.h"
#include "TempFolder.h"
#include "TestHost.h"

namespace {

using kztest::CountLive;
using kztest::DataFile;
using kztest::LiveCounts;

std::string Text(const unsigned char* pstr)
{
    return {reinterpret_cast<const char*>(pstr + 1), pstr[0]};
}

// One string of a list in a resource file, through the calls that a host makes.
KzErr ReadString(const std::string& file, int id, int index, std::string* text)
{
    const PathRef path(file, PathRef::StringUnix());
    RsrcFile refnum = 0;
    KzErr err = ROpenFile(&path, 1, &refnum, nullptr, nullptr);
    if (err != kzErrNone) {
        return err;
    }
    unsigned char pstr[256];
    err = RGetIndString(refnum, pstr, id, index);
    *text = Text(pstr);
    const KzErr closeErr = RCloseFile(refnum);
    return err != kzErrNone ? err : closeErr;
}

TEST(MainRequest, GivesTheStringAndStopsClean)
{
    const kztest::ReportCatcher reports;
    const std::string file = DataFile("rsrc/strings.rsrc");
    LiveCounts before{};
    for (int round = 0; round < 1000; ++round) {
        {
            const kztest::RunningLibrary library;
            ASSERT_EQ(library.baseResult, kzErrNone);
            const LiveCounts started = CountLive();
            std::string text;
            ASSERT_EQ(ReadString(file, 1000, 3, &text), kzErrNone);
            ASSERT_EQ(text, "The quick brown fox");
            ASSERT_EQ(CountLive(), started) << "round " << round;
        }
        if (round == 0) {
            before = CountLive();  // the first round may leave what the process keeps, such as a loaded locale
        }
        ASSERT_EQ(CountLive(), before) << "round " << round;
    }
}

TEST(MainRequest, CallsOutsideStartAndStopFailWithoutHarm)
{
    const kztest::ReportCatcher reports;
    unsigned char pstr[256];
    int count = -1;
    const auto expectNotRunning = [&] {
        EXPECT_EQ(RGetIndString(0x100000, pstr, 1000, 3), kzErrResFileNotOpen);
        EXPECT_EQ(RCountTypes(0x100000, &count), kzErrResFileNotOpen);
        EXPECT_EQ(RCloseFile(0x100000), kzErrResFileNotOpen);
    };
    expectNotRunning();
    {
        const kztest::RunningLibrary library;
        expectNotRunning();
    }
    expectNotRunning();
}

TEST(MainRequest, PathsOutliveTheLibrary)
{
    kztest::ReportCatcher reports;
    for (int round = 0; round < 3; ++round) {
        auto library = std::make_unique<kztest::RunningLibrary>();
        PathRef path(DataFile("rsrc/strings.rsrc"), PathRef::StringUnix());
        PathRef copy(path);
        PathRef other(std::string("/usr/lib"), PathRef::StringUnix());
        library.reset();  // the elements are gone, which the values must survive
        EXPECT_TRUE(reports.Take(kDbgWarning, "Possible path leak, unable to purge elements of base #0"));
        copy = other;
        other = PathRef(PathRef::kNotAPath);
        const PathRef late(copy);
        EXPECT_FALSE(late.IsValid());
    }
}

// What each thread of the stress below does, and how often.
constexpr int kThreads = 8;
constexpr int kRounds = 10000;

void Work(int thread, const std::array<RsrcFile, 3>& files, const std::vector<std::string>& names, int* failures)
{
    const PathRef sibling(std::string("/usr/lib/sibling") + std::to_string(thread), PathRef::StringUnix());
    const PathRef file(names[0], PathRef::StringUnix());
    for (int round = 0; round < kRounds; ++round) {
        const std::string text = "/usr/lib/" + std::to_string(round % 97) + "/" + std::to_string(thread % 4);
        const PathRef path(text, PathRef::StringUnix());
        const PathRef copy(path);
        bool good = copy == path && !(copy == sibling) && path.ItemCount() == 4 && FExists(&file) == 1;
        unsigned char pstr[256];
        good = good && RGetIndString(files[static_cast<size_t>(round) % 3], pstr, 1000, 3) == kzErrNone &&
               Text(pstr) == "The quick brown fox";
        *failures += good ? 0 : 1;
    }
}

TEST(MainRequest, EightThreadsShareThePathTreeAndThreeFiles)
{
    const kztest::ReportCatcher reports;
    const kztest::RunningLibrary library;
    const kztest::TempFolder folder;
    const LiveCounts before = CountLive();
    {
        std::array<RsrcFile, 3> files{};
        std::vector<std::string> names;
        for (RsrcFile& refnum : files) {
            names.push_back(folder.Write("file" + std::to_string(names.size()),
                                         kztest::ReadWholeFile(DataFile("rsrc/strings.rsrc"))));
            const PathRef path(names.back(), PathRef::StringUnix());
            ASSERT_EQ(ROpenFile(&path, 1, &refnum, nullptr, nullptr), kzErrNone);
        }
        std::array<int, kThreads> failures{};
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back(Work, i, files, names, &failures[static_cast<size_t>(i)]);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(failures, (std::array<int, kThreads>{}));
        for (const RsrcFile refnum : files) {
            EXPECT_EQ(RCloseFile(refnum), kzErrNone);
        }
    }
    EXPECT_EQ(CountLive(), before);
}

}  // namespace
