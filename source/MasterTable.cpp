// Only AddToTable changes the table, under gMemoryRights: a block is put at the head of the chain, then into a new
// index, then into the granules. So a block that a reader finds in one of the three is whole, and stays until
// FreeTables.
//
// No entry can be wrong, only missing: each names a real block, whose range the reader compares with the address. So a
// full slot of the granules, a stale recent block, or no memory for a larger table of granules cost time alone, and the
// index, which knows all blocks, is the one step that a block can't do without.
#include "MasterTable.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>

#include "GuardChecks.h"
#include "KzAssert.h"
#include "MemorySource.h"
#include "ScopedLock.h"

namespace kz {

constinit ThMutex gMemoryRights = nullptr;

static_assert(sizeof(masterBlock) == 80008);
static_assert(std::atomic_ref<MasterWord>::is_always_lock_free);
static_assert(std::atomic_ref<MasterWord>::required_alignment <= alignof(MasterWord));

namespace {

// Frees an index that could not be published.
struct FreeBytes {
    void operator()(void* block) const { std::free(block); }
};
using IndexOwner = std::unique_ptr<MasterBlockIndex, FreeBytes>;

// The blocks of `older` and `block`, in order; null when out of memory.
IndexOwner MakeIndex(const MasterBlockIndex* older, masterBlock* block)
{
    const uInt32 count = (older == nullptr ? 0 : older->count) + 1;
    const std::size_t size = offsetof(MasterBlockIndex, blocks) + count * sizeof(masterBlock*);
    IndexOwner index(static_cast<MasterBlockIndex*>(AllocateBytes(size)));
    // A merge keeps the order without a sort, because the older index has its blocks in order.
    if (index != nullptr) {
        index->older = older;
        index->count = count;
        masterBlock* const* const first = older == nullptr ? nullptr : older->blocks;
        std::merge(first, first + (count - 1), &block, &block + 1, index->blocks, std::less<>());
    }
    return index;
}

// An address without its low bits.
using Granule = uintptr_t;

Granule FirstGranule(const masterBlock* block)
{
    return reinterpret_cast<uintptr_t>(block) >> GranuleTable::kGranuleBits;
}

Granule LastGranule(const masterBlock* block)
{
    return (reinterpret_cast<uintptr_t>(block) + sizeof(masterBlock) - 1) >> GranuleTable::kGranuleBits;
}

// Puts the block into the slots of the granules that it reaches into. A place is taken from a block that does not reach
// into a granule of the slot, as those do that fill the unused places; from one that does, the place is never taken,
// because readers would then search the index for its handles there.
void FillSlots(GranuleTable* granules, masterBlock* block)
{
    for (Granule granule = FirstGranule(block); granule <= LastGranule(block); ++granule) {
        const Granule slot = granule & granules->mask;
        const auto answers = [&](const masterBlock* other) {
            for (Granule each = FirstGranule(other); each <= LastGranule(other); ++each) {
                if ((each & granules->mask) == slot) {
                    return true;
                }
            }
            return false;
        };
        std::atomic<masterBlock*>* const places = granules->slots[slot].blocks;
        const masterBlock* const first = places[0].load(std::memory_order_relaxed);
        const masterBlock* const second = places[1].load(std::memory_order_relaxed);
        if (first == block || second == block) {
            continue;
        }
        if (!answers(first)) {
            places[0].store(block, std::memory_order_release);
        } else if (second == first || !answers(second)) {
            places[1].store(block, std::memory_order_release);
        }
    }
}

// A table of `slots` slots, a power of two, which hold `block` in all their places; null when out of memory.
GranuleTable* MakeGranuleTable(uintptr_t slots, GranuleTable* older, masterBlock* block)
{
    KZ_ASSERT((slots & (slots - 1)) == 0);
    const std::size_t size = offsetof(GranuleTable, slots) + slots * sizeof(GranuleTable::Slot);
    void* const storage = AllocateBytes(size);
    if (storage == nullptr) {
        return nullptr;
    }
    auto* const table = static_cast<GranuleTable*>(storage);
    table->older = older;
    table->mask = slots - 1;
    for (uintptr_t i = 0; i < slots; ++i) {
        for (std::atomic<masterBlock*>& place : table->slots[i].blocks) {
            ::new (&place) std::atomic<masterBlock*>(block);
        }
    }
    return table;
}

// Makes the newest block known to the granules, or to a larger table of them that all blocks are put into. A table
// has at least eight slots for each block, so that few blocks meet in one.
void AddToGranules(MasterTable* table, masterBlock* block) KZ_REQUIRES(gMemoryRights)
{
    constexpr uintptr_t kFirstSlots = 64;
    constexpr uintptr_t kSlotsPerBlock = 8;  // a block reaches into two or three granules
    GranuleTable* const old = table->granules.load(std::memory_order_relaxed);
    if (old != nullptr && table->blockCount * kSlotsPerBlock <= old->mask + 1) {
        FillSlots(old, block);
        return;
    }
    GranuleTable* const larger = MakeGranuleTable(old == nullptr ? kFirstSlots : (old->mask + 1) * 2, old, block);
    if (larger == nullptr) {
        // This is no failure: the crowded table goes on, and the index finds those blocks that have no room in it.
        if (old != nullptr) {
            FillSlots(old, block);
        }
        return;
    }
    for (masterBlock* each = table->blocks; each != nullptr; each = each->next) {
        FillSlots(larger, each);
    }
    table->granules.store(larger, std::memory_order_release);
}

// The last block not above `address`, or null.
masterBlock* FindInIndex(const MasterBlockIndex* index, uintptr_t address)
{
    KZ_ASSERT(index->count != 0);
    // Halves the range without a branch on the outcome, which would be mispredicted for random handles.
    masterBlock* const* base = index->blocks;
    for (uInt32 count = index->count; count > 1;) {
        const uInt32 half = count / 2;
        base += reinterpret_cast<uintptr_t>(base[half]) <= address ? half : 0;
        count -= half;
    }
    return reinterpret_cast<uintptr_t>(*base) <= address ? *base : nullptr;
}

}  // namespace

masterBlock* FindIndexedBlock(const MasterTable* table, const void* address)
{
    const MasterBlockIndex* const index = table->index.load(std::memory_order_acquire);
    if (index == nullptr) {
        return nullptr;
    }
    masterBlock* const block = FindInIndex(index, reinterpret_cast<uintptr_t>(address));
    return IsInBlock(block, address) ? block : nullptr;
}

bool FindMasterBlock(MasterTable* table, const void* handle)
{
    if (IsInBlock(table->recent[0].load(std::memory_order_acquire), handle) ||
        IsInBlock(table->recent[1].load(std::memory_order_acquire), handle)) {
        return true;
    }
    masterBlock* const block = FindIndexedBlock(table, handle);
    if (block == nullptr) {
        return false;
    }
    // Only a block that has the address becomes a recent one: a liar's address leaves no trace here.
    // The order is relaxed and two threads may pick the same place, because which of the two is replaced matters for
    // speed only.
    const uInt32 pick = table->pick.load(std::memory_order_relaxed);
    table->recent[pick & 1].store(block, std::memory_order_release);
    table->pick.store(pick + 1, std::memory_order_relaxed);
    return true;
}

bool AddToTable(MasterTable* table, masterBlock* block)
{
    KZ_ASSERT(block != nullptr && FindIndexedBlock(table, block->masters) == nullptr);
    // The index is made first, because it alone can fail.
    IndexOwner index = MakeIndex(table->index.load(std::memory_order_relaxed), block);
    if (index == nullptr) {
        return false;
    }
    // Readers come by the index and the granules, which therefore are last.
    block->next = table->blocks;
    table->blocks = block;
    ++table->blockCount;
    table->index.store(index.release(), std::memory_order_release);
    AddToGranules(table, block);
    return true;
}

// This takes no lock, because nothing uses the table any more and a block's damaged guards are reported on the way.
void FreeTables(MasterTable* table) KZ_NO_THREAD_CHECK
{
    for (const MasterBlockIndex* index = table->index.load(std::memory_order_relaxed); index != nullptr;) {
        const MasterBlockIndex* const older = index->older;
        std::free(const_cast<MasterBlockIndex*>(index));
        index = older;
    }
    for (GranuleTable* granules = table->granules.load(std::memory_order_relaxed); granules != nullptr;) {
        GranuleTable* const older = granules->older;
        std::free(granules);
        granules = older;
    }
    for (masterBlock* block = table->blocks; block != nullptr;) {
        masterBlock* const next = block->next;
        // A block with damaged guards is told of and left, as every other pointer block with such guards is.
        if (PtrGuardsPass(block)) {
            FreeTable(block);
        }
        block = next;
    }
}

masterBlock* NewestBlock(const MasterTable* table)
{
    ScopedLock lock(gMemoryRights);
    return table->blocks;
}

BlockChainState CheckBlockChain(const MasterTable* table)
{
    // A chain that a stray write has closed to a circle has too many blocks as well, so the walk ends.
    uInt32 count = 0;
    for (const masterBlock* block = table->blocks; block != nullptr; block = block->next) {
        if (++count > table->blockCount) {
            return BlockChainState::kTooMany;
        }
    }
    return count < table->blockCount ? BlockChainState::kTooFew : BlockChainState::kSound;
}

namespace {

// Whether a block begins at this address, which need not be readable.
bool IsBlock(const MasterBlockIndex* index, const masterBlock* block)
{
    return index != nullptr && FindInIndex(index, reinterpret_cast<uintptr_t>(block)) == block;
}

// Anything but a block in a place of the granules would let a reader take any address there for a master.
const char* GranulesFault(const GranuleTable* granules, const MasterBlockIndex* index)
{
    for (uintptr_t i = 0; granules != nullptr && i <= granules->mask; ++i) {
        for (const std::atomic<masterBlock*>& place : granules->slots[i].blocks) {
            if (!IsBlock(index, place.load(std::memory_order_relaxed))) {
                return "a slot of the granules holds no block";
            }
        }
    }
    return nullptr;
}

}  // namespace

const char* TableFault(const MasterTable* table)
{
    switch (CheckBlockChain(table)) {
        case BlockChainState::kTooMany:
            return "more blocks in the chain than counted";
        case BlockChainState::kTooFew:
            return "fewer blocks in the chain than counted";
        case BlockChainState::kSound:
            break;
    }
    // The index is what every block is found by, so the two must name the same blocks, no more and no fewer.
    const MasterBlockIndex* const index = table->index.load(std::memory_order_relaxed);
    if (index != nullptr && index->count != table->blockCount) {
        return "more or fewer blocks in the index than counted";
    }
    for (const masterBlock* block = table->blocks; block != nullptr; block = block->next) {
        if (PtrGuardsSize() != 0 && !GuardsAreSound(block, false)) {
            return "the guards of a block of masters are damaged";
        }
        if (!IsBlock(index, block)) {
            return "a block is not in the index";
        }
    }
    for (const std::atomic<masterBlock*>& recent : table->recent) {
        const masterBlock* const block = recent.load(std::memory_order_relaxed);
        if (block != nullptr && !IsBlock(index, block)) {
            return "a recent block is no block";
        }
    }
    return GranulesFault(table->granules.load(std::memory_order_relaxed), index);
}

}  // namespace kz
