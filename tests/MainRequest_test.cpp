// The whole library at once: start, one string out of a resource file, stop; over and over, and from many threads.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "FaultLoop.h"
#include "FileManager.h"
#include "PathRef.h"
#include "Racing.h"
#include "ResourceManager.h"
#include "TempFolder.h"
#include "zvexcept.h"

namespace {

using kztest::CountLive;
using kztest::DataFile;
using kztest::LiveCounts;

std::string_view Text(const unsigned char* pstr)
{
    return {reinterpret_cast<const char*>(pstr + 1), pstr[0]};
}

// One string of a list in a resource file, through the calls that a host makes; `pstr` has room for 256 bytes.
KzErr ReadString(const std::string& file, int id, int index, unsigned char* pstr)
{
    return kz::ErrOf("MainRequest", __LINE__, [&] {
        const PathRef path(file, PathRef::StringUnix());
        RsrcFile refnum = 0;
        KzErr err = ROpenFile(&path, 1, &refnum, nullptr, nullptr);
        if (err != kzErrNone) {
            return err;
        }
        err = RGetIndString(refnum, pstr, id, index);
        const KzErr closeErr = RCloseFile(refnum);
        return err != kzErrNone ? err : closeErr;
    });
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
            unsigned char pstr[256];
            ASSERT_EQ(ReadString(file, 1000, 3, pstr), kzErrNone);
            ASSERT_EQ(Text(pstr), "The quick brown fox");
            ASSERT_EQ(CountLive(), started) << "round " << round;
        }
        if (round == 0) {
            before = CountLive();  // the first round may leave what the process keeps, such as a loaded locale
        }
        ASSERT_EQ(CountLive(), before) << "round " << round;
    }
}

TEST(MainRequest, PathsOutliveTheLibrary)
{
    kztest::ReportCatcher reports;
    for (int round = 0; round < 3; ++round) {
        std::optional<kztest::RunningLibrary> library(std::in_place);
        PathRef path(DataFile("rsrc/strings.rsrc"), PathRef::StringUnix());
        PathRef copy(path);
        PathRef other(std::string("/usr/lib"), PathRef::StringUnix());
        library.reset();  // the elements are gone, which the values must survive
        EXPECT_TRUE(reports.Take(kDbgWarning, "Possible path leak, unable to purge elements of base #0"));
        EXPECT_FALSE(path.IsValid());
        copy = other;
        EXPECT_EQ(copy.ItemCount(), 0) << "not a path, which may be used";
        other = PathRef(PathRef::kNotAPath);
        EXPECT_FALSE(PathRef(copy).IsValid());
    }
}

int32 gWorstLevel;

// Takes no memory to note the worst report, which may be no more than a warning.
class WithoutMemory : public testing::Test {
protected:
    WithoutMemory()
    {
        gWorstLevel = 0;
        DebugOutputSetHandler([](const char*, int32, const char*, int32 level, uInt32, const char*, uInt64) {
            gWorstLevel = std::max(gWorstLevel, level);
        });
    }
    ~WithoutMemory() override
    {
        DebugOutputSetHandler(nullptr);
        EXPECT_LE(gWorstLevel, kDbgWarning);
    }
};

TEST_F(WithoutMemory, EachFailedAllocationIsToldAndForgottenByTheNextStart)
{
    const std::string file = DataFile("rsrc/strings.rsrc");
    kztest::FaultLoop([&](auto failed) {
        for (const bool isRestart : {false, true}) {
            const kztest::RunningLibrary library;
            unsigned char pstr[256] = {};
            KzErr err = library.baseResult;
            if (err == kzErrNone) {
                err = ReadString(file, 1000, 3, pstr);
            }
            EXPECT_TRUE(err == kzErrNone ? Text(pstr) == "The quick brown fox" : failed()) << err << isRestart;
        }
    });
}

// All that a caller may have left behind is freed or given up without a single allocation.
TEST_F(WithoutMemory, AStopAllocatesNothing)
{
    const LiveCounts before = CountLive();
    std::optional<kztest::RunningLibrary> library(std::in_place);
    RsrcFile refnum = 0;
    PathRef path(DataFile("rsrc/strings.rsrc"), PathRef::StringUnix());
    const PathRef sibling(DataFile("rsrc/sibling"), PathRef::StringUnix());
    ASSERT_EQ(ROpenFile(&path, 1, &refnum, nullptr, nullptr), kzErrNone);
    ASSERT_EQ(RCloseFile(refnum), kzErrNone);
    ASSERT_EQ(sibling.AssignToName("sibling"), kzErrNone);
    ASSERT_EQ(DSDisposeHandle(DSNewHandle(100000)), kzErrNone);  // stays in the cache
    ASSERT_NE(DSNewHandle(10), nullptr);                         // forgotten
    {
        const kztest::FailAllocation fail(1, kztest::FailAllocation::kForGood, kztest::FailAllocation::kBlocksAndNew);
        library.reset();
        EXPECT_FALSE(fail.Happened());
    }
    EXPECT_EQ(KZSingleton_T<MemoryManager_Service>::M_instPtr, nullptr);
    EXPECT_EQ(CountLive(), before);
}

TEST(MainRequest, EightThreadsShareThePathTreeAndThreeFiles)
{
    constexpr int kRounds = 10000;
    const kztest::ReportCatcher reports;
    const kztest::RunningLibrary library;
    const kztest::TempFolder folder;
    const LiveCounts before = CountLive();
    const std::string image = kztest::ReadWholeFile(DataFile("rsrc/strings.rsrc"));
    std::array<RsrcFile, 3> files{};
    for (RsrcFile& refnum : files) {
        const PathRef path(folder.Write("file" + std::to_string(&refnum - &files[0]), image), PathRef::StringUnix());
        ASSERT_EQ(ROpenFile(&path, 1, &refnum, nullptr, nullptr), kzErrNone);
    }
    std::atomic<int> failures{0};
    kztest::Race(8, [&](int thread) {
        const PathRef sibling(std::string("/usr/lib/sibling") + std::to_string(thread), PathRef::StringUnix());
        const PathRef file(folder.File("file0"), PathRef::StringUnix());
        for (int round = 0; round < kRounds; ++round) {
            const std::string text = "/usr/lib/" + std::to_string(round % 97) + "/" + std::to_string(thread % 4);
            const PathRef path(text, PathRef::StringUnix());
            const PathRef copy(path);
            unsigned char pstr[256];
            const bool good = copy == path && !(copy == sibling) && path.ItemCount() == 4 && FExists(&file) == 1 &&
                              RGetIndString(files[static_cast<size_t>(round) % 3], pstr, 1000, 3) == kzErrNone &&
                              Text(pstr) == "The quick brown fox";
            failures += good ? 0 : 1;
        }
    });
    EXPECT_EQ(failures, 0);
    for (const RsrcFile refnum : files) {
        EXPECT_EQ(RCloseFile(refnum), kzErrNone);
    }
    EXPECT_EQ(CountLive(), before);
}

}  // namespace
