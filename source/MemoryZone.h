// The zone behind the memory manager: where memory comes from, the plain pointer blocks, and the tables of master
// pointers with the test whether an address is one.
//
// A master pointer is one word in one of three states: the address of data (not null, low bit clear), the handle is in
// use; 0, it is taken and has no data yet; a link with low bit 1, it is free. Masters stand in blocks of 10,000, which
// are never given back while the zone lives.
//
// Validity is tested without a lock. What those readers use, one after the other:
// - a table of granules, stretches of 64 KB of addresses, each with up to two blocks that reach into it. Readers write
//   nothing and the way is the same for every handle, which keeps the test short for any pattern of use. A granule
//   that has no room for a block is left to the next steps;
// - the two blocks that those steps found last, which may be stale but only ever name real blocks;
// - an index of all blocks in the order of their addresses. An index is immutable: a new block makes a new one,
//   published by one store.
// Old tables and indices stay until the zone goes, since a slow reader may still be searching them.
#ifndef KZCORE_MEMORYZONE_H
#define KZCORE_MEMORYZONE_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "KZTypes.h"
#include "ThMutex.h"

namespace kz {

// Where the library's memory comes from; malloc and calloc unless a test makes them fail.
using AllocateProc = void* (*)(std::size_t size);
using AllocateZerosProc = void* (*)(std::size_t count, std::size_t size);
extern std::atomic<AllocateProc> gAllocateProc;
extern std::atomic<AllocateZerosProc> gAllocateZerosProc;

enum class Fill { kNone, kZero };

// `size` bytes, at least one, freed with std::free; null when out of memory. No object is larger than half the address
// space, whatever an allocator says.
inline void* AllocateBytes(std::size_t size)
{
    return size > PTRDIFF_MAX ? nullptr : gAllocateProc.load(std::memory_order_relaxed)(std::max<std::size_t>(size, 1));
}

// The same of zeros: a page and more of them as the allocator has them, so that fresh pages cost nothing until they are
// used.
void* AllocateZeros(std::size_t size);

inline void* AllocateBytes(std::size_t size, Fill fill)
{
    return fill == Fill::kZero ? AllocateZeros(size) : AllocateBytes(size);
}

// A plain pointer block with its guards, where those are on. It is counted, but the memory-full procedure is the
// caller's to call, once it holds no lock, and so is a check of the guards before the block is freed.
void* AllocatePtr(unsigned long size, Fill fill = Fill::kNone);
void FreePtr(void* ptr);

using MasterWord = unsigned char*;
inline constexpr uInt32 kMastersPerBlock = 10000;

struct masterBlock {
    masterBlock* next;  // the block made before this one
    MasterWord masters[kMastersPerBlock];
};

// All blocks of a zone, by rising address.
struct MasterBlockIndex {
    const MasterBlockIndex* older;
    uInt32 count;
    masterBlock* blocks[1];
};

// The blocks by granule. Slots are filled in place and never change again; a larger table replaces one that is crowded.
struct GranuleTable {
    static constexpr uInt32 kGranuleBits = 16;
    struct Slot {
        // Blocks that reach into the granule, or any others: those are no answer, and spare the test for an empty
        // place.
        std::atomic<masterBlock*> blocks[2];
    };

    GranuleTable* older;
    uintptr_t mask;  // one less than the number of slots, a power of two
    Slot slots[1];

    const Slot& SlotOf(uintptr_t address) const { return slots[(address >> kGranuleBits) & mask]; }
};
// Two blocks are enough for a granule as long as no third one fits between them.
static_assert(uintptr_t{1} << GranuleTable::kGranuleBits < sizeof(masterBlock));

enum MemoryCounter { kHandlesMade, kPointersMade, kResizes, kMoves, kNumMemoryCounters };

struct MemZoneRec {
    // Under gMemoryRights.
    masterBlock* blocks = nullptr;
    MasterWord* freeMasters = nullptr;
    uInt32 blockCount = 0;
    uInt32 freeMasterCount = 0;

    // A lost count is accepted, so these are loaded and stored, not added to.
    std::atomic<uInt32> counters[kNumMemoryCounters]{};

