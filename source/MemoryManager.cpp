// The exported calls on handles and on their settings, a line or two each above HandleCalls and MemorySettings, and the
// service that starts and stops the handles.
//
// The service's start shows the zone before its lock exists: nobody else makes handles yet, and a null lock is nothing
// to hold. Its stop hides the zone only after all handles are disposed, because each disposal is that of a handle in
// use.
#include "MemoryManager.h"

#include <algorithm>
#include <cstring>

#include "BufferCache.h"
#include "GuardBytes.h"
#include "GuardChecks.h"
#include "HandleCalls.h"
#include "HandleLayout.h"
#include "KZPlacement.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemorySettings.h"
#include "MemorySource.h"
#include "MemoryZone.h"
#include "Report.h"
#include "ThAtomic.h"
#include "ThMutex.h"

using kz::Blocks;
using kz::BySize;
using kz::Fill;
using kz::MasterWord;
using kz::MemZone;
using kz::MemZoneRec;

namespace {

constexpr char kModule[] = "source/MemoryManager";

// These are kept because they can be set; nothing reads them.
constinit std::atomic<KzBool> gCheckHighWaterMarks{0};
constinit std::atomic<MemMutexAccessProc> gLogMemMutexAccessProc{nullptr};

// As ResizeOrNewHandle, but a size of 0 stands for no handle.
KzErr ResizeOrNoHandle(const char* call, void* variable, unsigned long size, Fill fill)
{
    if (variable == nullptr) {
        return kzErrArgument;
    }
    return size == 0 ? kz::DisposeAndNull(call, variable) : kz::ResizeOrNewHandle(call, variable, BySize(size, fill));
}

UHandle FindHandleOf(const MemZoneRec* zone, const unsigned char* data)
{
    // An odd address is no data, but would match a free master's link.
    if (kz::IsFreeLink(const_cast<MasterWord>(data))) {
        return nullptr;
    }
    for (const kz::masterBlock* block = kz::NewestBlock(zone); block != nullptr; block = block->next) {
        for (const MasterWord& master : block->masters) {
            if (kz::LoadMaster(&master) == data) {
                return const_cast<MasterWord*>(&master);
            }
        }
    }
    return nullptr;
}

UHandle RecoverHandle(const void* ptr)
{
    // The pointer stands for a handle's data, so the guards that are looked at are those of handles.
    if (ptr == nullptr || (ShouldCheckHandleGuardBytes() != 0 && CheckGuards(ptr, true) == 0)) {
        KZ_REPORT(kDbgFatal, 0xAB1F6C05);
        return nullptr;
    }
    const MemZoneRec* const zone = MemZone();
    const UHandle handle = zone == nullptr ? nullptr : FindHandleOf(zone, static_cast<const unsigned char*>(ptr));
    if (handle == nullptr) {
        KZ_REPORT(kDbgFatal, 0x74E8D930) << "Pointer passed to BRecoverHandle not linked to master pointer!";
    }
    return handle;
}

// All that a call on a handle's state does, because no state changes anything: handles never move on their own.
KzErr CheckState(const char* call, const void* handle)
{
    return kz::IsGoodHandle(handle, kz::kRangeForChanges) ? kzErrNone : kz::BadHandle(call);
}

}  // namespace

