#include <cstring>

#include "GuardChecks.h"
#include "HandleCalls.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "MemorySettings.h"
#include "MemorySource.h"
#include "MemoryZone.h"
#include "Report.h"
#include "ScopedLock.h"

using kz::Fill;
using kz::MemZone;
using kz::MemZoneRec;

namespace {

constexpr char kModule[] = "source/MemoryHeap";

constinit std::atomic<bool> inHeapCheck{false};

// The tables are looked at under the lock, what is wrong is told outside it.
KzErr CheckZone()
{
    const MemZoneRec* const zone = MemZone();
    if (zone == nullptr) {
        return kzErrNone;
    }
    kz::FreeChainState freeChain = kz::FreeChainState::kSound;
    kz::BlockChainState blockChain = kz::BlockChainState::kSound;
    {
        kz::ScopedLock lock(kz::gMemoryRights);
        if (gMemoryDebugger.load(std::memory_order_relaxed) != 0) {
            freeChain = kz::CheckFreeChain(zone);
        }
        blockChain = kz::CheckBlockChain(zone);
    }
    const bool isFreeChainSound = kz::ReportFreeChain(freeChain);
    if (blockChain == kz::BlockChainState::kTooMany) {
        KZ_REPORT(kDbgFatal, 0x3F0A94D6) << "MemCheck error, m.p. block chain error 1";
    } else if (blockChain == kz::BlockChainState::kTooFew) {
        KZ_REPORT(kDbgFatal, 0x857BC21E) << "MemCheck error, m.p. block chain error 2";
    }
    return isFreeChainSound && blockChain == kz::BlockChainState::kSound ? kzErrNone : kzErrCorrupt;
}

KzErr GetStats(MemStatRec* stats)
{
    const KzErr err = CheckZone();
    if (stats != nullptr) {
        *stats = {};
        stats->totAllocSize = kz::HeapGrowth();
    }
    return err;
}

void LogStats()
{
    MemStatRec stats{};
    stats.totAllocSize = kz::HeapGrowth();
    KZ_LOG(kDbgLog) << "Free: totFreeSize " << stats.totFreeSize << ", maxFreeSize " << stats.maxFreeSize;
    KZ_LOG(kDbgLog) << "Allocated to ZV: totAllocSize " << stats.totAllocSize;
    KZ_LOG(kDbgLog) << "Total: totPhysSize " << stats.totPhysSize;
}

KzErr CheckHeap(KzBool verbose)
{
    if (inHeapCheck.exchange(true)) {
        return kzErrNone;
    }
    const KzErr err = CheckZone();
    if (verbose != 0) {
        LogStats();
    }
    DSDisposePtr(DSNewPtr(2));  // runs whatever checks the allocator has
    inHeapCheck = false;
    return err;
}

void* NewPtr(unsigned long size, Fill fill)
{
    constexpr uintptr_t kPtrAlignment = 8;
    void* const ptr = kz::AllocatePtr(size, fill);
    if (ptr == nullptr) {
        kz::TellMemoryFull(size);
    } else if (gMemoryDebugger.load(std::memory_order_relaxed) != 0) {
        if (reinterpret_cast<uintptr_t>(ptr) % kPtrAlignment != 0) {
            KZ_REPORT(kDbgFatal, 0xE46A2F17) << "Ptr block not ptr-aligned";
        }
        DSHeapCheck(0);
    }
    return ptr;
}

KzErr DisposePtr(const char* call, void* ptr)
{
    if (ptr == nullptr) {
        return kzErrArgument;
    }
    if (!kz::PtrGuardsPass(ptr)) {
        return kz::Failed(call, kzErrBadZone);
    }
    kz::FreePtr(ptr);
    return kzErrNone;
}

}  // namespace

extern "C" {

void* DSNewPtr(unsigned long size)
{
    return NewPtr(size, Fill::kNone);
}

void* AZNewPtr(unsigned long size)
{
    return NewPtr(size, Fill::kNone);
}

void* DSNewPClr(unsigned long size)
{
    return NewPtr(size, Fill::kZero);
}

void* AZNewPClr(unsigned long size)
{
    return NewPtr(size, Fill::kZero);
}

KzErr DSDisposePtr(void* ptr)
{
    return DisposePtr("DSDisposePtr", ptr);
}

KzErr AZDisposePtr(void* ptr)
{
    return DisposePtr("AZDisposePtr", ptr);
}

KzErr DSCheckPtr(const void* ptr)
{
    return ptr != nullptr && kz::PtrGuardsPass(ptr) ? kzErrNone : kzErrBadZone;
}

KzErr AZCheckPtr(const void* ptr)
{
    return DSCheckPtr(ptr);
}

KzErr DSHeapCheck(KzBool verbose)
{
    return CheckHeap(verbose);
}

KzErr AZHeapCheck(KzBool verbose)
{
    return CheckHeap(verbose);
}

KzBool MemCheckHeaps(void)
{
    ToggleMemoryDebugging();
    CheckHeap(1);
    return ToggleMemoryDebugging();
}

KzErr DSCompact(void)
{
    if (gMemoryDebugger.load(std::memory_order_relaxed) != 0) {
        CheckHeap(1);
    }
    return kzErrNone;
}

KzErr DSMemStats(MemStatRec* stats)
{
    return GetStats(stats);
}

KzErr AZMemStats(MemStatRec* stats)
{
    return GetStats(stats);
}

KzErr DSMemStats2(uInt64* totFreeSize, uInt64* maxFreeSize, uInt64* maxAllocSize, uInt64* totAllocSize,
                  uInt64* totHandleSize, uInt64* totPtrSize, uInt64* spare, uInt64* totPhysSize, uInt32* freeCount,
                  uInt32* handleCount, uInt32* ptrCount, uInt32* blockCount)
{
    MemStatRec stats;
    const KzErr err = GetStats(&stats);
    const auto give = [](auto* out, auto value) {
        if (out != nullptr) {
            *out = value;
        }
    };
    give(totFreeSize, stats.totFreeSize);
    give(maxFreeSize, stats.maxFreeSize);
    give(maxAllocSize, stats.maxAllocSize);
    give(totAllocSize, stats.totAllocSize);
    give(totHandleSize, stats.totHandleSize);
    give(totPtrSize, stats.totPtrSize);
    give(spare, stats.spare);
    give(totPhysSize, stats.totPhysSize);
    give(freeCount, stats.freeCount);
    give(handleCount, stats.handleCount);
    give(ptrCount, stats.ptrCount);
    give(blockCount, stats.blockCount);
    return err;
}

KzErr DSMemStatsSlow(void* stats)
{
    constexpr unsigned long kZeroedSize = 24;
    if (stats != nullptr) {
        std::memset(stats, 0, kZeroedSize);
    }
    return kzErrNone;
}

unsigned long DSMaxMem(void)
{
    return 0;
}

unsigned long AZMaxMem(void)
{
    return 0;
}

}  // extern "C"
