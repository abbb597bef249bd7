#include "DebugStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <random>
#include <set>
#include <thread>

#include "DebugStreamPool.h"
#include "DebugStreamService.h"
#include "Racing.h"
#include "Report.h"
#include "StreamText.h"
#include "TempFolder.h"

namespace {

using kztest::CaughtReport;
using kztest::ReportCatcher;
using kztest::StreamText;

constexpr char kModule[] = "tests/DebugStream";
constexpr char kClashFile[] = "DebugStreamClash.txt";
constexpr int kPoolSize = 16;
constexpr uInt32 kDevelopment = 0x01002000;
constexpr uInt32 kRelease = 0x01008000;

bool Matches(const std::string& text, const std::string& pattern)
{
    return testing::Matcher<const std::string&>(testing::MatchesRegex(pattern)).Matches(text);
}

std::string FailedCheckouts(int count)
{
    return std::to_string(count) +
           " failed checkouts in CheckOutDebugStreamBuffer, which forced us to malloc the "
           "debugstream buffer. Talk to Dorin Vask.";
}

// A stream that is sent at its end.
struct OpenStream {
    explicit OpenStream(std::string sent = "full", bool pooled = true) : text(std::move(sent)), isPooled(pooled)
    {
        stream.Append(text.c_str());
    }
    ~OpenStream() { stream.Process(); }
    OpenStream(const OpenStream&) = delete;
    OpenStream& operator=(const OpenStream&) = delete;

    const std::string text;
    const bool isPooled;  // says the model
    DebugStream stream{"OpenStream", 1, "", kDbgLog};
};

// Opens a stream that finds no buffer.
__attribute__((noinline)) void OpenStreamThatClashes()
{
    DebugStream stream("clash", 1, "", kDbgLog);
    stream.Append("clash");
    stream.Process();
}

void ClashTwice()
{
    OpenStreamThatClashes();
    OpenStreamThatClashes();
}

// Reports when it is asked, if it is to, as one that reads its version from a file may.
class Host : public kztest::TestHost {
public:
    uInt32 GetAppEditorVersion() override
    {
        if (reports) {
            KZ_LOG(kDbgLog) << "asked";
        }
        return editorVersion;
    }

    bool reports = false;
};

// A host of a given stage, and a folder of its own to write a clash file to.
class PoolTest : public testing::Test {
protected:
    using Numbers = std::multiset<int>;

    PoolTest()
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

    // The numbers of the entries in the clash file, each of which must be whole.
    Numbers Logged() const
    {
        const std::string head = "=== DebugStream CLASH failedCheckoutCount=";
        const std::string pattern = head +
                                    "[0-9]+ thread=0x[0-9a-f]{8,}\n0x[0-9a-f]{8,} - [^ ]*OpenStreamThatClashes[^ ]* "
                                    "\\+ 0x[0-9a-f]+\n(0x[0-9a-f]{8,} - [^ ]+ \\+ 0x[0-9a-f]+\n)+\n";
        Numbers numbers;
        for (std::string text = kztest::ReadWholeFile(mFolder.File(kClashFile)); !text.empty();) {
            const std::string entry = text.substr(0, std::min(text.find("\n\n"), text.size() - 2) + 2);
            EXPECT_TRUE(Matches(entry, pattern)) << entry;
            numbers.insert(std::atoi(entry.c_str() + head.size()));
            text.erase(0, entry.size());
        }
        return numbers;
    }

    // Runs `clash` while the service runs and all buffers are taken, then stops the service, which tells how many
    // streams found none. Returns what else was reported, apart from the streams that took the buffers.
    template <typename Clash>
    static std::string InFullPool(int failedCheckouts, Clash clash)
    {
        ReportCatcher catcher;
        EXPECT_EQ(DebugStreamService()->Init(), 0);
        {
            const OpenStream streams[kPoolSize];
            clash();
        }
        EXPECT_EQ(DebugStreamService()->Uninit(), 0);
        EXPECT_TRUE(catcher.Take(kDbgWarning, FailedCheckouts(failedCheckouts)));
        std::string texts;
        for (const CaughtReport& report : catcher.TakeAll()) {
            texts += report.text == "full" ? "" : report.text + " ";
        }
        return texts;
    }