extern "C" {

UHandle DSNewHandle(unsigned long size)
{
    return kz::NewHandle(BySize(size));
}

UHandle AZNewHandle(unsigned long size)
{
    return DSNewHandle(size);
}

UHandle DSNewHClr(unsigned long size)
{
    return kz::NewHandle(BySize(size, Fill::kZero));
}

UHandle AZNewHClr(unsigned long size)
{
    return DSNewHClr(size);
}

UHandle DSNewHandleCache(unsigned long size)
{
    return kz::NewHandle(BySize(size, Fill::kNone, Blocks::kCached));
}

UHandle DSNewHClrCache(unsigned long size)
{
    return kz::NewHandle(BySize(size, Fill::kZero, Blocks::kCached));
}

UHandle DSNewAlignedHandle(unsigned long size, unsigned long alignment, unsigned long offset)
{
    return kz::NewHandle({size, kz::NormalAlignment(alignment, offset)});
}

UHandle DSNewAlignedHClr(unsigned long size, unsigned long alignment, unsigned long offset)
{
    return kz::NewHandle({size, kz::NormalAlignment(alignment, offset), Fill::kZero});
}

KzErr DSSetHandleSize(void* handle, unsigned long size)
{
    return kz::ResizeHandle("DSSetHandleSize", handle, BySize(size));
}

KzErr AZSetHandleSize(void* handle, unsigned long size)
{
    return kz::ResizeHandle("AZSetHandleSize", handle, BySize(size));
}

KzErr DSSetHSzClr(void* handle, unsigned long size)
{
    return kz::ResizeHandle("DSSetHSzClr", handle, BySize(size, Fill::kZero));
}

KzErr AZSetHSzClr(void* handle, unsigned long size)
{
    return kz::ResizeHandle("AZSetHSzClr", handle, BySize(size, Fill::kZero));
}

KzErr DSSetHandleSizeCache(void* handle, unsigned long size)
{
    return kz::ResizeHandle("DSSetHandleSizeCache", handle, BySize(size, Fill::kNone, Blocks::kCached));
}

KzErr DSSetHSzClrCache(void* handle, unsigned long size)
{
    return kz::ResizeHandle("DSSetHSzClrCache", handle, BySize(size, Fill::kZero, Blocks::kCached));
}

KzErr DSSetAlignedHandleSize(void* handle, unsigned long size, unsigned long alignment, unsigned long offset)
{
    return kz::ResizeHandle("DSSetAlignedHandleSize", handle, {size, kz::NormalAlignment(alignment, offset)});
}

KzErr DSSetAlignedHSzClr(void* handle, unsigned long size, unsigned long alignment, unsigned long offset)
{
    return kz::ResizeHandle("DSSetAlignedHSzClr", handle, {size, kz::NormalAlignment(alignment, offset), Fill::kZero});
}

KzErr DSSetHandleSizeOrNewHandle(void* variable, unsigned long size)
{
    return kz::ResizeOrNewHandle("DSSetHandleSizeOrNewHandle", variable, BySize(size));
}

KzErr DSSetHSzOrNewHClr(void* variable, unsigned long size)
{
    return kz::ResizeOrNewHandle("DSSetHSzOrNewHClr", variable, BySize(size, Fill::kZero));
}

KzErr DSSetHandleSizeOrNewHandleCache(void* variable, unsigned long size)
{
    return kz::ResizeOrNewHandle("DSSetHandleSizeOrNewHandleCache", variable,
                                 BySize(size, Fill::kNone, Blocks::kCached));
}

KzErr DSSetHSzOrNewHClrCache(void* variable, unsigned long size)
{
    return kz::ResizeOrNewHandle("DSSetHSzOrNewHClrCache", variable, BySize(size, Fill::kZero, Blocks::kCached));
}

KzErr DataSetHandleSizeOrNewHandle(void* variable, unsigned long size)
{
    return ResizeOrNoHandle("DataSetHandleSizeOrNewHandle", variable, size, Fill::kNone);
}

KzErr DataSetHSzOrNewHClr(void* variable, unsigned long size)
{
    return ResizeOrNoHandle("DataSetHSzOrNewHClr", variable, size, Fill::kZero);
}

KzErr DSDisposeHandle(void* handle)
{
    return kz::DisposeHandle("DSDisposeHandle", handle);
}

KzErr AZDisposeHandle(void* handle)
{
    return kz::DisposeHandle("AZDisposeHandle", handle);
}

KzErr DSDisposeHandleCache(void* handle)
{
    return kz::DisposeHandle("DSDisposeHandleCache", handle, Blocks::kCached);
}

KzErr DSDisposeHandleAndNull(void* variable)
{
    return kz::DisposeAndNull("DSDisposeHandleAndNull", variable);
}

unsigned long DSGetHandleSize(const void* handle)
{
    const unsigned char* const data = kz::GoodData(handle, kz::kRangeForQueries);
    if (data == nullptr) {
        KZ_REPORT(kDbgFatal, 0x2E76B8C5);
        return 0;
    }
    return kz::HandleDataSize(data);
}

unsigned long AZGetHandleSize(const void* handle)
{
    return DSGetHandleSize(handle);
}

KzErr DSCheckHandle(const void* handle)
{
    // The level of handle checking plays no part here, because any address may be asked about.
    return kz::IsGoodHandle(handle, kz::kRangeAlways) ? kzErrNone : kzErrBadZone;
}

KzErr AZCheckHandle(const void* handle)
{
    return kz::IsGoodHandle(handle, kz::kRangeForChanges) ? kzErrNone : kzErrBadZone;
}

KzBool IsDSHandle(const void* handle)
{
    return kz::FindHandleData(MemZone(), handle, false) != nullptr;
}

UHandle DSRecoverHandle(const void* ptr)
{
    return RecoverHandle(ptr);
}

UHandle AZRecoverHandle(const void* ptr)
{
    return RecoverHandle(ptr);
}

KzErr DSSwapHandles(void* a, void* b)
{
    // Both are looked at before either changes.
    unsigned char* const dataA = kz::GoodData(a, kz::kRangeForChanges);
    unsigned char* const dataB = dataA == nullptr ? nullptr : kz::GoodData(b, kz::kRangeForChanges);
    if (dataB == nullptr) {
        KZ_REPORT(kDbgFatal, 0x590CE3A8);
        return kzErrBadZone;
    }
    // A swap with itself is sound and has nothing to do, but is told of because no caller can have meant it.
    if (a == b) {
        KZ_REPORT(kDbgFatal, 0xC7824D1B);
        return kzErrNone;
    }
    kz::StoreMaster(static_cast<MasterWord*>(a), dataB);
    kz::StoreMaster(static_cast<MasterWord*>(b), dataA);
    kz::CheckAfterChange(a);
    return kzErrNone;
}

KzErr AZHLock(void* handle)
{
    return CheckState("AZHLock", handle);
}

KzErr AZHUnlock(void* handle)
{
    return CheckState("AZHUnlock", handle);
}

void AZHPurge(void* handle)
{
    CheckState("AZHPurge", handle);
}

void AZHNoPurge(void* handle)
{
    CheckState("AZHNoPurge", handle);
}

void AZHSetState(void* handle, int32 /*state*/)
{
    CheckState("AZHSetState", handle);
}

int32 AZHGetState(void* handle)
{
    CheckState("AZHGetState", handle);
    return 0;
}

MemFullProc SetMemFullProc(MemFullProc proc)
{
    return kz::ExchangeMemFullProc(proc);
}

void CallSetMemFullProc(unsigned long size)
{
    kz::TellMemoryFull(size);
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
    const uInt32 set = std::min(level, kz::kHighestHandleChecking);
    kz::gHandleChecking.store(set, std::memory_order_relaxed);
    return set;
}

KzBool GetMemoryManagerInitialized(void)
{
    return gMemoryInited.load(std::memory_order_relaxed);
}

void DSReadCounters(uInt64* counters)
{
    // The counters go on without the service, for pointer blocks; only its life is told.
    if (counters == nullptr) {
        return;
    }
    uInt32 values[kz::kNumMemoryCounters] = {};
    if (MemZone() != nullptr) {
        kz::ReadCounters(values);
    }
    std::memcpy(counters, values, sizeof values);
}

void DSSetCounters(const uInt64* counters)
{
    if (counters == nullptr || MemZone() == nullptr) {
        return;
    }
    uInt32 values[kz::kNumMemoryCounters];
    std::memcpy(values, counters, sizeof values);
    kz::SetCounters(values);
}

void ReadConfigTokensForBufferCache(void)
{
    if (BufferCache* const cache = s_bufferCachePtr.load(std::memory_order_acquire)) {
        cache->ReadConfigTokens();
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

MemoryManager_Service::MemoryManager_Service()
    : PlainService_T("MemoryManager", &kz::AddNeeds<&ThMutexService, &ProtectedAtomicOperationsService>)
{}

MemoryManager_Service* MemoryManagerService()
{
    return KZSingleton_T<MemoryManager_Service>::Instance();
}

namespace {

void StopZone(MemZoneRec* zone)
{
    kz::gMemZone.store(nullptr, std::memory_order_release);
    kz::DestroyZone(zone);
}

// Logs and disposes what the callers have left. The procedure of a module may dispose other handles meanwhile, which
// come later in the walk and are then free masters, or came before.
void RecoverHandles(MemZoneRec* zone)
{
    KZ_ASSERT(zone == MemZone());
    unsigned long long count = 0;
    unsigned long long bytes = 0;
    for (kz::masterBlock* block = kz::NewestBlock(zone); block != nullptr; block = block->next) {
        for (MasterWord& master : block->masters) {
            unsigned char* const data = kz::LoadMaster(&master);
            if (!kz::IsHandleWord(data)) {
                continue;
            }
            if (!kz::HandleGuardsPass(data)) {
                continue;  // told of; neither its size nor its block can be trusted
            }
            const unsigned long size = kz::HandleDataSize(data);
            KZ_LOG(kDbgLog) << "handle " << DbgFmtPtr(&master) << ", size " << size << " still allocated.";
            if (const kz::LeftHandleProc proc = kz::gLeftHandleProc.load(std::memory_order_acquire)) {
                proc(&master, data);
            }
            kz::DisposeGoodHandle(zone, &master, data, Blocks::kFresh);
            ++count;
            bytes += size;
        }
    }
    StopZone(zone);
    KZ_LOG(kDbgLog) << "Recovered " << count << " Handles for " << bytes << " bytes.";
}

}  // namespace

KzErr MemoryManager_Service::_Init()
{
    constexpr int kBlocksAtStart = 5;
    kz::MarkHeap();
    kz::CreateBufferCache();
    MemZoneRec* const zone = kz::CreateZone();
    if (zone == nullptr) {
        kz::DestroyBufferCache();
        return kzErrMemoryFull;
    }
    gMemoryDebugger.store(0, std::memory_order_relaxed);
    kz::gMemZone.store(zone, std::memory_order_release);
    // A block that can't be had here is no failure, because the first make that lacks it tries again.
    for (int i = 0; i < kBlocksAtStart; ++i) {
        if (!kz::AddMasterBlock(zone)) {
            kz::TellMemoryFull(kz::kMasterBlockSize);
        }
    }
    gMemoryInited.store(1, std::memory_order_relaxed);
    const KzErr err = ThMutexCreate(&kz::gMemoryRights, "gMemoryRights");
    if (err != kzErrNone) {
        gMemoryInited.store(0, std::memory_order_relaxed);
        kz::DestroyBufferCache();
        StopZone(zone);
    }
    return err;
}

KzErr MemoryManager_Service::_Uninit()
{
    gMemoryInited.store(0, std::memory_order_relaxed);
    kz::DestroyBufferCache();
    if (MemZoneRec* const zone = MemZone()) {
        RecoverHandles(zone);
    }
    // The variable is nulled because any call may still take the lock, which is then nothing to hold.
    ThMutexDestroy(kz::gMemoryRights);
    kz::gMemoryRights = nullptr;
    kz::ExchangeMemFullProc(nullptr);
    kz::ForgetHeap();
    KZPlacementNewRunCleanup();
    return kzErrNone;
}
