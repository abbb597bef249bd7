// The tables of master pointers, and the test whether an address is one.
//
// A master pointer is one word in one of three states: the address of data (not null, low bit clear), the handle is in
// use; 0, it is taken and has no data yet; a link with low bit 1, it is free. Masters stand in blocks of 10,000, which
// are never given back while the table lives.
//
// Validity is tested without a lock. What those readers use, one after the other:
//
//   address >> 16 -> granules   slot of 2    up to two blocks that reach into this stretch of 64 KB of addresses
//                       |       [ A | B ] ------------------------------------------+
//                       | neither holds the address                                 |
//                       v                                                           v
//                    recent     [ C | A ]    the two blocks found last ----> masterBlock A  next, 10,000 masters
//                       |                    behind the granules                    ^
//                       | neither holds it                                          |
//                       v                                                           |
//                    index      [ A B C D ]  all blocks by address, halved ---------+
//
// - granules: readers write nothing and the way is the same for every handle, which keeps the test short for any
//   pattern of use. A stretch whose slot has no room for a block is left to the next steps.
// - recent: may be stale, but names real blocks only, because a block stays.
// - index: immutable. A new block makes a new index, published by one store.
//
// A writer holds gMemoryRights. Whatever it publishes is complete before the one store with release that shows it; what
// it replaces stays until the table goes, because a slow reader may still be searching it.
#ifndef KZCORE_MASTERTABLE_H
#define KZCORE_MASTERTABLE_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "KZTypes.h"
#include "ThMutex.h"

namespace kz {

using MasterWord = unsigned char*;
inline constexpr uInt32 kMastersPerBlock = 10000;

// Given to the free chain as a whole, and never taken apart again.
struct masterBlock {
    masterBlock* next;  // the block made before this one
    MasterWord masters[kMastersPerBlock];
};

// All blocks of a table, by rising address. Immutable once it is published; `older` is the one that it replaced, kept
// for readers that may still search it.
struct MasterBlockIndex {
    const MasterBlockIndex* older;
    uInt32 count;
    masterBlock* blocks[1];
};

// The blocks by granule. Slots are filled in place and never change again; a larger table replaces one that is crowded.
struct GranuleTable {
    static constexpr uInt32 kGranuleBits = 16;
    struct Slot {
        // An unused place holds some other block instead of null. It never matches, so readers need no null test.
        std::atomic<masterBlock*> blocks[2];
    };

    GranuleTable* older;
    uintptr_t mask;  // one less than the number of slots, a power of two
    Slot slots[1];

    const Slot& SlotOf(uintptr_t address) const { return slots[(address >> kGranuleBits) & mask]; }
};
// Two blocks are enough for a granule as long as no third one fits between them.
static_assert(uintptr_t{1} << GranuleTable::kGranuleBits < sizeof(masterBlock));

// The lock of all writers of the table and of the zone's free chain; null outside the memory service's life.
extern ThMutex gMemoryRights;

struct MasterTable {
    // The lock-free readers' part.
    std::atomic<GranuleTable*> granules{nullptr};
    std::atomic<const MasterBlockIndex*> index{nullptr};
    std::atomic<masterBlock*> recent[2]{};
    std::atomic<uInt32> pick{0};  // its low bit: which of the recent ones the next find replaces

