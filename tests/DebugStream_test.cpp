#include "DebugStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "KZApp.h"
#include "Report.h"
#include "ReportCatcher.h"
#include "StreamText.h"
#include "TempFolder.h"
#include "TestHost.h"

namespace {

using kztest::CaughtReport;
using kztest::ReportCatcher;
using kztest::StreamText;
using kztest::ValueText;

constexpr char kModule[] = "tests/DebugStream";
constexpr int kPoolSize = 16;
constexpr char kFailedCheckouts[] =
    " failed checkouts in CheckOutDebugStreamBuffer, which forced us to malloc the debugstream buffer. Talk to Dorin "
    "Vask.";

class RunningService {
public:
    RunningService() { EXPECT_EQ(DebugStreamService()->Init(), 0); }
    ~RunningService() { EXPECT_EQ(DebugStreamService()->Uninit(), 0); }
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;
};

// A host of a given stage, and a folder of its own to write a clash file to.
class PoolTest : public testing::Test {
protected:
    static constexpr uInt32 kDevelopment = 0x01002000;

    PoolTest() : mOldFolder(std::filesystem::current_path())
    {
        std::filesystem::current_path(mFolder.File(""));
        KZAppInterfaceSet(&mHost);
    }
    ~PoolTest() override
    {
        KZAppInterfaceSet(nullptr);
        std::filesystem::current_path(mOldFolder);
    }

    bool HasClashFile() const { return std::filesystem::exists(mFolder.File("DebugStreamClash.txt")); }
    std::string ClashText() const { return kztest::ReadWholeFile(mFolder.File("DebugStreamClash.txt")); }

