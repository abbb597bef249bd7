#include "DebugStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <random>
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

constexpr char kModule[] = "tests/DebugStream";
constexpr int kPoolSize = 16;
constexpr uInt32 kDevelopment = 0x01002000;

std::string FailedCheckouts(int count)
{
    return std::to_string(count) +
           " failed checkouts in CheckOutDebugStreamBuffer, which forced us to malloc the "
           "debugstream buffer. Talk to Dorin Vask.";
}

class OpenStream {
public:
    explicit OpenStream(std::string text) : mText(std::move(text)) { mStream.Append(mText.c_str()); }
    ~OpenStream() { mStream.Process(); }
    OpenStream(const OpenStream&) = delete;
    OpenStream& operator=(const OpenStream&) = delete;
    const std::string& Text() const { return mText; }

private:
    const std::string mText;
    DebugStream mStream{"OpenStream", 1, "", kDbgLog};
};

// Opens a stream that finds no buffer.
__attribute__((noinline)) void OpenStreamThatClashes()
{
    DebugStream stream("clash", 1, "", kDbgLog);
    stream.Append("clash");
    stream.Process();
}

// A host of a given stage, and a folder of its own to write a clash file to.
class PoolTest : public testing::Test {
protected:
    PoolTest() : mOldFolder(std::filesystem::current_path())
    {
        std::filesystem::current_path(mFolder.File(""));
        mHost.editorVersion = kDevelopment;
        KZAppInterfaceSet(&mHost);
    }
    ~PoolTest() override
    {
        KZAppInterfaceSet(nullptr);
        std::filesystem::current_path(mOldFolder);
    }

    std::string ClashText() const { return kztest::ReadWholeFile(mFolder.File("DebugStreamClash.txt")); }

    // Runs `clash` while the service runs and all buffers are taken, then stops the service, which tells how many
    // streams found none. Returns what else was reported, apart from the streams that took the buffers.
    template <typename Clash>
    static std::vector<std::string> InFullPool(int failedCheckouts, Clash clash)
    {
        ReportCatcher catcher;
        EXPECT_EQ(DebugStreamService()->Init(), 0);
        {
            std::list<OpenStream> streams;
            for (int i = 0; i < kPoolSize; ++i) {
                streams.emplace_back("full");
            }
            clash();
        }
        EXPECT_EQ(DebugStreamService()->Uninit(), 0);
        EXPECT_TRUE(catcher.Take(kDbgWarning, FailedCheckouts(failedCheckouts)));
        std::vector<std::string> texts;
        for (const CaughtReport& report : catcher.TakeAll()) {
            if (report.text != "full") {
                texts.push_back(report.text);
            }
        }
        return texts;
    }

    kztest::TestHost mHost;
    kztest::TempFolder mFolder;

private:
    std::filesystem::path mOldFolder;
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

TEST(DebugStream, AReportCarriesItsPlaceLevelAndHash)
{
    ReportCatcher catcher;
    const int line = __LINE__ + 1;
    KZ_REPORT(kDbgError, 0x51C0A3F7) << "count " << 3 << " of " << 4u;
    KZ_LOG(kDbgInternal) << "note";
    const std::vector<CaughtReport> reports = catcher.TakeAll();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].file, kModule);
    EXPECT_EQ(reports[0].line, line);
    EXPECT_EQ(reports[0].level, kDbgError);
    EXPECT_EQ(reports[0].hash, 0x51C0A3F7u);
    EXPECT_EQ(reports[0].text, "count 3 of 4");
    EXPECT_EQ(reports[1].hash, 0u);
    EXPECT_EQ(StopHere("the place"), 0);
    EXPECT_EQ(StopHere(nullptr), 0);
    EXPECT_EQ(catcher.TakeRows(), (kztest::ReportRows{{kDbgLog, "StopHere: the place"}, {kDbgLog, "StopHere: "}}));
}