    uInt32 blockCount KZ_GUARDED_BY(gMemoryRights) = 0;
    masterBlock* blocks KZ_GUARDED_BY(gMemoryRights) = nullptr;  // the newest first
};

// Makes a block, whose masters are written, known to the table and its readers. False when out of memory: the table is
// unchanged.
bool AddToTable(MasterTable* table, masterBlock* block) KZ_REQUIRES(gMemoryRights);

// Frees the indices and the tables of granules, and each block that has sound guards. Nothing may use them any more.
void FreeTables(MasterTable* table);

// The newest block. The chain from there may be followed without the lock, because blocks stay and the chain grows at
// its head only.
masterBlock* NewestBlock(const MasterTable* table);

// A master's word, which validity tests on any thread may read at the same time. Relaxed, because a handle reaches
// another thread only by some synchronisation of its users, which orders the data as well.
inline MasterWord LoadMaster(const MasterWord* master)
{
    return std::atomic_ref<MasterWord>(*const_cast<MasterWord*>(master)).load(std::memory_order_relaxed);
}
inline void StoreMaster(MasterWord* master, MasterWord word)
{
    std::atomic_ref<MasterWord>(*master).store(word, std::memory_order_relaxed);
}

// The range test of an address that the granules don't tell of: in the recent blocks, then in the index, whose block
// becomes a recent one.
bool FindMasterBlock(MasterTable* table, const void* handle);

// The block that has the address among its masters, by the index alone; null when none has.
masterBlock* FindIndexedBlock(const MasterTable* table, const void* address);

// Whether a master with this word is free.
inline bool IsFreeLink(MasterWord word)
{
    return (reinterpret_cast<uintptr_t>(word) & 1) != 0;
}

// Whether a master with this word belongs to a handle with data.
inline bool IsHandleWord(MasterWord word)
{
    return word != nullptr && !IsFreeLink(word);
}

// Whether the address lies among the masters of the block, which may be null.
inline bool IsInBlock(const masterBlock* block, const void* handle)
{
    // One unsigned comparison for both ends. No block stands at the address 0, which an empty slot holds.
    const uintptr_t first = reinterpret_cast<uintptr_t>(block) + offsetof(masterBlock, masters);
    const bool isInRange = reinterpret_cast<uintptr_t>(handle) - first < sizeof(masterBlock::masters);
    return isInRange & (block != nullptr);
}

// The same for the blocks of the address's slot; false for a null table.
inline bool IsInGranule(const GranuleTable* granules, const void* handle)
{
    if (granules == nullptr) {
        return false;
    }
    // The comparison with the range is the whole test: a slot that other stretches of memory share holds blocks that
    // the address does not lie in.
    const auto address = reinterpret_cast<uintptr_t>(handle) - offsetof(masterBlock, masters);
    const GranuleTable::Slot& slot = granules->SlotOf(reinterpret_cast<uintptr_t>(handle));
    const auto offsetIn = [&](int i) {
        return address - reinterpret_cast<uintptr_t>(slot.blocks[i].load(std::memory_order_acquire));
    };
    // The smaller of the two, without a branch, which random handles would mispredict.
    return std::min(offsetIn(0), offsetIn(1)) < sizeof(masterBlock::masters);
}

// Whether the address lies in a block of masters.
inline bool IsInMasterBlock(MasterTable* table, const void* address)
{
    return IsInGranule(table->granules.load(std::memory_order_acquire), address) || FindMasterBlock(table, address);
}

// The data of a handle that is a master in use, or null for anything else and for a null table. With `skipRange` only
// its word is looked at, which then must be readable. The word is read once, so the answer is a block's address even
// where another thread ends the handle meanwhile.
inline MasterWord FindHandleData(MasterTable* table, const void* handle, bool skipRange)
{
    // An address between two masters would be read as halves of two words, which could look like any data.
    if (table == nullptr || handle == nullptr || reinterpret_cast<uintptr_t>(handle) % sizeof(MasterWord) != 0) {
        return nullptr;
    }
    // Any other memory may hold a word that looks like data, or may not be readable at all.
    if (!skipRange && !IsInMasterBlock(table, handle)) {
        return nullptr;
    }
    // A handle that was disposed holds a link, or 0 where it is being made anew: no data either way.
    const MasterWord word = LoadMaster(static_cast<const MasterWord*>(handle));
    return IsHandleWord(word) ? word : nullptr;
}

// What is wrong with the chain of blocks against its count, following no more links than are counted.
enum class BlockChainState { kSound, kTooMany, kTooFew };
BlockChainState CheckBlockChain(const MasterTable* table) KZ_REQUIRES(gMemoryRights);

// What is wrong with the table, or null when chain, index and count agree, each block is found by readers, and the
// blocks' guards are sound where those are on.
const char* TableFault(const MasterTable* table) KZ_REQUIRES(gMemoryRights);

}  // namespace kz

#endif
