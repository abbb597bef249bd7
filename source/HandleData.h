// The blocks behind the handles: from the allocator, laid out, and back to it.
#ifndef KZCORE_HANDLEDATA_H
#define KZCORE_HANDLEDATA_H

#include "GuardBytes.h"
#include "HandleLayout.h"
#include "MemoryZone.h"

namespace kz {

// The data of a new block, with room for its guards where those are on; null when out of memory. `*blockSize` is what
// was asked of the allocator, 0 when that can't be said in an unsigned long. Freed with FreeHandleData.
unsigned char* AllocateHandleData(unsigned long size, HandleAlignment align, Fill fill, unsigned long* blockSize);
void FreeHandleData(unsigned char* data);

inline unsigned long HandleDataSize(const unsigned char* data)
{
    return HandleDataSize(data, HandleGuardSize());
}

inline HandleAlignment HandleDataAlignment(unsigned char* data)
{
    return HandleDataPlace(data, HandleGuardSize()).align;
}

}  // namespace kz

#endif
