// The free masters are a chain through their own words: each holds the address of the next with bit 0 set, the last one
// only that bit. The bit is what a validity test tells a free master by, so it is set and cleared in the same store
// that frees or takes the master, and no reader ever sees a free one as a handle.
//
// The master freed last is taken first, because its word is still in the processor's cache.
#include "MemoryZone.h"

#include <cstdlib>
#include <new>

#include "GuardChecks.h"
#include "HandleLayout.h"
#include "KzAssert.h"
#include "MemorySource.h"
#include "ScopedLock.h"

namespace kz {

constinit std::atomic<MemZoneRec*> gMemZone{nullptr};

namespace {

// The word of a free master whose successor in the chain is `next`, which may be null, and back. Masters stand at even
// addresses, so bit 0 of theirs is free for the mark.
MasterWord LinkTo(const MasterWord* next)
{
    return reinterpret_cast<MasterWord>(reinterpret_cast<uintptr_t>(next) | 1);
}

// Of a word that is no link, because a host wrote through a disposed handle, this makes an address that the checks of
// the chain refuse.
MasterWord* LinkedMaster(MasterWord link)
{
    return reinterpret_cast<MasterWord*>(reinterpret_cast<uintptr_t>(link) & ~uintptr_t{1});
}

bool AddMasterBlockLocked(MemZoneRec* zone) KZ_REQUIRES(gMemoryRights)
{
    auto* const block = static_cast<masterBlock*>(AllocateTable(sizeof(masterBlock)));
    if (block == nullptr) {
        return false;
    }
    // The masters are links before the table knows the block, because a validity test may look at any of them from then
    // on.
    for (uInt32 i = 0; i + 1 < kMastersPerBlock; ++i) {
        block->masters[i] = LinkTo(&block->masters[i + 1]);
    }
    block->masters[kMastersPerBlock - 1] = LinkTo(zone->freeMasters);
    // The block's last link already leads on to the chain, which is unchanged while the table may still refuse.
    if (!AddToTable(zone, block)) {
        FreeTable(block);
        return false;
    }
    zone->freeMasters = &block->masters[0];
    zone->freeMasterCount += kMastersPerBlock;
    KZ_ASSERT_SLOW(TableFault(zone) == nullptr);
    return true;
}

MasterWord* TakeMasterLocked(MemZoneRec* zone) KZ_REQUIRES(gMemoryRights)
{
    if (zone->freeMasters == nullptr && !AddMasterBlockLocked(zone)) {
        return nullptr;
    }
    KZ_ASSERT(zone->freeMasterCount != 0);
    MasterWord* const master = zone->freeMasters;
    zone->freeMasters = LinkedMaster(LoadMaster(master));
    --zone->freeMasterCount;
    StoreMaster(master, nullptr);
    return master;
}

}  // namespace

MemZoneRec* CreateZone()
{
    // The counters are cleared before a zone is there to be asked for them, so that no counts of an earlier life are
    // ever told.
    SetCounters({});
    void* const storage = AllocateBytes(sizeof(MemZoneRec));
    return storage == nullptr ? nullptr : ::new (storage) MemZoneRec;
}

void DestroyZone(MemZoneRec* zone)
{
    KZ_ASSERT(MemZone() != zone);
    FreeTables(zone);
    // The zone is not deleted, because its storage came from AllocateBytes.
    zone->~MemZoneRec();
    std::free(zone);
}

bool AddMasterBlock(MemZoneRec* zone)
{
    ScopedLock lock(gMemoryRights);
    return AddMasterBlockLocked(zone);
}

MasterWord* TakeMaster(MemZoneRec* zone)
{
    ScopedLock lock(gMemoryRights);
    return TakeMasterLocked(zone);
}

MasterWord* TakeMasterChecked(MemZoneRec* zone, FreeChainState* state)
{
    ScopedLock lock(gMemoryRights);
    // A master is not taken off a damaged chain, because the next link could lead anywhere.
    *state = CheckFreeChain(zone);
    return *state == FreeChainState::kSound ? TakeMasterLocked(zone) : nullptr;
}

void ReturnMaster(MemZoneRec* zone, MasterWord* master)
{
    ScopedLock lock(gMemoryRights);
    KZ_ASSERT(!IsFreeLink(LoadMaster(master)));
    StoreMaster(master, LinkTo(zone->freeMasters));
    zone->freeMasters = master;
    ++zone->freeMasterCount;
}

uInt32 TakenMasterCount(const MemZoneRec* zone)
{
    ScopedLock lock(gMemoryRights);
    return zone == nullptr ? 0 : zone->blockCount * kMastersPerBlock - zone->freeMasterCount;
}

namespace {

// A free master that a link leads to, or null when the address is none.
const MasterWord* FreeMasterAt(const MemZoneRec* zone, const MasterWord* master)
{
    // An address outside the blocks, or between two masters, would be read as a link and lead anywhere.
    if (FindIndexedBlock(zone, master) == nullptr || reinterpret_cast<uintptr_t>(master) % sizeof(MasterWord) != 0) {
        return nullptr;
    }
    return IsFreeLink(LoadMaster(master)) ? master : nullptr;
}

const char* FreeChainFault(const MemZoneRec* zone) KZ_REQUIRES(gMemoryRights)
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

// Whether the header of a handle's data can be trusted. Each fault would lead a resize or a disposal astray: it takes
// the block's address from the header, and the alignment from the tag at that address.
const char* HandleFault(unsigned char* data)
{
    const unsigned long guard = HandleGuardSize();
    if (guard != 0 && !GuardsAreSound(data, true)) {
        return "a handle's guards are damaged";
    }
    const auto [size, block, align] = HandleDataPlace(data);
    if (align != NormalAlignment(align.alignment, align.offset)) {
        return "a handle's alignment or offset is damaged";
    }
    if ((reinterpret_cast<uintptr_t>(data) + align.offset) % align.alignment != 0) {
        return "a handle's data is not aligned as its header says";
    }
    if (HandleBlockSize(size, align, guard) == 0) {
        return "a handle's size is damaged";
    }
    return nullptr;
}

}  // namespace

FreeChainState CheckFreeChain(const MemZoneRec* zone)
{
    // Only a stray write can set the count's top bit; the walk would then be long.
    if (static_cast<int32>(zone->freeMasterCount) < 0) {
        return FreeChainState::kBadCount;
    }
    const MasterWord* master = zone->freeMasters;
    // The walk takes no more steps than are counted, so that a chain that a stray write has closed to a circle ends
    // too.
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
    // The walk goes inwards, from blocks to links to headers, because each step believes what the one before has
    // proved.
    ScopedLock lock(gMemoryRights);
    const char* fault = TableFault(zone);
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
    // A chain of the right length may still have left some free masters out, which nothing would ever take again.
    if (fault == nullptr && freeMasters != zone->freeMasterCount) {
        fault = "free masters outside the free chain";
    }
    return fault;
}

}  // namespace kz
