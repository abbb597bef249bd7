// Where the library's memory comes from: bytes of the system, plain pointer blocks, and the counts of both that
// DSReadCounters tells. Knows nothing of handles. Any thread may call.
#ifndef KZCORE_MEMORYSOURCE_H
#define KZCORE_MEMORYSOURCE_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "KZTypes.h"

namespace kz {

// What asks the system for memory: malloc and calloc unless a test makes them fail.
using AllocateProc = void* (*)(std::size_t size);
using AllocateZerosProc = void* (*)(std::size_t count, std::size_t size);
extern std::atomic<AllocateProc> gAllocateProc;
extern std::atomic<AllocateZerosProc> gAllocateZerosProc;

enum class Fill { kNone, kZero };

// `size` bytes, at least one, freed with std::free; null when out of memory. A size of more than half the address space
// is refused here, because no object may be larger, whatever an allocator says.
inline void* AllocateBytes(std::size_t size)
{
    return size > PTRDIFF_MAX ? nullptr : gAllocateProc.load(std::memory_order_relaxed)(std::max<std::size_t>(size, 1));
}

// The same of zeros. A page and more of them come as the allocator has them, so that fresh pages cost nothing until
// they are used.
void* AllocateZeros(std::size_t size);

inline void* AllocateBytes(std::size_t size, Fill fill)
{
    return fill == Fill::kZero ? AllocateZeros(size) : AllocateBytes(size);
}

// A plain pointer block with its guards, where those are on; null when out of memory. It is counted. The memory-full
// procedure is left to the caller, who calls it once no lock is held. Freed with FreePtr, before which the caller looks
// at the guards, because only the caller knows what to do about damage.
void* AllocatePtr(unsigned long size, Fill fill = Fill::kNone);
void FreePtr(void* ptr);

// The same for the tables of masters, which LiveCount does not count because they stay for as long as the zone.
void* AllocateTable(unsigned long size);
void FreeTable(void* table);

// The counts of DSReadCounters, in its order. They are global because pointer blocks are counted where no zone is
// known; the start of the memory service clears them.
enum MemoryCounter { kHandlesMade, kPointersMade, kResizes, kMoves, kNumMemoryCounters };

// On a line of their own, because every make of a handle or a pointer writes them.
struct alignas(64) MemoryCounters {
    std::atomic<uInt32> counts[kNumMemoryCounters];
};
extern MemoryCounters gMemoryCounters;

inline void RaiseCounter(MemoryCounter counter)
{
    // Loaded and stored, not added to: a count that two threads lose is accepted, and cheaper than a locked addition.
    std::atomic<uInt32>& count = gMemoryCounters.counts[counter];
    count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

// All four counts, as the values of an array.
void ReadCounters(uInt32 (&values)[kNumMemoryCounters]);
void SetCounters(const uInt32 (&values)[kNumMemoryCounters]);

// Begins and ends the measurement of HeapGrowth.
void MarkHeap();
void ForgetHeap();

// The bytes that the process's data segment has grown by since MarkHeap; 0 after ForgetHeap.
uInt64 HeapGrowth();

}  // namespace kz

#endif
