// A pointer block is what the allocator returns, with the guards of GuardBytes inside where those are on. Nothing else
// is stored about the block, so it can be made and freed at any time, also while the memory service does not run. The
// family's setting of room never changes after the first block, so PtrGuardsSize tells at the free what it told at the
// make.
#include "MemorySource.h"

#include <cstdlib>
#include <cstring>

#include "GuardBytes.h"
#include "GuardChecks.h"
#include "KzAssert.h"
#include "LiveCount.h"
#include "PlatformHeap.h"

namespace kz {

constinit std::atomic<AllocateProc> gAllocateProc{&std::malloc};
constinit std::atomic<AllocateZerosProc> gAllocateZerosProc{&std::calloc};
constinit MemoryCounters gMemoryCounters{};

namespace {

// The end of the data segment at MarkHeap; 0 while nothing is measured.
constinit std::atomic<uintptr_t> gBreakMark{0};

void* AllocateGuarded(unsigned long size, Fill fill)
{
    const unsigned long guards = PtrGuardsSize();
    const unsigned long whole = size + guards;
    // A sum that wraps would make a small block that passes for a large one.
    void* const block = whole < size ? nullptr : AllocateBytes(whole, fill);
    if (block == nullptr) {
        return nullptr;
    }
    // Tables are counted too, as DSReadCounters documents.
    RaiseCounter(kPointersMade);
    return guards == 0 ? block : InitPtrGuards(block, size);
}

void FreeGuarded(void* ptr)
{
    KZ_ASSERT(ptr != nullptr);
    std::free(PtrGuardsSize() == 0 ? ptr : GetOrigPtrFromGuardedPtr(ptr));
}

}  // namespace

void* AllocateZeros(std::size_t size)
{
    // A block of less than a page is cleared here, because none of it could stay untouched and the C library's calloc
    // passes by the thread's cache of free blocks, which makes it slower there.
    constexpr std::size_t kPage = 4096;
    if (size >= kPage) {
        return size > PTRDIFF_MAX ? nullptr : gAllocateZerosProc.load(std::memory_order_relaxed)(1, size);
    }
    void* const bytes = AllocateBytes(size);
    if (bytes != nullptr) {
        std::memset(bytes, 0, size);
    }
    return bytes;
}

void* AllocatePtr(unsigned long size, Fill fill)
{
    void* const ptr = AllocateGuarded(size, fill);
    if (ptr != nullptr) {
        CountLive(Live::kPointers, 1);
    }
    return ptr;
}

void FreePtr(void* ptr)
{
    CountLive(Live::kPointers, -1);
    FreeGuarded(ptr);
}

void* AllocateTable(unsigned long size)
{
    return AllocateGuarded(size, Fill::kNone);
}

void FreeTable(void* table)
{
    FreeGuarded(table);
}

void ReadCounters(uInt32 (&values)[kNumMemoryCounters])
{
    for (int i = 0; i < kNumMemoryCounters; ++i) {
        values[i] = gMemoryCounters.counts[i].load(std::memory_order_relaxed);
    }
}

void SetCounters(const uInt32 (&values)[kNumMemoryCounters])
{
    for (int i = 0; i < kNumMemoryCounters; ++i) {
        gMemoryCounters.counts[i].store(values[i], std::memory_order_relaxed);
    }
}

void MarkHeap()
{
    gBreakMark.store(ProgramBreak(), std::memory_order_relaxed);
}

void ForgetHeap()
{
    gBreakMark.store(0, std::memory_order_relaxed);
}

uInt64 HeapGrowth()
{
    const uintptr_t mark = gBreakMark.load(std::memory_order_relaxed);
    return mark == 0 ? 0 : ProgramBreakGrowth(mark);
}

}  // namespace kz
