#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "HandleCalls.h"
#include "Report.h"

using kz::MemZone;
using kz::MemZoneRec;

constinit std::atomic<MemEventTraceProc> gMemEventTraceProc{nullptr};
constinit std::atomic<KzBool> gMemoryDebugger{0};
constinit std::atomic<KzBool> gStressHandles{0};
constinit std::atomic<KzBool> gMemoryInited{0};

namespace {

constexpr char kModule[] = "source/MemorySettings";

constexpr uInt32 kCheckAll = 2;
constexpr uInt32 kCheckSettingUnread = 3;  // until the environment is read; acts as kCheckAll

void IgnoreMemFull(unsigned long /*size*/) {}

constinit std::atomic<MemFullProc> gMemFullProc{&IgnoreMemFull};
constinit std::atomic<bool> gWalkMemory{false};

// Kept for their setters' sake.
constinit std::atomic<KzBool> gCheckHighWaterMarks{0};
constinit std::atomic<MemMutexAccessProc> gLogMemMutexAccessProc{nullptr};

uInt32 HandleCheckingOf(const char* setting)
{
    const auto is = [setting](const char* text) { return std::strcmp(setting, text) == 0; };
    if (setting == nullptr) {
        return kCheckAll;
    }
    if (is("resize") || is("1")) {
        return 1;
    }
    return is("") || is("off") || is("none") || is("0") ? 0 : kCheckAll;
}

}  // namespace

namespace kz {

constinit std::atomic<uInt32> gHandleChecking{kCheckSettingUnread};

void WalkMemoryAtEachCall(bool walk)
{
    gWalkMemory.store(walk, std::memory_order_relaxed);
}

bool IsWalkingMemory()
{
    return gWalkMemory.load(std::memory_order_relaxed);
}

}  // namespace kz

namespace {

// A level that load-time code of the host has set before stays.
bool ReadHandleChecking()
{
    uInt32 unread = kCheckSettingUnread;
    return kz::gHandleChecking.compare_exchange_strong(unread, HandleCheckingOf(std::getenv("ZVHandleCheck")));
}
[[maybe_unused]] const bool gHandleCheckingRead = ReadHandleChecking();

}  // namespace

extern "C" {

MemFullProc SetMemFullProc(MemFullProc proc)
{
    return gMemFullProc.exchange(proc == nullptr ? &IgnoreMemFull : proc);
}

void CallSetMemFullProc(unsigned long size)
{
    gMemFullProc.load()(size);
}

MemEventTraceProc SetMemEventTraceProc(MemEventTraceProc proc)
{
    return gMemEventTraceProc.exchange(proc);
}

void SetStressHandles(KzBool flag)
{
    gStressHandles.store(flag, std::memory_order_relaxed);
}

KzBool GetStressHandles(void)
{
    return gStressHandles.load(std::memory_order_relaxed);
}

void SetMemoryDebugger(KzBool flag)
{
    gMemoryDebugger.store(flag, std::memory_order_relaxed);
}

KzBool ToggleMemoryDebugging(void)
{
    const bool turnsOn = gMemoryDebugger.load(std::memory_order_relaxed) == 0;
    KZ_LOG(kDbgLog) << "turning memory checking " << (turnsOn ? "on" : "off");
    gMemoryDebugger.store(turnsOn, std::memory_order_relaxed);
    return turnsOn;
}

uInt32 DSSetHandleChecking(uInt32 level)
{
    const uInt32 set = std::min(level, kCheckAll);
    kz::gHandleChecking.store(set, std::memory_order_relaxed);
    return set;
}

KzBool GetMemoryManagerInitialized(void)
{
    return gMemoryInited.load(std::memory_order_relaxed);
}

void DSReadCounters(uInt64* counters)
{
    if (counters == nullptr) {
        return;
    }
    uInt32 values[kz::kNumMemoryCounters] = {};
    if (const MemZoneRec* zone = MemZone()) {
        for (int i = 0; i < kz::kNumMemoryCounters; ++i) {
            values[i] = zone->counters[i].load(std::memory_order_relaxed);
        }
    }
    std::memcpy(counters, values, sizeof values);
}

void DSSetCounters(const uInt64* counters)
{
    MemZoneRec* const zone = MemZone();
    if (counters == nullptr || zone == nullptr) {
        return;
    }
    uInt32 values[kz::kNumMemoryCounters];
    std::memcpy(values, counters, sizeof values);
    for (int i = 0; i < kz::kNumMemoryCounters; ++i) {
        zone->counters[i].store(values[i], std::memory_order_relaxed);
    }
}

void SetCheckHighWaterMarks(KzBool flag)
{
    gCheckHighWaterMarks.store(flag, std::memory_order_relaxed);
}

void SetLogMemMutexAccessProc(MemMutexAccessProc proc)
{
    gLogMemMutexAccessProc.store(proc, std::memory_order_relaxed);
}

void MemResetTracker(void) {}
void MemDumpTracker(void) {}
void StartScopedAllocationTracking(void) {}
void StopScopedAllocationTracking(void) {}
void FreeSmartHeapPool(void) {}
void SetMergeAdjVirtualAllocs(KzBool /*flag*/) {}

}  // extern "C"
