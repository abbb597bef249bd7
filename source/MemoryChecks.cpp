// The zone is walked first and the cache second, each under its own lock and never under both, because the cache's lock
// and gMemoryRights are leaves of the order of locks.
#include "MemoryChecks.h"

#include <atomic>

#include "BufferCache.h"
#include "MemoryZone.h"

namespace kz {

namespace {

constinit std::atomic<bool> gWalkMemory{false};

}  // namespace

uInt32 LiveHandleCount()
{
    return TakenMasterCount(MemZone());
}

const char* MemoryFault()
{
    const MemZoneRec* const zone = MemZone();
    const char* const fault = zone == nullptr ? nullptr : ZoneFault(zone);
    return fault != nullptr ? fault : BufferCacheFault();
}

void WalkMemoryAtEachCall(bool walk)
{
    gWalkMemory.store(walk, std::memory_order_relaxed);
}

bool IsWalkingMemory()
{
    return gWalkMemory.load(std::memory_order_relaxed);
}

}  // namespace kz