    kztest::TestHost mHost;
    kztest::TempFolder mFolder;

private:
    std::filesystem::path mOldFolder;
};

// Streams that are open at once; each is sent at the end.
class OpenStreams {
public:
    ~OpenStreams() { ProcessAll(); }
    void Open(const std::string& text)
    {
        mStreams.push_back(std::make_unique<DebugStream>("OpenStreams", 1, "", kDbgLog));
        mStreams.back()->Append(text.c_str());
    }
    void Open(int count)
    {
        for (int i = 0; i < count; ++i) {
            Open(std::to_string(i));
        }
    }
    void ProcessAll()
    {
        for (const auto& stream : mStreams) {
            stream->Process();
        }
        mStreams.clear();
    }

private:
    std::vector<std::unique_ptr<DebugStream>> mStreams;
};

TEST(DebugStream, KeepsTheFirst255Bytes)
{
    const std::string long300(300, 'x');
    const std::string full = long300.substr(0, 255);
    const auto appended = [](auto... texts) { return StreamText([&](DebugStream& s) { (s.Append(texts), ...); }); };
    EXPECT_EQ(appended(long300.c_str()), full);
    EXPECT_EQ(appended(full.c_str(), "y", 'y'), full);
    EXPECT_EQ(appended(full.c_str() + 1, "yz"), full.substr(1) + "y");
    EXPECT_EQ(appended(full.c_str() + 1, 'y', 'z'), full.substr(1) + "y");
    EXPECT_EQ(appended("a", nullptr, 'b'), "ab");
    EXPECT_EQ(appended(), "");

    const char text[] = "abcdef";
    EXPECT_EQ(StreamText([&](DebugStream& s) {
                  s.Append(text + 1, text + 3);
                  s.Append(text, text);
                  s.Append(text, nullptr);
                  s.Append(nullptr, text);
              }),
              "bc");
}

int SomeFunction(int);

TEST(DebugStream, ValuesPrintByTheirType)
{
    LStr counted = {1, {'x'}};
    LStr* string = &counted;
    LStr negative = {-1, {'x'}};
    char buffer[] = "buffer";
    void (*const noProcedure)() = nullptr;
    const struct {
        int line;
        std::string actual;
        std::string expected;
    } kRows[] = {
        {__LINE__, ValueText(true), "true"},
        {__LINE__, ValueText(false), "false"},
        {__LINE__, ValueText(static_cast<char*>(buffer)), "buffer"},
        {__LINE__, ValueText(static_cast<const char*>(nullptr)), ""},
        {__LINE__, ValueText(string), "x"},
        {__LINE__, ValueText(&string), "x"},
        {__LINE__, ValueText(static_cast<LStr**>(nullptr)), ""},
        {__LINE__, ValueText(static_cast<LStr*>(nullptr)), ""},
        {__LINE__, ValueText(&negative), ""},
        {__LINE__, ValueText(noProcedure), "(nil)"},
        {__LINE__, ValueText(INT_MIN), "-2147483648"},
        {__LINE__, ValueText(short{-7}), "-7"},
        {__LINE__, ValueText(0x1'0000'0003L), "3"},
        {__LINE__, ValueText(0xFFFF'FFFFUL), "-1"},
        {__LINE__, ValueText(UINT_MAX), "4294967295"},
        {__LINE__, ValueText(static_cast<unsigned short>(65'535)), "65535"},
        {__LINE__, ValueText(static_cast<unsigned char>(200)), "200"},
        {__LINE__, ValueText(LLONG_MIN), "-9223372036854775808"},
        {__LINE__, ValueText(ULLONG_MAX), "18446744073709551615"},
        {__LINE__, ValueText(2.5), "2.500000"},
        {__LINE__, ValueText(-0.25f), "-0.250000"},
        {__LINE__, std::to_string(ValueText(-std::numeric_limits<double>::max()).size()), "255"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.actual, row.expected);
    }
    EXPECT_EQ(ValueText(&SomeFunction).substr(0, 2), "0x");
}

int SomeFunction(int value)
{
    return value;
}

TEST(DebugStream, AReportCarriesItsPlaceLevelAndHash)
{
    ReportCatcher catcher;
    const int line = __LINE__ + 1;
    KZ_REPORT(kDbgError, 0x51C0A3F7) << "count " << 3 << " of " << 4u;
    KZ_LOG(kDbgInternal) << "note";
    EXPECT_EQ(StopHere("the place"), 0);
    EXPECT_EQ(StopHere(nullptr), 0);
    const std::vector<CaughtReport> reports = catcher.TakeAll();
    ASSERT_EQ(reports.size(), 4u);
    EXPECT_EQ(reports[0].file, kModule);
    EXPECT_EQ(reports[0].line, line);
    EXPECT_EQ(reports[0].level, kDbgError);
    EXPECT_EQ(reports[0].hash, 0x51C0A3F7u);
    EXPECT_EQ(reports[0].text, "count 3 of 4");
    EXPECT_EQ(reports[1].level, kDbgInternal);
    EXPECT_EQ(reports[1].hash, 0u);
    EXPECT_EQ(reports[2].text, "StopHere: the place");
    EXPECT_EQ(reports[3].text, "StopHere: ");
    EXPECT_EQ(reports[3].level, kDbgLog);
}

TEST_F(PoolTest, BuffersComeFromThePoolOnlyWhileTheServiceRuns)
{
    OpenStreams early;
    early.Open("early");
    OpenStreams inside;
    {
        RunningService service;
        early.ProcessAll();
        inside.Open("inside");
        DebugStreamBufferPoolRecord* record = DebugStream_Service::CheckOutDebugStreamBuffer();
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->inUse, 1u);
        DebugStream_Service::CheckInDebugStreamBuffer(record);
        EXPECT_EQ(record->inUse, 0u);
    }
    inside.ProcessAll();
    EXPECT_EQ(DebugStream_Service::CheckOutDebugStreamBuffer(), nullptr);
    EXPECT_NE(KZSingleton_T<DebugStream_Service>::M_instPtr.load(), nullptr) << "a stream makes the object";
}

TEST_F(PoolTest, AStartTakesBackTheBuffersOfDroppedStreams)
{
    ReportCatcher catcher;
    for (int run = 0; run < 2; ++run) {
        RunningService service;
        const DebugStream dropped("f", 1, "", kDbgLog);
        OpenStreams streams;
        streams.Open(kPoolSize - 1);  // one more would be reported when the service stops
    }
}

// Opens a stream that finds no buffer.
__attribute__((noinline)) void OpenStreamThatClashes()
{
    DebugStream stream("clash", 1, "", kDbgLog);
    stream.Append("clash");
    stream.Process();
}

TEST_F(PoolTest, AClashLogsTheStackOfWhoReported)
{
    ReportCatcher catcher;
    {
        RunningService service;
        OpenStreams streams;
        streams.Open(kPoolSize);
        OpenStreamThatClashes();
    }
    EXPECT_TRUE(catcher.Take(kDbgLog, "clash")) << "the stream has a buffer all the same";
    EXPECT_TRUE(catcher.Take(kDbgWarning, std::string("1") + kFailedCheckouts));
    EXPECT_FALSE(HasClashFile()) << "a release host writes none";

    mHost.editorVersion = kDevelopment;
    const std::regex head("=== DebugStream CLASH failedCheckoutCount=[12] thread=0x[0-9a-f]{8,}");
    const std::regex frame("0x[0-9a-f]{8,} - \\S+ \\+ 0x[0-9a-f]+");
    for (int run = 0; run < 2; ++run) {  // the first clash after a start writes the file anew
        {
            RunningService service;
            OpenStreams streams;
            streams.Open(kPoolSize);
            EXPECT_EQ(HasClashFile(), run == 1);
            OpenStreamThatClashes();
            OpenStreamThatClashes();
        }
        EXPECT_TRUE(catcher.Take(kDbgWarning, std::string("2") + kFailedCheckouts));
        std::istringstream lines(ClashText());
        std::string line;
        for (int clash = 1; clash <= 2; ++clash) {
            ASSERT_TRUE(std::getline(lines, line));
            EXPECT_TRUE(std::regex_match(line, head)) << line;
            EXPECT_NE(line.find("=" + std::to_string(clash) + " "), std::string::npos) << line;
            ASSERT_TRUE(std::getline(lines, line));
            EXPECT_NE(line.find("OpenStreamThatClashes"), std::string::npos) << line;
            do {
                EXPECT_TRUE(std::regex_match(line, frame)) << line;
            } while (std::getline(lines, line) && !line.empty());
        }
        EXPECT_FALSE(std::getline(lines, line)) << line;
    }
}

std::atomic<int> gGoodTexts;
std::atomic<int> gBadTexts;

// A sound text is one digit, repeated.
void CheckText(const char*, int32, const char*, int32, uInt32, const char* text, uInt64)
{
    const std::string got = text;
    const bool good = got.size() == 200 && got.find_first_not_of(got[0]) == std::string::npos;
    (good ? gGoodTexts : gBadTexts).fetch_add(1);
}

TEST_F(PoolTest, ThreadsReportWhileTheServiceStartsAndStops)
{
    constexpr int kThreads = 8;
    constexpr int kReports = 2'000;
    gGoodTexts = 0;
    gBadTexts = 0;
    DebugOutputSetHandler(&CheckText);
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&running, t] {
            for (int i = 0; i < kReports; ++i) {
                DebugStream stream("thread", i, "", kDbgLog);
                for (int c = 0; c < 200; ++c) {
                    stream.Append(static_cast<char>('0' + t));
                }
                stream.Process();
            }
            running.fetch_sub(1);
        });
    }
    {
        RunningService service;
        while (running.load() > kThreads / 2) {
            std::this_thread::yield();
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    DebugOutputSetHandler(nullptr);
    EXPECT_EQ(gGoodTexts.load(), kThreads * kReports);
    EXPECT_EQ(gBadTexts.load(), 0);
}

void CountingHandler(const char*, int32, const char*, int32 level, uInt32, const char*, uInt64)
{
    DebugOutputIncrementEventCount(level);
}

void ReportingHandler(const char*, int32, const char*, int32, uInt32, const char* text, uInt64)
{
    if (std::strcmp(text, "nested") != 0) {
        KZ_LOG(kDbgLog) << "nested";
        EXPECT_STREQ(text, "outer");
    }
}

std::vector<int32> Counts()
{
    std::vector<int32> counts;
    for (int32 level = kDbgLog; level <= kDbgFatal; ++level) {
        counts.push_back(DebugOutputGetNumEvents(level));
    }
    return counts;
}

TEST(DebugOutput, CountsAreForReportsWithoutAHandler)
{
    ASSERT_EQ(DebugOutputGetHandler(), nullptr);
    DebugOutputResetNumEvents();
    KZ_LOG(kDbgLog) << "a";
    KZ_LOG(kDbgLog) << "b";
    KZ_LOG(kDbgInternal) << "c";
    KZ_REPORT(kDbgWarning, 0x0B7D21E5) << "d";
    KZ_REPORT(kDbgError, 0x6E1F94B2) << "survived";
    DebugOutputIncrementEventCount(kDbgFatal);
    EXPECT_EQ(Counts(), (std::vector<int32>{2, 1, 1, 1, 1}));
    for (const int32 unknown : {-1, 5}) {
        DebugOutputIncrementEventCount(unknown);
        EXPECT_EQ(DebugOutputGetNumEvents(unknown), 0);
    }
    DebugOutputResetNumEvents();
    EXPECT_EQ(Counts(), std::vector<int32>(5));

    {
        ReportCatcher catcher;
        EXPECT_NE(DebugOutputGetHandler(), nullptr);
        KZ_REPORT(kDbgFatal, 0x3A86D07C) << "no stop with a handler";
        EXPECT_TRUE(catcher.Take(kDbgFatal, "no stop"));
    }
    EXPECT_EQ(Counts(), std::vector<int32>(5));

    DebugOutputSetHandler(&CountingHandler);
    KZ_LOG(kDbgInternal) << "counted by the handler";
    DebugOutputSetHandler(&ReportingHandler);
    KZ_LOG(kDbgLog) << "outer";
    DebugOutputSetHandler(nullptr);
    EXPECT_EQ(Counts(), (std::vector<int32>{0, 1, 0, 0, 0}));
    DebugOutputResetNumEvents();
}

TEST(DebugOutputDeathTest, LevelFourStopsTheProcess)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    ASSERT_EQ(DebugOutputGetHandler(), nullptr);
    EXPECT_DEATH(KZ_REPORT(kDbgFatal, 0x48E5B913) << "the end", "");
}

// In a traced child: one report, whose text a debugger's user would read.
[[noreturn]] void ReportUnderTrace(int stderrTo, const std::string& text)
{
    dup2(stderrTo, STDERR_FILENO);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(1);
    }
    DebugOutputCallHandler("source/File", 12, "", kDbgError, 0xAB12CD34, text.c_str(), 0);
    _exit(0);
}

TEST(DebugOutput, AnErrorBreaksIntoADebuggerWithTheFirst255Characters)
{
    const std::string text(300, 'z');
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ReportUnderTrace(ends[1], text);
    }
    close(ends[1]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    char got[1024];
    const ssize_t size = read(ends[0], got, sizeof got);
    close(ends[0]);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 1) {
        GTEST_SKIP() << "tracing is not allowed here";
    }
    ASSERT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP) << status;
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    EXPECT_EQ(std::string(got, static_cast<size_t>(std::max<ssize_t>(size, 0))),
              ("ERR ab12cd34: source/File(12): " + text).substr(0, 255) + "\n");
}

}  // namespace