// Streams open and end in any order while the service starts and stops. One that took a buffer keeps it to its end.
TEST_F(PoolTest, FollowsItsModel)
{
    struct Open {
        std::unique_ptr<OpenStream> stream;
        bool isPooled;
    };
    mHost.editorVersion = kztest::TestHost().editorVersion;
    std::mt19937 random(1);
    ReportCatcher catcher;
    std::vector<Open> streams;
    bool isRunning = false;
    int taken = 0;
    int failed = 0;
    for (int step = 0; step < 20'000; ++step) {
        const bool fills = step / 100 % 2 == 0;
        if (random() % 30 == 0) {
            EXPECT_EQ(isRunning ? DebugStreamService()->Uninit() : DebugStreamService()->Init(), 0);
            EXPECT_EQ(catcher.Take(kDbgWarning, FailedCheckouts(failed)), isRunning && failed > 0);
            isRunning = !isRunning;
            failed = isRunning ? 0 : failed;
        } else if (random() % 5 < (fills ? 3 : 2)) {
            const bool isPooled = isRunning && taken < kPoolSize;
            streams.push_back({std::make_unique<OpenStream>(std::to_string(step)), isPooled});
            taken += isPooled;
            failed += isRunning && !isPooled;
            EXPECT_NE(KZSingleton_T<DebugStream_Service>::M_instPtr.load(), nullptr) << "a stream makes the object";
        } else if (!streams.empty()) {
            std::swap(streams[random() % streams.size()], streams.back());
            const std::string text = streams.back().stream->Text();
            taken -= streams.back().isPooled;
            streams.pop_back();
            EXPECT_TRUE(catcher.Take(kDbgLog, text)) << text;
        }
        ASSERT_EQ(kz::IsDebugStreamPoolOpen(), isRunning) << step;
        ASSERT_EQ(kz::FailedDebugStreamCheckouts(), failed) << step;
        ASSERT_TRUE(catcher.TakeAll().empty()) << step;
    }
    streams.clear();
    if (isRunning) {
        EXPECT_EQ(DebugStreamService()->Uninit(), 0);
    }
    catcher.TakeAll();
}

