// Plain pointer blocks, the check of the heap and its statistics. The two stand in one module because each calls the
// other: with the memory debugger on, the make of a block checks the heap, and a check makes and frees a block. The
// flag inHeapCheck ends that circle, at the second check.
//
// The tables have no sizes of blocks, and nothing is asked of the allocator, so all statistics but the growth of the
// data segment are 0.
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

// Whether a check runs, on whichever thread. A second one gives 0 at once.
constinit std::atomic<bool> inHeapCheck{false};

// The tables are looked at under the lock and what is wrong is told outside it, because a report runs the host's
// handler, which may make handles. Only the memory debugger looks at the free chain, because the
// walk over it is long.
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

// A null record asks for the check alone.
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
    // A make and a free run whatever checks the allocator has.
    DSDisposePtr(DSNewPtr(2));
    inHeapCheck = false;
    return err;
}

// The memory debugger's look at all of the heap comes after the make, so that it covers the block itself.
void* NewPtr(unsigned long size, Fill fill)
{
    constexpr uintptr_t kPtrAlignment = 8;
    void* const ptr = kz::AllocatePtr(size, fill);
    if (ptr == nullptr) {
        kz::TellMemoryFull(size);
    } else if (gMemoryDebugger.load(std::memory_order_relaxed) != 0) {
        // The C library never returns such a block; one that a process puts in its place might.
        if (reinterpret_cast<uintptr_t>(ptr) % kPtrAlignment != 0) {
            KZ_REPORT(kDbgFatal, 0xE46A2F17) << "Ptr block not ptr-aligned";
        }
        DSHeapCheck(0);
    }
    return ptr;
}

// A block with damaged guards is left alone, for its owner to look at and because the write may have damaged what the
// allocator keeps beside it.
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
    // The setting is flipped for this check and flipped back, so the check is the one that the other setting makes.
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
    // Damage of the tables is in the result alone: the numbers are told all the same.
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
