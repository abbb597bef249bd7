#include "DebugStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "DebugStreamPool.h"
#include "DebugStreamService.h"
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

template <typename T>
concept Printable = requires(DebugStream& stream, T value)
{
    ToDebugStream(stream, value);
};
static_assert(Printable<int8> && Printable<uInt8> && !Printable<char> && !Printable<int*>);
static_assert(!Printable<wchar_t> && !Printable<char8_t> && !Printable<char16_t> && !Printable<char32_t>);

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
        DebugStreamBufferPoolRecord* record = kz::CheckOutDebugStreamBuffer();
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->inUse, 1u);
        kz::CheckInDebugStreamBuffer(record);
        EXPECT_EQ(record->inUse, 0u);
    }
    inside.ProcessAll();
    EXPECT_EQ(kz::CheckOutDebugStreamBuffer(), nullptr);
    OpenStreams late;
    late.Open("late");
    EXPECT_NE(KZSingleton_T<DebugStream_Service>::M_instPtr.load(), nullptr) << "a stream makes the object";
}

TEST_F(PoolTest, AStreamThatLivesAcrossARestartKeepsItsBuffer)
{
    ReportCatcher catcher;
    {
        OpenStreams old;
        {
            RunningService service;
            old.Open(kPoolSize / 2);
        }
        RunningService service;
        OpenStreams streams;
        for (int i = 0; i < kPoolSize / 2; ++i) {
            streams.Open("new");
        }
        old.ProcessAll();
        streams.Open(kPoolSize / 2);  // one more would be reported when the service stops
    }
    const std::vector<CaughtReport> reports = catcher.TakeAll();
    ASSERT_EQ(reports.size(), 3u * kPoolSize / 2);
    for (size_t i = 0; i < kPoolSize / 2; ++i) {
        EXPECT_EQ(reports[i].text, std::to_string(i)) << "sent first, with the texts they had";
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

TEST_F(PoolTest, AClashThatCannotOpenTheFileLeavesItToBeEmptied)
{
    const std::filesystem::path file = "DebugStreamClash.txt";
    ReportCatcher catcher;
    mHost.editorVersion = kDevelopment;
    {
        RunningService service;
        OpenStreams streams;
        streams.Open(kPoolSize);
        std::filesystem::create_directory(file);
        OpenStreamThatClashes();
        std::filesystem::remove(file);
        std::ofstream(file) << "of an earlier run";
        OpenStreamThatClashes();
    }
    EXPECT_TRUE(catcher.Take(kDbgWarning, std::string("2") + kFailedCheckouts));
    EXPECT_EQ(ClashText().substr(0, 4), "=== ");
}

std::atomic<bool> gClashesInLookUp{false};
std::future<void> gOtherClash;
bool gOtherClashEnded;

// Another thread must get its entry into the file while this one looks up a name, because the look-up may wait for it.
void ClashInLookUp()
{
    gOtherClash = std::async(std::launch::async, &OpenStreamThatClashes);
    gOtherClashEnded = gOtherClash.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

TEST_F(PoolTest, NamesAreLookedUpOutsideTheLockOfTheFile)
{
    ReportCatcher catcher;
    mHost.editorVersion = kDevelopment;
    {
        RunningService service;
        OpenStreams streams;
        streams.Open(kPoolSize);
        gOtherClashEnded = false;
        gClashesInLookUp = true;
        OpenStreamThatClashes();
        ASSERT_TRUE(gOtherClash.valid());
        gOtherClash.wait();
    }
    EXPECT_TRUE(gOtherClashEnded);
    EXPECT_TRUE(catcher.Take(kDbgWarning, std::string("2") + kFailedCheckouts));
}

// Every first clash after a start empties the file, and what other threads wrote meanwhile is in it all the same.
TEST_F(PoolTest, ClashesOfSeveralThreadsAreAllLogged)
{
    constexpr int kThreads = 8;
    constexpr int kClashes = 3;
    ReportCatcher catcher;
    mHost.editorVersion = kDevelopment;
    for (int run = 0; run < 10; ++run) {
        {
            RunningService service;
            OpenStreams streams;
            streams.Open(kPoolSize);
            std::vector<std::thread> threads(kThreads);
            for (std::thread& thread : threads) {
                thread = std::thread([] {
                    for (int i = 0; i < kClashes; ++i) {
                        OpenStreamThatClashes();
                    }
                });
            }
            std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
        }
        EXPECT_TRUE(catcher.Take(kDbgWarning, std::to_string(kThreads * kClashes) + kFailedCheckouts));
        const std::string text = ClashText();
        int entries = 0;
        for (size_t at = 0; (at = text.find("=== ", at)) != std::string::npos; ++at) {
            EXPECT_TRUE(at == 0 || text.compare(at - 2, 2, "\n\n") == 0) << "an entry within another";
            ++entries;
        }
        EXPECT_EQ(entries, kThreads * kClashes);
    }
}

// Reports when it is asked, as one that reads its version from a file may.
class ReportingHost : public kztest::TestHost {
public:
    uInt32 GetAppEditorVersion() override
    {
        KZ_LOG(kDbgLog) << "asked";
        return kztest::TestHost::GetAppEditorVersion();
    }
};

int gHandled;

void HandlerThatAlwaysReports(const char*, int32, const char*, int32 level, uInt32, const char*, uInt64)
{
    ++gHandled;
    DebugOutputCallHandler("source/Nested", gHandled, "", level, 0, "nested", 0);
}

TEST_F(PoolTest, HostsAndHandlersThatReportAreNotAskedWithoutEnd)
{
    ReportingHost host;
    KZAppInterfaceSet(&host);
    for (const uInt32 version : {kDevelopment, mHost.editorVersion}) {
        host.editorVersion = version;
        ReportCatcher catcher;
        {
            RunningService service;
            OpenStreams streams;
            streams.Open(kPoolSize);
            OpenStreamThatClashes();
            OpenStreamThatClashes();
        }
        for (const char* text : {"asked", "clash", "asked", "clash"}) {
            EXPECT_TRUE(catcher.Take(kDbgLog, text)) << text;
        }
        EXPECT_FALSE(catcher.Take(kDbgLog, "asked"));
        EXPECT_TRUE(catcher.Take(kDbgWarning, std::string("4") + kFailedCheckouts));
    }
    DebugOutputResetNumEvents();
    const struct {
        _DebugOutputLevel level;
        const char* written;
        int32 count;
    } kRows[] = {
        {kDbgLog, "", 1},
        {kDbgLog, "", 2},
        {kDbgError, "", 1},
        {kDbgFatal, "kzcore: report of level 4 at source/Nested(8): nested; called from 0x", 1},
    };
    for (const auto& row : kRows) {
        gHandled = 0;
        DebugOutputSetHandler(&HandlerThatAlwaysReports);
        testing::internal::CaptureStderr();
        DebugOutputCallHandler("", 1, "", row.level, 0, "outer", 0);
        DebugOutputSetHandler(nullptr);
        const std::string written = testing::internal::GetCapturedStderr();
        EXPECT_EQ(written.substr(0, std::strlen(row.written)), row.written) << row.level;
        EXPECT_EQ(written.empty(), *row.written == '\0');
        EXPECT_EQ(gHandled, 8);
        EXPECT_EQ(DebugOutputGetNumEvents(row.level), row.count) << "what is not handed on is counted";
    }
    DebugOutputResetNumEvents();
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
    while (running.load() > 0) {
        RunningService service;
        std::this_thread::yield();
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

TEST(DebugOutputDeathTest, LevelFourSaysWhyOnOneLineAndStopsTheProcess)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    ASSERT_EQ(DebugOutputGetHandler(), nullptr);
    EXPECT_DEATH(KZ_REPORT(kDbgFatal, 0x48E5B913) << "the\nend\x7F"
                                                     " of "
                                                  << 3,
                 "kzcore: report of level 4 at tests/DebugStream\\([0-9]+\\): the end  of 3; called from"
                 "( 0x[0-9a-f]+){5,16}\n");
    EXPECT_DEATH(DebugOutputCallHandler(nullptr, 1, "", kDbgFatal, 0, nullptr, 0),
                 " at \\(1\\): no text; called from 0x");
    const std::string long400(400, 'x');
    EXPECT_DEATH(DebugOutputCallHandler(long400.c_str(), 1, "", kDbgFatal, 0, long400.c_str(), 0),
                 " at x+\\(1\\): x{200}x+; called from( 0x[0-9a-f]+)+\n");
    const auto reportToNobody = [] {
        int ends[2];
        if (pipe(ends) == 0 && dup2(ends[1], STDERR_FILENO) >= 0 && close(ends[0]) == 0) {
            DebugOutputCallHandler("", 1, "", kDbgFatal, 0, "", 0);
        }
    };
    EXPECT_EXIT(
        reportToNobody(), [](int status) { return WIFSIGNALED(status) && WTERMSIG(status) != SIGPIPE; }, "");
}

// What becomes of a child that sends one report of level 3.
struct ErrorOfChild {
    std::string written;  // to stderr
    bool stopped;         // by the trap, of which its tracer was told
    int status;           // at its end
};

// The tracer is a debugger, or else one that passes every signal on.
enum class Tracer { kNone, kDebugger, kOther };

template <typename Prepare>
ErrorOfChild ReportErrorInAChild(Tracer tracer, const std::string& text, Prepare prepare)
{
    constexpr int kCannotTrace = 99;
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        if (tracer != Tracer::kNone && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(kCannotTrace);
        }
        prepare();
        DebugOutputCallHandler("source/File", 12, "", kDbgError, 0xAB12CD34, text.c_str(), 0);
        _exit(0);
    }
    close(ends[1]);
    ErrorOfChild got = {};
    while (waitpid(child, &got.status, 0) == child && WIFSTOPPED(got.status)) {
        got.stopped |= WSTOPSIG(got.status) == SIGTRAP;
        const intptr_t passedOn = tracer == Tracer::kOther ? WSTOPSIG(got.status) : 0;
        ptrace(PTRACE_CONT, child, nullptr, passedOn);
    }
    char bytes[1024];
    const ssize_t size = read(ends[0], bytes, sizeof bytes);
    close(ends[0]);
    got.written.assign(bytes, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return got;
}

TEST(DebugOutput, AnErrorBreaksIntoADebuggerAndSurvivesOtherTracers)
{
    const std::string text(300, 'z');
    const std::string shown = ("ERR ab12cd34: source/File(12): " + text).substr(0, 255) + "\n";
    const auto nothing = [] {};
    const auto block = [] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
    };
    const auto looksTraced = [] { prctl(PR_SET_NAME, "TracerPid:\t7"); };
    const struct {
        Tracer tracer;
        std::function<void()> prepare;
        std::string written;
    } kRows[] = {
        {Tracer::kDebugger, nothing, shown}, {Tracer::kDebugger, block, shown}, {Tracer::kOther, nothing, shown},
        {Tracer::kOther, block, shown},      {Tracer::kNone, nothing, ""},      {Tracer::kNone, looksTraced, ""},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE("row " + std::to_string(&row - kRows));
        const ErrorOfChild got = ReportErrorInAChild(row.tracer, text, row.prepare);
        if (WIFEXITED(got.status) && WEXITSTATUS(got.status) == 99) {
            GTEST_SKIP() << "tracing is not allowed here";
        }
        EXPECT_EQ(got.status, 0);
        EXPECT_EQ(got.stopped, row.tracer != Tracer::kNone);
        EXPECT_EQ(got.written, row.written);
    }
}

}  // namespace

// The linker puts this in the place of the library's calls, so that a test can come between.
extern "C" {
int __real_dl_iterate_phdr(int (*visit)(dl_phdr_info*, size_t, void*), void* data);
int __wrap_dl_iterate_phdr(int (*visit)(dl_phdr_info*, size_t, void*), void* data)
{
    if (gClashesInLookUp.exchange(false)) {
        ClashInLookUp();
    }
    return __real_dl_iterate_phdr(visit, data);
}
}