TEST_F(PoolTest, AClashLogsTheStackOfWhoReported)
{
    mHost.editorVersion = kztest::TestHost().editorVersion;
    EXPECT_EQ(InFullPool(1, OpenStreamThatClashes), std::vector<std::string>{"clash"})
        << "it has a buffer all the same";
    EXPECT_FALSE(std::filesystem::exists("DebugStreamClash.txt")) << "a release host writes none";

    mHost.editorVersion = kDevelopment;
    const std::regex head("=== DebugStream CLASH failedCheckoutCount=[12] thread=0x[0-9a-f]{8,}");
    const std::regex frame("0x[0-9a-f]{8,} - \\S+ \\+ 0x[0-9a-f]+");
    for (const bool isWritten : {false, true}) {  // the first clash after a start writes the file anew
        InFullPool(2, [&] {
            EXPECT_EQ(std::filesystem::exists("DebugStreamClash.txt"), isWritten);
            OpenStreamThatClashes();
            OpenStreamThatClashes();
        });
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
    InFullPool(2, [&] {
        std::filesystem::create_directory(file);
        OpenStreamThatClashes();
        std::filesystem::remove(file);
        std::ofstream(file) << "of an earlier run";
        OpenStreamThatClashes();
    });
    EXPECT_EQ(ClashText().substr(0, 4), "=== ");

    // A process without an input has descriptor 0 for the file.
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    InFullPool(1, OpenStreamThatClashes);
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_NE(ClashText().find("failedCheckoutCount=1 "), std::string::npos);
    EXPECT_EQ(ClashText().find("failedCheckoutCount=2 "), std::string::npos);
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
    InFullPool(2, [] {
        gOtherClashEnded = false;
        gClashesInLookUp = true;
        OpenStreamThatClashes();
        ASSERT_TRUE(gOtherClash.valid());
        gOtherClash.wait();
    });
    EXPECT_TRUE(gOtherClashEnded);
}

// Every first clash after a start empties the file, and what other threads wrote meanwhile is in it all the same.
TEST_F(PoolTest, ClashesOfSeveralThreadsAreAllLogged)
{
    constexpr int kThreads = 8;
    constexpr int kClashes = 3;
    for (int run = 0; run < 10; ++run) {
        InFullPool(kThreads * kClashes, [] {
            std::vector<std::thread> threads(kThreads);
            for (std::thread& thread : threads) {
                thread = std::thread([] {
                    for (int i = 0; i < kClashes; ++i) {
                        OpenStreamThatClashes();
                    }
                });
            }
            std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
        });
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
    for (const uInt32 version : {kDevelopment, kztest::TestHost().editorVersion}) {
        host.editorVersion = version;
        const auto clashTwice = [] {
            OpenStreamThatClashes();
            OpenStreamThatClashes();
        };
        EXPECT_EQ(InFullPool(4, clashTwice), (std::vector<std::string>{"asked", "clash", "asked", "clash"}));
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
        EXPECT_EQ(DebugStreamService()->Init(), 0);
        std::this_thread::yield();
        EXPECT_EQ(DebugStreamService()->Uninit(), 0);
    }
    std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
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
    for (int32 level = -1; level <= kDbgFatal + 1; ++level) {
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
    DebugOutputIncrementEventCount(-1);
    DebugOutputIncrementEventCount(5);
    EXPECT_EQ(Counts(), (std::vector<int32>{0, 2, 1, 1, 1, 1, 0})) << "-1 and 5 are no levels";
    DebugOutputResetNumEvents();
    {
        ReportCatcher catcher;
        KZ_REPORT(kDbgFatal, 0x3A86D07C) << "no stop with a handler";
        EXPECT_TRUE(catcher.Take(kDbgFatal, "no stop"));
    }
    EXPECT_EQ(Counts(), std::vector<int32>(7));
    DebugOutputSetHandler(&CountingHandler);
    KZ_LOG(kDbgInternal) << "counted by the handler";
    DebugOutputSetHandler(&ReportingHandler);
    KZ_LOG(kDbgLog) << "outer";
    DebugOutputSetHandler(nullptr);
    EXPECT_EQ(Counts(), (std::vector<int32>{0, 0, 1, 0, 0, 0, 0}));
    DebugOutputResetNumEvents();
}

// What becomes of a child that reports without a handler.
struct ChildsEnd {
    std::string written;  // to stderr
    bool stopped;         // by the trap, of which its tracer was told
    int status;           // at its end
};

// The tracer is a debugger, or else one that passes every signal on.
enum class Tracer { kNone, kDebugger, kOther };

constexpr int kCannotTrace = 99;

ChildsEnd ReportInAChild(Tracer tracer, const std::function<void()>& report)
{
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        const rlimit noCore = {0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        dup2(ends[1], STDERR_FILENO);
        if (tracer != Tracer::kNone && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(kCannotTrace);
        }
        report();
        _exit(0);
    }
    close(ends[1]);
    ChildsEnd got = {};
    while (waitpid(child, &got.status, 0) == child && WIFSTOPPED(got.status)) {
        got.stopped |= WSTOPSIG(got.status) == SIGTRAP;
        const intptr_t passedOn = tracer == Tracer::kOther ? WSTOPSIG(got.status) : 0;
        ptrace(PTRACE_CONT, child, nullptr, passedOn);
    }
    char bytes[4096];
    const ssize_t size = read(ends[0], bytes, sizeof bytes);
    close(ends[0]);
    got.written.assign(bytes, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return got;
}

TEST(DebugOutput, AnErrorBreaksIntoADebuggerAndLevelFourStopsTheProcess)
{
    ASSERT_EQ(DebugOutputGetHandler(), nullptr);
    const std::string text(400, 'z');
    const auto error = [&] { DebugOutputCallHandler("source/File", 12, "", kDbgError, 0xAB12CD34, text.c_str(), 0); };
    const auto blocked = [&] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        error();
    };
    const auto looksTraced = [&] {
        prctl(PR_SET_NAME, "TracerPid:\t7");
        error();
    };
    const auto fatal = [] {
        KZ_REPORT(kDbgFatal, 0x48E5B913) << "the\nend\x7F"
                                         << " of " << 3;
    };
    const auto empty = [] { DebugOutputCallHandler(nullptr, 1, "", kDbgFatal, 0, nullptr, 0); };
    const auto longest = [&] { DebugOutputCallHandler(text.c_str(), 1, "", kDbgFatal, 0, text.c_str(), 0); };
    const auto toNobody = [] {
        int ends[2];
        if (pipe(ends) == 0 && dup2(ends[1], STDERR_FILENO) >= 0 && close(ends[0]) == 0) {
            DebugOutputCallHandler("", 1, "", kDbgFatal, 0, "", 0);
        }
    };
    const std::string shown = "ERR ab12cd34: source/File\\(12\\): z{224}\n";
    const std::string why = "kzcore: report of level 4 at ";
    const std::string callers = "; called from( 0x[0-9a-f]+){5,16}\n";
    const struct {
        Tracer tracer;
        std::function<void()> report;
        std::string written;
        bool survives;
    } kRows[] = {
        {Tracer::kNone, error, "", true},
        {Tracer::kNone, looksTraced, "", true},
        {Tracer::kNone, fatal, why + "tests/DebugStream\\([0-9]+\\): the end  of 3" + callers, false},
        {Tracer::kNone, empty, why + "\\(1\\): no text" + callers, false},
        {Tracer::kNone, longest, why + "z{300}\\(1\\): z{300}" + callers, false},
        {Tracer::kNone, toNobody, "", false},
        {Tracer::kDebugger, error, shown, true},
        {Tracer::kDebugger, blocked, shown, true},
        {Tracer::kOther, error, shown, true},
        {Tracer::kOther, blocked, shown, true},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE("row " + std::to_string(&row - kRows));
        const ChildsEnd got = ReportInAChild(row.tracer, row.report);
        if (WIFEXITED(got.status) && WEXITSTATUS(got.status) == kCannotTrace) {
            GTEST_SKIP() << "tracing is not allowed here";
        }
        EXPECT_EQ(WIFSIGNALED(got.status), !row.survives);
        EXPECT_TRUE(row.survives ? got.status == 0 : WTERMSIG(got.status) != SIGPIPE);
        EXPECT_EQ(got.stopped, row.tracer != Tracer::kNone);
        EXPECT_TRUE(std::regex_match(got.written, std::regex(row.written))) << got.written;
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
