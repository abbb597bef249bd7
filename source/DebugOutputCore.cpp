#include "DebugOutputCore.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "PlatformDebugger.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/DebugOutputCore";
constexpr int32 kNumLevels = kDbgFatal + 1;

// Acquire and release, so that a reporting thread sees what the host prepared for its handler.
constinit std::atomic<DebugOutputHandler> gHandler{nullptr};

// Counters that nothing else hangs on: relaxed.
constinit std::atomic<int32> gNumEvents[kNumLevels] = {};
static_assert(std::atomic<int32>::is_always_lock_free && std::atomic<DebugOutputHandler>::is_always_lock_free);

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

[[noreturn]] void DebugOutputCoreDie()
{
    kz::StopProcess();
}

}  // namespace

void DebugOutputSetHandler(DebugOutputHandler handler)
{
    gHandler.store(handler, std::memory_order_release);
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
        handler(file, line, versionId, level, hash, text, extra);
        return;
    }
    DebugOutputIncrementEventCount(level);
    if (level > kDbgWarning) {
        char message[1024];
        std::snprintf(message, sizeof message, "ERR %lx: %s(%d): %s", static_cast<unsigned long>(hash),
                      TextOrEmpty(file), line, TextOrEmpty(text));
        DebugOutputCoreBreak(message);
    }
    if (level == kDbgFatal) {
        DebugOutputCoreDie();
    }
}

int32 StopHere(const char* text)
{
    DebugOutputCoreBreak(text);
    KZ_LOG(kDbgLog) << "StopHere: " << text;
    return 0;
}

void DumpSomeMemory(unsigned char* /*memory*/, long /*size*/) {}
