#include "MemoryZone.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>

#include "GuardBytes.h"
#include "HandleData.h"
#include "LiveCount.h"
#include "MemoryManager.h"
#include "ScopedLock.h"

namespace kz {

constinit std::atomic<AllocateProc> gAllocateProc{&std::malloc};
constinit std::atomic<AllocateZerosProc> gAllocateZerosProc{&std::calloc};
constinit std::atomic<MemZoneRec*> gMemZone{nullptr};
constinit ThMutex gMemoryRights = nullptr;

static_assert(sizeof(masterBlock) == 80008);
static_assert(std::atomic_ref<MasterWord>::is_always_lock_free);
static_assert(std::atomic_ref<MasterWord>::required_alignment <= alignof(MasterWord));

namespace {

struct FreeBytes {
    void operator()(void* block) const { std::free(block); }
};
using IndexOwner = std::unique_ptr<MasterBlockIndex, FreeBytes>;

// The word of a free master whose successor in the chain is `next`, which may be null, and back.
MasterWord LinkTo(const MasterWord* next)
{
    return reinterpret_cast<MasterWord>(reinterpret_cast<uintptr_t>(next) | 1);
}

MasterWord* LinkedMaster(MasterWord link)
{
    return reinterpret_cast<MasterWord*>(reinterpret_cast<uintptr_t>(link) & ~uintptr_t{1});
}

// The blocks of `older` and `block`, in order; null when out of memory.
IndexOwner MakeIndex(const MasterBlockIndex* older, masterBlock* block)
{
    const uInt32 count = (older == nullptr ? 0 : older->count) + 1;
    const std::size_t size = offsetof(MasterBlockIndex, blocks) + count * sizeof(masterBlock*);
    IndexOwner index(static_cast<MasterBlockIndex*>(AllocateBytes(size)));
    if (index != nullptr) {
        index->older = older;
        index->count = count;
        masterBlock* const* const first = older == nullptr ? nullptr : older->blocks;
        std::merge(first, first + (count - 1), &block, &block + 1, index->blocks, std::less<>());
    }
    return index;
}

using Granule = uintptr_t;

Granule FirstGranule(const masterBlock* block)
{
    return reinterpret_cast<uintptr_t>(block) >> GranuleTable::kGranuleBits;
}

Granule LastGranule(const masterBlock* block)
{
    return (reinterpret_cast<uintptr_t>(block) + sizeof(masterBlock) - 1) >> GranuleTable::kGranuleBits;
}

// Puts the block into the slots of the granules that it reaches into, where they have a place that answers for nothing.
void FillSlots(GranuleTable* table, masterBlock* block)
{
    for (Granule granule = FirstGranule(block); granule <= LastGranule(block); ++granule) {
        const Granule slot = granule & table->mask;
        const auto answers = [&](const masterBlock* other) {
            for (Granule each = FirstGranule(other); each <= LastGranule(other); ++each) {
                if ((each & table->mask) == slot) {
                    return true;
                }
            }
            return false;
        };
        std::atomic<masterBlock*>* const places = table->slots[slot].blocks;
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

// A table that knows `block` alone.
GranuleTable* MakeGranuleTable(uintptr_t slots, GranuleTable* older, masterBlock* block)
{
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

// Makes the block known to the table, or to a larger one that all blocks are put into. Without memory for that the
// old one goes on: it tells of fewer blocks.
void AddToGranules(MemZoneRec* zone, masterBlock* block)
{
    constexpr uintptr_t kFirstSlots = 64;
    constexpr uintptr_t kSlotsPerBlock = 8;  // a block reaches into two or three granules
    GranuleTable* const old = zone->granules.load(std::memory_order_relaxed);
    if (old != nullptr && zone->blockCount * kSlotsPerBlock <= old->mask + 1) {
        FillSlots(old, block);
        return;
    }
    GranuleTable* const table = MakeGranuleTable(old == nullptr ? kFirstSlots : (old->mask + 1) * 2, old, block);
    if (table == nullptr) {
        if (old != nullptr) {
            FillSlots(old, block);
        }
        return;
    }
    for (masterBlock* each = zone->blocks; each != nullptr; each = each->next) {
        FillSlots(table, each);
    }
    zone->granules.store(table, std::memory_order_release);
}

// The last block not above `address`, or null.
masterBlock* FindInIndex(const MasterBlockIndex* index, uintptr_t address)
{
    // Halves the range without a branch on the outcome, which would be mispredicted for random handles.
    masterBlock* const* base = index->blocks;
    for (uInt32 count = index->count; count > 1;) {
        const uInt32 half = count / 2;
        base += reinterpret_cast<uintptr_t>(base[half]) <= address ? half : 0;
        count -= half;
    }
    return reinterpret_cast<uintptr_t>(*base) <= address ? *base : nullptr;
}

void* AllocatePtrBlock(unsigned long size, Fill fill)
{
    const unsigned long guards = PtrGuardsSize();
    const unsigned long whole = size + guards;
    void* const block = whole < size ? nullptr : AllocateBytes(whole, fill);
    if (block == nullptr) {
        return nullptr;
    }
    if (MemZoneRec* zone = MemZone()) {
        RaiseCounter(zone, kPointersMade);
    }
    return guards == 0 ? block : InitPtrGuards(block, size);
}

void FreePtrBlock(void* ptr)
{
    std::free(PtrGuardsSize() == 0 ? ptr : GetOrigPtrFromGuardedPtr(ptr));
}

bool AddMasterBlockLocked(MemZoneRec* zone)
{
    auto* const block = static_cast<masterBlock*>(AllocatePtrBlock(sizeof(masterBlock), Fill::kNone));
    if (block == nullptr) {
        return false;
    }
    IndexOwner index = MakeIndex(zone->index.load(std::memory_order_relaxed), block);
    if (index == nullptr) {
        FreePtrBlock(block);
        return false;
    }
    for (uInt32 i = 0; i + 1 < kMastersPerBlock; ++i) {
        block->masters[i] = LinkTo(&block->masters[i + 1]);
    }
    block->masters[kMastersPerBlock - 1] = LinkTo(zone->freeMasters);
    zone->freeMasters = &block->masters[0];
    zone->freeMasterCount += kMastersPerBlock;
    block->next = zone->blocks;
    zone->blocks = block;
    ++zone->blockCount;
    zone->index.store(index.release(), std::memory_order_release);
    AddToGranules(zone, block);
    return true;
}

}  // namespace

void* AllocateZeros(std::size_t size)
{
    // Below a page nothing can stay untouched, and the C library's calloc is slower there: it passes the thread's
    // cache.
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
    void* const ptr = AllocatePtrBlock(size, fill);
    if (ptr != nullptr) {
        CountLive(Live::kPointers, 1);
    }
    return ptr;
}

void FreePtr(void* ptr)
{
    CountLive(Live::kPointers, -1);
    FreePtrBlock(ptr);
}

MemZoneRec* CreateZone()
{
    void* const storage = AllocateBytes(sizeof(MemZoneRec));
    return storage == nullptr ? nullptr : ::new (storage) MemZoneRec;
}

void DestroyZone(MemZoneRec* zone)
{
    for (const MasterBlockIndex* index = zone->index.load(std::memory_order_relaxed); index != nullptr;) {
        const MasterBlockIndex* const older = index->older;
        std::free(const_cast<MasterBlockIndex*>(index));
        index = older;
    }
    for (GranuleTable* table = zone->granules.load(std::memory_order_relaxed); table != nullptr;) {
        GranuleTable* const older = table->older;
        std::free(table);
        table = older;
    }
    for (masterBlock* block = zone->blocks; block != nullptr;) {
        masterBlock* const next = block->next;
        if (PtrGuardsPass(block)) {
            FreePtrBlock(block);
        }
        block = next;
    }
    zone->~MemZoneRec();
    std::free(zone);
}

bool AddMasterBlock(MemZoneRec* zone)
{
    ScopedLock lock(gMemoryRights);
    return AddMasterBlockLocked(zone);
}

namespace {

MasterWord* TakeMasterLocked(MemZoneRec* zone)
{
    if (zone->freeMasters == nullptr && !AddMasterBlockLocked(zone)) {
        return nullptr;
    }
    MasterWord* const master = zone->freeMasters;
    zone->freeMasters = LinkedMaster(LoadMaster(master));
    --zone->freeMasterCount;
    StoreMaster(master, nullptr);
    return master;
}

}  // namespace

MasterWord* TakeMaster(MemZoneRec* zone)
{
    ScopedLock lock(gMemoryRights);
    return TakeMasterLocked(zone);
}

MasterWord* TakeMasterChecked(MemZoneRec* zone, FreeChainState* state)
{
    ScopedLock lock(gMemoryRights);
    *state = CheckFreeChain(zone);
    return *state == FreeChainState::kSound ? TakeMasterLocked(zone) : nullptr;
}

void ReturnMaster(MemZoneRec* zone, MasterWord* master)
{
    ScopedLock lock(gMemoryRights);
    StoreMaster(master, LinkTo(zone->freeMasters));
    zone->freeMasters = master;
    ++zone->freeMasterCount;
}

bool FindMasterBlock(MemZoneRec* zone, const void* handle)
{
    if (IsInBlock(zone->recent[0].load(std::memory_order_acquire), handle) ||
        IsInBlock(zone->recent[1].load(std::memory_order_acquire), handle)) {
        return true;
    }
    const MasterBlockIndex* const index = zone->index.load(std::memory_order_acquire);
    if (index == nullptr) {
        return false;
    }
    masterBlock* const block = FindInIndex(index, reinterpret_cast<uintptr_t>(handle));
    if (!IsInBlock(block, handle)) {
        return false;
    }
    // Relaxed: which of the two slots is replaced is a matter of speed only.
    const uInt32 pick = zone->pick.load(std::memory_order_relaxed);
    zone->recent[pick & 1].store(block, std::memory_order_release);
    zone->pick.store(pick + 1, std::memory_order_relaxed);
    return true;
}

uInt32 LiveHandleCount()
{
    const MemZoneRec* const zone = MemZone();
    ScopedLock lock(gMemoryRights);
    return zone == nullptr ? 0 : zone->blockCount * kMastersPerBlock - zone->freeMasterCount;
}

namespace {

// The index against the chain of blocks.
const char* BlocksFault(const MemZoneRec* zone)
{
    const MasterBlockIndex* const index = zone->index.load(std::memory_order_relaxed);
    uInt32 count = 0;
    for (const masterBlock* block = zone->blocks; block != nullptr; block = block->next) {
        if (++count > zone->blockCount) {
            return "more blocks in the chain than counted";
        }
        if (PtrGuardsSize() != 0 && !GuardsAreSound(block, false)) {
            return "the guards of a block of masters are damaged";
        }
        if (index == nullptr || FindInIndex(index, reinterpret_cast<uintptr_t>(block)) != block) {
            return "a block is not in the index";
        }
    }
    if (count != zone->blockCount || (index != nullptr && index->count != count)) {
        return "fewer blocks in the chain than counted";
    }
    return nullptr;
}

// A free master that a link leads to, or null when the address is none.
const MasterWord* FreeMasterAt(const MemZoneRec* zone, const MasterWord* master)
{
    const MasterBlockIndex* const index = zone->index.load(std::memory_order_relaxed);
    if (index == nullptr || !IsInBlock(FindInIndex(index, reinterpret_cast<uintptr_t>(master)), master) ||
        reinterpret_cast<uintptr_t>(master) % sizeof(MasterWord) != 0) {
        return nullptr;
    }
    return IsFreeLink(LoadMaster(master)) ? master : nullptr;
}

const char* FreeChainFault(const MemZoneRec* zone)
{
    switch (CheckFreeChain(zone)) {
        case FreeChainState::kBadCount:
            return "the free chain is shorter than counted or leaves the free masters";
        case FreeChainState::kNotTerminated:
            return "the free chain is longer than counted";
        case FreeChainState::kSound:
            break;
    }
    return nullptr;
}

const char* HandleFault(unsigned char* data)
{
    const unsigned long guard = HandleGuardSize();
    if (guard != 0 && !GuardsAreSound(data, true)) {
        return "a handle's guards are damaged";
    }
    const HandlePlace place = HandleDataPlace(data, guard);
    const HandleAlignment align = place.align;
    if (align != NormalAlignment(align.alignment, align.offset)) {
        return "a handle's alignment or offset is damaged";
    }
    if ((reinterpret_cast<uintptr_t>(data) + align.offset) % align.alignment != 0) {
        return "a handle's data is not aligned as its header says";
    }
    if (HandleBlockSize(HandleDataSize(data, guard), align, guard) == 0) {
        return "a handle's size is damaged";
    }
    return nullptr;
}

}  // namespace

FreeChainState CheckFreeChain(const MemZoneRec* zone)
{
    if (static_cast<int32>(zone->freeMasterCount) < 0) {
        return FreeChainState::kBadCount;
    }
    const MasterWord* master = zone->freeMasters;
    for (uInt32 i = 0; i < zone->freeMasterCount; ++i) {
        master = FreeMasterAt(zone, master);
        if (master == nullptr) {
            return FreeChainState::kBadCount;
        }
        master = LinkedMaster(LoadMaster(master));
    }
    return master == nullptr ? FreeChainState::kSound : FreeChainState::kNotTerminated;
}

const char* ZoneFault(const MemZoneRec* zone)
{
    ScopedLock lock(gMemoryRights);
    const char* fault = BlocksFault(zone);
    if (fault == nullptr) {
        fault = FreeChainFault(zone);
    }
    uInt32 freeMasters = 0;
    for (const masterBlock* block = zone->blocks; fault == nullptr && block != nullptr; block = block->next) {
        for (const MasterWord& master : block->masters) {
            const MasterWord word = LoadMaster(&master);
            if (IsFreeLink(word)) {
                ++freeMasters;
            } else if (word != nullptr && fault == nullptr) {
                fault = HandleFault(word);
            }
        }
    }
    if (fault == nullptr && freeMasters != zone->freeMasterCount) {
        fault = "free masters outside the free chain";
    }
    return fault;
}

}  // namespace kz
