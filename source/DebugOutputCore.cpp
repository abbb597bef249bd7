// A report comes from anywhere: a signal handler, a thread that holds any lock, load-time code, a heap that is damaged.
// So nothing here takes memory or a lock, all state is a few atomics and a count of the thread's own, and every text is
// built in a buffer of fixed size on the stack.
#include "DebugOutputCore.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "BoundedText.h"
#include "KZVersion.h"
#include "KzAssert.h"
#include "PlatformDebugger.h"
#include "StackChain.h"

namespace {

constexpr char kModule[] = "source/DebugOutputCore";
constexpr int32 kNumLevels = kDbgFatal + 1;

// Acquire and release, so that a reporting thread sees what the host prepared for its handler.
constinit std::atomic<DebugOutputHandler> gHandler{nullptr};

// Counters that nothing else hangs on: relaxed.
constinit std::atomic<int32> gNumEvents[kNumLevels] = {};
static_assert(std::atomic<int32>::is_always_lock_free && std::atomic<DebugOutputHandler>::is_always_lock_free);

// How deep this thread is in calls of the handler. A handler that reports whatever it is called for would go on until
// the stack ends; half the pool is more than those that report for a reason need.
constexpr int kMostHandlers = 8;
constinit thread_local int tHandlersRunning __attribute__((tls_model("initial-exec"))) = 0;

class RunningHandler {
public:
    RunningHandler() { ++tHandlersRunning; }
    ~RunningHandler() { --tHandlersRunning; }
    RunningHandler(const RunningHandler&) = delete;
    RunningHandler& operator=(const RunningHandler&) = delete;
};

constexpr bool IsLevel(int32 level)
{
    return level >= 0 && level < kNumLevels;
}

constexpr const char* TextOrEmpty(const char* text)
{
    return text != nullptr ? text : "";
}

// Shows the first 255 characters to an attached debugger, and breaks into it.
void DebugOutputCoreBreak(const char* text)
{
    constexpr size_t kMaxLength = 255;
    unsigned char pascal[kMaxLength + 1];
    const size_t length = strnlen(TextOrEmpty(text), kMaxLength);
    pascal[0] = static_cast<unsigned char>(length);
    std::copy_n(TextOrEmpty(text), length, pascal + 1);
    kz::DebugStr(pascal);
}

// What a debugger shows of a report, in one line that names the place.
void BreakOnError(const char* file, int32 line, uInt32 hash, const char* text)
{
    char message[1024];
    kz::BoundedText rest(message, sizeof message);
    rest.Append("ERR ");
    rest.AppendInteger(hash, 16);
    rest.Append(": ");
    rest.Append(file);
    rest.Append("(");
    rest.AppendInteger(line);
    rest.Append("): ");
    rest.Append(text);
    DebugOutputCoreBreak(message);
}

// Appends so much of `text` that the call chain has room behind it, with a blank for each control character, since the
// whole is one line.
void AppendOnOneLine(kz::BoundedText& rest, const char* text)
{
    constexpr size_t kMaxLength = 300;
    constexpr unsigned char kDelete = 127;
    const size_t length = strnlen(TextOrEmpty(text), kMaxLength);
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const char* const shown = byte < ' ' || byte == kDelete ? " " : text + i;
        rest.Append(shown, shown + 1);
    }
}

// Says on stderr why the process stops, or what its handler is not told. Nothing here allocates, locks or waits for a
// thread: the defect may be anywhere.
void TellWhyOnStderr(const char* file, int32 line, int32 level, const char* text)
{
    constexpr int kEntries = 16;
    constexpr size_t kTextRoom = 700;
    constexpr size_t kEntryRoom = sizeof " 0x" + 2 * sizeof(void*);
    char message[kTextRoom + kEntries * kEntryRoom];
    kz::BoundedText rest(message, sizeof message);
    rest.Append("kzcore: report of level ");
    rest.AppendInteger(level);
    rest.Append(" at ");
    AppendOnOneLine(rest, file);
    rest.Append("(");
    rest.AppendInteger(line);
    rest.Append("): ");
    AppendOnOneLine(rest, *TextOrEmpty(text) != '\0' ? text : "no text");
    rest.Append("; called from");
    StackChainFS<kEntries> chain;
    chain.Record(0);
    for (long i = 0; i < chain.GetCount(); ++i) {
        rest.Append(" 0x");
        rest.AppendInteger(reinterpret_cast<uintptr_t>(chain.GetBuffer()[i]), 16);
    }
    rest.Append("\n");
    kz::WriteToStderr(message, sizeof message - 1 - rest.Room());
}

