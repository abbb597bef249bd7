// What looks at all of the memory at once, for tests and for builds with assertions. A fixture ends with MemoryFault
// and LiveHandleCount.
#ifndef KZCORE_MEMORYCHECKS_H
#define KZCORE_MEMORYCHECKS_H

#include "KZTypes.h"

namespace kz {

// The handles that exist at this moment, those in the making too. Any thread.
uInt32 LiveHandleCount();

// What is wrong with the tables of handles, a handle's header or guards, or the cache of freed blocks, or null when all
// is sound; null also while the memory service does not run. Looks at each handle, so no other thread may make, resize
// or dispose one meanwhile.
const char* MemoryFault();

// In builds with assertions: whether each call that changes a handle ends with MemoryFault and reports what that finds
// at level 4, or at most with a part of it that costs little (the default). Any thread.
void WalkMemoryAtEachCall(bool walk);
bool IsWalkingMemory();

}  // namespace kz

#endif