    Host mHost;
    kztest::TempFolder mFolder;

private:
    const std::filesystem::path mOldFolder = std::filesystem::current_path();
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
    const auto part = [](const char* from, const char* to) {
        return StreamText([&](DebugStream& stream) { stream.Append(from, to); });
    };
    EXPECT_EQ(part(text + 1, text + 3) + part(text, text) + part(text, nullptr) + part(nullptr, text), "bc");
}

TEST(DebugStream, AReportCarriesItsPlaceLevelAndHash)
{
    ReportCatcher catcher;
    const int line = __LINE__ + 1;
    KZ_REPORT(kDbgError, 0x51C0A3F7) << "count " << 3 << " of " << 4u;
    KZ_LOG(kDbgInternal) << "note";
    EXPECT_EQ(catcher.TakeAll(), (std::vector<CaughtReport>{{kModule, line, kDbgError, 0x51C0A3F7, "count 3 of 4"},
                                                            {kModule, line + 1, kDbgInternal, 0, "note"}}));
    DebugStream twice(kModule, 1, nullptr, kDbgWarning);
    twice.Append("once");
    twice.Process();
    DebugStream next(kModule, 2, nullptr, kDbgWarning);  // may have the buffer
    next.Append("next");
    twice.Append("more");
    twice.Process();
    next.Process();
    EXPECT_EQ(catcher.TakeRows(),
              (kztest::ReportRows{{kDbgWarning, "once"}, {kDbgWarning, ""}, {kDbgWarning, "next"}}));
    EXPECT_EQ(StopHere("the place"), 0);
    EXPECT_EQ(StopHere(nullptr), 0);
    EXPECT_EQ(catcher.TakeRows(), (kztest::ReportRows{{kDbgLog, "StopHere: the place"}, {kDbgLog, "StopHere: "}}));
}

// Streams open and end in any order while the service starts and stops. One that took a buffer keeps it to its end.
TEST_F(PoolTest, FollowsItsModel)
{
    mHost.editorVersion = kRelease;
    std::mt19937 random(1);
    ReportCatcher catcher;
    std::vector<std::unique_ptr<OpenStream>> streams;
    bool isRunning = false;
    int taken = 0;
    int failed = kz::FailedDebugStreamCheckouts();  // of the last time that it ran
    for (int step = 0; step < 20'000; ++step) {
        const bool fills = step / 100 % 2 == 0;
        if (random() % 30 == 0) {
            EXPECT_EQ(isRunning ? DebugStreamService()->Uninit() : DebugStreamService()->Init(), 0);
            EXPECT_EQ(catcher.Take(kDbgWarning, FailedCheckouts(failed)), isRunning && failed > 0);
            isRunning = !isRunning;
            failed = isRunning ? 0 : failed;
        } else if (random() % 5 < (fills ? 3 : 2)) {
            const bool isPooled = isRunning && taken < kPoolSize;
            streams.push_back(std::make_unique<OpenStream>(std::to_string(step), isPooled));
            taken += isPooled;
            failed += isRunning && !isPooled;
            EXPECT_NE(KZSingleton_T<DebugStream_Service>::M_instPtr.load(), nullptr) << "a stream makes the object";
        } else if (!streams.empty()) {
            std::swap(streams[random() % streams.size()], streams.back());
            const std::string text = streams.back()->text;
            taken -= streams.back()->isPooled;
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

TEST_F(PoolTest, EachClashLogsTheStackOfWhoReportedAndTheFirstEmptiesTheFile)
{
    for (const bool reports : {true, false}) {  // on the host's answer, which is not asked for without end
        mHost.reports = reports;
        mHost.editorVersion = kRelease;
        std::filesystem::remove(kClashFile);
        EXPECT_EQ(InFullPool(reports ? 4 : 2, ClashTwice), reports ? "asked clash asked clash " : "clash clash ");
        EXPECT_FALSE(std::filesystem::exists(kClashFile)) << "a release host writes none";
        mHost.editorVersion = kDevelopment;
        EXPECT_EQ(InFullPool(reports ? 4 : 2, ClashTwice), reports ? "asked clash asked clash " : "clash clash ");
        EXPECT_EQ(Logged(), reports ? (Numbers{1, 3}) : (Numbers{1, 2}));
    }
    InFullPool(2, [this] {  // a file that can't be opened is emptied all the same once it can
        EXPECT_EQ(Logged(), (Numbers{1, 2})) << "as the start found it";
        std::filesystem::remove(kClashFile);
        std::filesystem::create_directory(kClashFile);
        OpenStreamThatClashes();
        std::filesystem::remove(kClashFile);
        mFolder.Write(kClashFile, "of an earlier run");
        OpenStreamThatClashes();
    });
    EXPECT_EQ(Logged(), Numbers{2});
    // A process without an input has descriptor 0 for the file.
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    InFullPool(1, OpenStreamThatClashes);
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(Logged(), Numbers{1});
}

std::atomic<bool> gClashesInLookUp{false};
std::future<void> gOtherClash;

// Another thread must get its entry into the file while this one looks up a name, because the look-up may wait for it.
void ClashInLookUp()
{
    gOtherClash = std::async(std::launch::async, &OpenStreamThatClashes);
    EXPECT_EQ(gOtherClash.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(PoolTest, NamesAreLookedUpOutsideTheLockOfTheFile)
{
    InFullPool(2, [] {
        gClashesInLookUp = true;
        OpenStreamThatClashes();
        ASSERT_FALSE(gClashesInLookUp);
        gOtherClash.get();
    });
    EXPECT_EQ(Logged(), (Numbers{1, 2}));
}

// Every first clash after a start empties the file, and what other threads wrote meanwhile is in it all the same.
TEST_F(PoolTest, ClashesOfSeveralThreadsAreAllLogged)
{
    for (int run = 0; run < 10; ++run) {
        InFullPool(16, [] { kztest::Race(8, [](int) { ClashTwice(); }); });
        EXPECT_EQ(Logged(), (Numbers{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}));
    }
}

std::atomic<int> gTexts;

// A sound text is one digit, repeated.
void CheckText(const char*, int32, const char*, int32, uInt32, const char* text, uInt64)
{
    ++gTexts;
    EXPECT_EQ(text, std::string(200, *text));
}

TEST_F(PoolTest, ThreadsReportWhileTheServiceStartsAndStops)
{
    constexpr int kThreads = 8;
    constexpr int kReports = 2'000;
    gTexts = 0;
    DebugOutputSetHandler(&CheckText);
    std::atomic<int> running{kThreads};
    kztest::Race(kThreads + 1, [&running](int thread) {
        if (thread == kThreads) {
            while (running > 0) {
                EXPECT_EQ(DebugStreamService()->Init(), 0);
                std::this_thread::yield();
                EXPECT_EQ(DebugStreamService()->Uninit(), 0);
            }
            return;
        }
        for (int i = 0; i < kReports; ++i) {
            DebugStream stream("thread", i, "", kDbgLog);
            for (int c = 0; c < 200; ++c) {
                stream.Append(static_cast<char>('0' + thread));
            }
            stream.Process();
        }
        --running;
    });
    DebugOutputSetHandler(nullptr);
    EXPECT_EQ(gTexts, kThreads * kReports);
}

int gHandled;

void HandlerThatAlwaysReports(const char*, int32, const char*, int32 level, uInt32, const char*, uInt64)
{
    ++gHandled;
    DebugOutputCallHandler("source/Nested", gHandled, "", level, 0, "nested", 0);
}

std::vector<int32> TakeCounts()
{
    std::vector<int32> counts;
    for (int32 level = -1; level <= kDbgFatal + 1; ++level) {
        counts.push_back(DebugOutputGetNumEvents(level));
    }
    DebugOutputResetNumEvents();
    return counts;
}

TEST(DebugOutput, ToStderrWritesReportsFromItsLevelOn)
{
    const std::string longText(400, 'x');
    for (const auto& [least, written] : std::initializer_list<std::pair<int32, std::string>>{
             {-1, "01234"}, {kDbgLog, "01234"}, {kDbgWarning, "234"}, {kDbgFatal, "4"}, {kDbgFatal + 1, ""}}) {
        DebugOutputResetNumEvents();
        testing::internal::CaptureStderr();
        DebugOutputToStderr(least);
        for (int32 level = kDbgLog; level <= kDbgFatal; ++level) {
            DebugOutputCallHandler("source/Some", 7, "", level, 1, "two\nlines", 0);
            DebugOutputCallHandler(nullptr, 8, nullptr, level, 1, level == kDbgFatal ? longText.c_str() : nullptr, 0);
        }
        std::string expected;
        for (const char digit : written) {
            expected += std::string("source/Some(7): level ") + digit + ": two lines\n(8): level " + digit + ": " +
                        (digit == '4' ? longText.substr(0, 300) : "") + "\n";
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), expected) << least;
        EXPECT_EQ(TakeCounts(), (std::vector<int32>{0, 2, 2, 2, 2, 2, 0})) << least;
    }
    DebugOutputSetHandler(nullptr);
}

TEST(DebugOutput, CountsWhatNoHandlerTakes)
{
    ASSERT_EQ(DebugOutputGetHandler(), nullptr);
    TakeCounts();
    for (const int32 level : {-1, 0, 0, 1, 2, 3, 4, 5}) {  // the first and the last are no levels
        if (level >= kDbgLog && level < kDbgFatal) {
            DebugOutputCallHandler("", 1, "", level, 0, "survived", 0);
        } else {
            DebugOutputIncrementEventCount(level);
        }
    }
    EXPECT_EQ(TakeCounts(), (std::vector<int32>{0, 2, 1, 1, 1, 1, 0}));
    // What is not handed on to a handler that reports without end.
    DebugOutputSetHandler(&HandlerThatAlwaysReports);
    const std::string told =
        "kzcore: report of level 4 at source/Nested\\(8\\): nested; called from( 0x[0-9a-f]+){5,16}\n";
    for (const int32 level : {0, 0, 1, 2, 3, 4}) {
        gHandled = 0;
        testing::internal::CaptureStderr();
        DebugOutputCallHandler("", 1, "", level, 0, "outer", 0);
        EXPECT_TRUE(Matches(testing::internal::GetCapturedStderr(), level == kDbgFatal ? told : "")) << level;
        EXPECT_EQ(gHandled, 8);
    }
    DebugOutputSetHandler(nullptr);
    EXPECT_EQ(TakeCounts(), (std::vector<int32>{0, 2, 1, 1, 1, 1, 0}));
}

// The tracer is a debugger, or else one that passes every signal on.
enum class Tracer { kNone, kDebugger, kOther };

// Reports in a child without a handler, which then writes what the pattern says to stderr. A tracer is told of a trap.
void ReportInAChild(Tracer tracer, const std::function<void()>& report, const std::string& pattern, bool survives)
{
    constexpr int kCannotTrace = 99;
    const kztest::TempFolder folder;
    const std::string file = folder.Write("stderr", "");
    const pid_t child = fork();
    if (child == 0) {
        const rlimit noCore = {0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        dup2(open(file.c_str(), O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        if (tracer != Tracer::kNone && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(kCannotTrace);
        }
        report();
        _exit(0);
    }
    int status = 0;
    bool isStopped = false;
    while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        isStopped |= WSTOPSIG(status) == SIGTRAP;
        const intptr_t passedOn = tracer == Tracer::kOther ? WSTOPSIG(status) : 0;
        ptrace(PTRACE_CONT, child, nullptr, passedOn);
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kCannotTrace) {
        GTEST_SKIP() << "tracing is not allowed here";
    }
    const std::string written = kztest::ReadWholeFile(file);
    EXPECT_TRUE(Matches(written, pattern)) << written << "is not as in " << pattern;
    EXPECT_EQ(WIFSIGNALED(status), !survives) << pattern;
    EXPECT_TRUE(survives ? status == 0 : WTERMSIG(status) != SIGPIPE) << pattern;
    EXPECT_EQ(isStopped, tracer != Tracer::kNone) << pattern;
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
    ReportInAChild(Tracer::kNone, error, "", true);
    ReportInAChild(Tracer::kNone, looksTraced, "", true);
    ReportInAChild(Tracer::kNone, fatal, why + "tests/DebugStream\\([0-9]+\\): the end  of 3" + callers, false);
    ReportInAChild(Tracer::kNone, empty, why + "\\(1\\): no text" + callers, false);
    ReportInAChild(Tracer::kNone, longest, why + "z{300}\\(1\\): z{300}" + callers, false);
    ReportInAChild(Tracer::kNone, toNobody, "", false);
    for (const Tracer tracer : {Tracer::kDebugger, Tracer::kOther}) {
        ReportInAChild(tracer, error, shown, true);
        ReportInAChild(tracer, blocked, shown, true);
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