// The least level that the ready handler writes.
constinit std::atomic<int32> gStderrLevel{kDbgLog};

// The ready handler. One write for each line, so that those of other threads stand before or behind it.
extern "C" void WriteReportToStderr(const char* file, int32 line, const char* /*versionId*/, int32 level,
                                    uInt32 /*hash*/, const char* text, uInt64 /*extra*/)
{
    DebugOutputIncrementEventCount(level);
    if (level < gStderrLevel.load(std::memory_order_relaxed)) {
        return;
    }
    char message[700];
    kz::BoundedText rest(message, sizeof message);
    AppendOnOneLine(rest, file);
    rest.Append("(");
    rest.AppendInteger(line);
    rest.Append("): level ");
    rest.AppendInteger(level);
    rest.Append(": ");
    AppendOnOneLine(rest, text);
    rest.Append("\n");
    kz::WriteToStderr(message, sizeof message - 1 - rest.Room());
}

[[noreturn]] void DebugOutputCoreDie()
{
    kz::StopProcess();
}

}  // namespace

void DebugOutputSetHandler(DebugOutputHandler handler)
{
    gHandler.store(handler, std::memory_order_release);
}

void DebugOutputToStderr(int32 level)
{
    gStderrLevel.store(level, std::memory_order_relaxed);
    DebugOutputSetHandler(&WriteReportToStderr);
}

DebugOutputHandler DebugOutputGetHandler(void)
{
    return gHandler.load(std::memory_order_acquire);
}

int32 DebugOutputGetNumEvents(int32 level)
{
    return IsLevel(level) ? gNumEvents[level].load(std::memory_order_relaxed) : 0;
}

void DebugOutputIncrementEventCount(int32 level)
{
    if (IsLevel(level)) {
        gNumEvents[level].fetch_add(1, std::memory_order_relaxed);
    }
}

void DebugOutputResetNumEvents(void)
{
    for (std::atomic<int32>& count : gNumEvents) {
        count.store(0, std::memory_order_relaxed);
    }
}

void DebugOutputCallHandler(const char* file, int32 line, const char* versionId, int32 level, uInt32 hash,
                            const char* text, uInt64 extra)
{
    if (const DebugOutputHandler handler = DebugOutputGetHandler(); handler != nullptr) {
        KZ_ASSERT(tHandlersRunning >= 0 && tHandlersRunning <= kMostHandlers);
        // Not handed on and not fatal, because the process works: it is its handler that reports without end.
        if (tHandlersRunning == kMostHandlers) {
            DebugOutputIncrementEventCount(level);
            if (level == kDbgFatal) {
                TellWhyOnStderr(file, line, level, text);
            }
            return;
        }
        const RunningHandler running;
        handler(file, line, versionId, level, hash, text, extra);
        return;
    }
    DebugOutputIncrementEventCount(level);
    if (level > kDbgWarning) {
        BreakOnError(file, line, hash, text);
    }
    if (level == kDbgFatal) {
        TellWhyOnStderr(file, line, level, text);
        DebugOutputCoreDie();
    }
}

int32 StopHere(const char* text)
{
    DebugOutputCoreBreak(text);
    char report[256];
    kz::BoundedText rest(report, sizeof report);
    rest.Append("StopHere: ");
    rest.Append(text);
    DebugOutputCallHandler(kModule, __LINE__, KZCORE_VERSION_ID, kDbgLog, 0, report, 0);
    return 0;
}

void DumpSomeMemory(unsigned char* /*memory*/, long /*size*/) {}