    // The lock-free readers' part, on lines that the free chain does not touch.
    char padding[64] = {};
    std::atomic<GranuleTable*> granules{nullptr};
    std::atomic<const MasterBlockIndex*> index{nullptr};
    std::atomic<masterBlock*> recent[2]{};
    std::atomic<uInt32> pick{0};
};

// The one zone, null while the memory service does not run, and its lock, null outside the service's life.
extern std::atomic<MemZoneRec*> gMemZone;
extern ThMutex gMemoryRights;

inline MemZoneRec* MemZone()
{
    return gMemZone.load(std::memory_order_acquire);
}

// A zone without blocks; null when out of memory.
MemZoneRec* CreateZone();

// Frees the zone with its blocks. Nothing may use it any more.
void DestroyZone(MemZoneRec* zone);

// Adds 10,000 free masters. False when out of memory: the zone is unchanged.
bool AddMasterBlock(MemZoneRec* zone);

// The bytes of a block, for the memory-full procedure of one that could not be added.
inline constexpr unsigned long kMasterBlockSize = sizeof(masterBlock);

// What is wrong with the free chain, following at most the links that are counted. Under gMemoryRights.
enum class FreeChainState { kSound, kBadCount, kNotTerminated };
FreeChainState CheckFreeChain(const MemZoneRec* zone);

// Takes a master, which is then 0. Null when there is none and no block can be added.
MasterWord* TakeMaster(MemZoneRec* zone);

// The same after a look at the free chain; null, with what is wrong in `*state`, when that is damaged.
MasterWord* TakeMasterChecked(MemZoneRec* zone, FreeChainState* state);

// Makes the master the first of the free ones.
void ReturnMaster(MemZoneRec* zone, MasterWord* master);

// A master word is read by validity tests on any thread; relaxed, because a handle reaches another thread only by some
// synchronisation of its users, which orders the data as well.
inline MasterWord LoadMaster(const MasterWord* master)
{
    return std::atomic_ref<MasterWord>(*const_cast<MasterWord*>(master)).load(std::memory_order_relaxed);
}
inline void StoreMaster(MasterWord* master, MasterWord word)
{
    std::atomic_ref<MasterWord>(*master).store(word, std::memory_order_relaxed);
}

// The range test of an address that the table of granules doesn't tell of: in the recent blocks, then in the index,
// whose block becomes a recent one.
bool FindMasterBlock(MemZoneRec* zone, const void* handle);

inline bool IsFreeLink(MasterWord word)
{
    return (reinterpret_cast<uintptr_t>(word) & 1) != 0;
}

// Whether a master with this word belongs to a handle with data.
inline bool IsHandleWord(MasterWord word)
{
    return word != nullptr && !IsFreeLink(word);
}

inline bool IsInBlock(const masterBlock* block, const void* handle)
{
    // One unsigned comparison for both ends. No block stands at the address 0, which an empty slot holds.
    const uintptr_t first = reinterpret_cast<uintptr_t>(block) + offsetof(masterBlock, masters);
    const bool isInRange = reinterpret_cast<uintptr_t>(handle) - first < sizeof(masterBlock::masters);
    return isInRange & (block != nullptr);
}

inline bool IsInGranule(const GranuleTable* table, const void* handle)
{
    if (table == nullptr) {
        return false;
    }
    const auto address = reinterpret_cast<uintptr_t>(handle) - offsetof(masterBlock, masters);
    const GranuleTable::Slot& slot = table->SlotOf(reinterpret_cast<uintptr_t>(handle));
    const auto offsetIn = [&](int i) {
        return address - reinterpret_cast<uintptr_t>(slot.blocks[i].load(std::memory_order_acquire));
    };
    // The smaller of the two, without a branch, which random handles would mispredict.
    return std::min(offsetIn(0), offsetIn(1)) < sizeof(masterBlock::masters);
}

// Whether the address lies in a block of masters.
inline bool IsInMasterBlock(MemZoneRec* zone, const void* address)
{
    return IsInGranule(zone->granules.load(std::memory_order_acquire), address) || FindMasterBlock(zone, address);
}

// The data of a handle that is a master in use, or null for anything else. With `skipRange` only its word is looked at,
// which then must be readable. The word is read once, so the answer is a block's address even where another thread ends
// the handle meanwhile.
inline MasterWord CheckHandleInZone(MemZoneRec* zone, const void* handle, bool skipRange)
{
    if (zone == nullptr || handle == nullptr || reinterpret_cast<uintptr_t>(handle) % sizeof(MasterWord) != 0) {
        return nullptr;
    }
    if (!skipRange && !IsInMasterBlock(zone, handle)) {
        return nullptr;
    }
    const MasterWord word = LoadMaster(static_cast<const MasterWord*>(handle));
    return IsHandleWord(word) ? word : nullptr;
}

inline void RaiseCounter(MemZoneRec* zone, MemoryCounter counter)
{
    // Relaxed: a statistic that orders nothing.
    std::atomic<uInt32>& count = zone->counters[counter];
    count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

// What is wrong with the zone, or null when it is sound: the block chain, index and counts agree, the free chain holds
// just the free masters, and each handle's header agrees with its place and its guards are whole, where they are on.
// For a zone that no other thread changes.
const char* ZoneFault(const MemZoneRec* zone);

}  // namespace kz

#endif
