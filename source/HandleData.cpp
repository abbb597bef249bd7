#include "HandleData.h"

#include <cstdlib>

namespace kz {

unsigned char* AllocateHandleData(unsigned long size, HandleAlignment align, Fill fill, unsigned long* blockSize)
{
    const unsigned long guard = HandleGuardSize();
    *blockSize = HandleBlockSize(size, align, guard);
    auto* const block = *blockSize == 0 ? nullptr : static_cast<unsigned char*>(AllocateBytes(*blockSize, fill));
    return block == nullptr ? nullptr : LayOutHandle(block, size, align, guard);
}

void FreeHandleData(unsigned char* data)
{
    std::free(HandleDataPlace(data, HandleGuardSize()).block);
}

}  // namespace kz
