// The zone behind the handles: the table of masters and the chain of the free ones. One zone exists while the memory
// service runs; its lock is gMemoryRights.
#ifndef KZCORE_MEMORYZONE_H
#define KZCORE_MEMORYZONE_H

#include <atomic>

#include "MasterTable.h"

namespace kz {

// Begins with the table, whose readers' part the writers of the free chain don't slow because the two stand on
// different lines of the processor's cache.
struct MemZoneRec : MasterTable {
    char padding[64] = {};
    MasterWord* freeMasters KZ_GUARDED_BY(gMemoryRights) = nullptr;
    uInt32 freeMasterCount KZ_GUARDED_BY(gMemoryRights) = 0;
};

// The one zone; null while the memory service does not run.
extern std::atomic<MemZoneRec*> gMemZone;

inline MemZoneRec* MemZone()
{
    return gMemZone.load(std::memory_order_acquire);
}

// A zone without blocks, and all counters at 0; null when out of memory.
MemZoneRec* CreateZone();

// Frees the zone with its blocks. Nothing may use it any more.
void DestroyZone(MemZoneRec* zone);

// Adds 10,000 free masters. False when out of memory: the zone is unchanged.
bool AddMasterBlock(MemZoneRec* zone);

// The bytes of a block, for the memory-full procedure of one that could not be added.
inline constexpr unsigned long kMasterBlockSize = sizeof(masterBlock);

// What is wrong with the free chain, following at most the links that are counted.
enum class FreeChainState { kSound, kBadCount, kNotTerminated };
FreeChainState CheckFreeChain(const MemZoneRec* zone) KZ_REQUIRES(gMemoryRights);

// Takes a master, which is then 0. Null when there is none and no block can be added.
MasterWord* TakeMaster(MemZoneRec* zone);

// The same after a look at the free chain; null, with what is wrong in `*state`, when that is damaged.
MasterWord* TakeMasterChecked(MemZoneRec* zone, FreeChainState* state);

// Makes the master the first of the free ones. It is in use or taken, and the caller's.
void ReturnMaster(MemZoneRec* zone, MasterWord* master);

// The masters that are not free, those of the handles in use and of the ones that are being made. 0 for null.
uInt32 TakenMasterCount(const MemZoneRec* zone);

// What is wrong with the zone, or null when it is sound: the table is, the free chain holds just the free masters, and
// each handle's header agrees with its place and its guards are whole, where they are on. Takes the lock; for a zone
// whose handles no other thread makes, resizes or disposes meanwhile.
const char* ZoneFault(const MemZoneRec* zone);

}  // namespace kz

#endif
