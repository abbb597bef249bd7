#include "HandleData.h"

#include <cstdlib>

#include "MemoryZone.h"

namespace kz {

unsigned char* AllocateHandleData(unsigned long size, HandleAlignment align, unsigned long* blockSize)
{
    const unsigned long guard = HandleGuardSize();
    *blockSize = HandleBlockSize(size, align, guard);
    auto* const block = *blockSize == 0 ? nullptr : static_cast<unsigned char*>(AllocateBytes(*blockSize));
    if (block == nullptr) {
        return nullptr;
    }
    unsigned char* const data = LayOutHandle(block, size, align, guard);
    if (guard != 0) {
        InitHandleGuards(data);
    }
    return data;
}

void FreeHandleData(unsigned char* data)
{
    std::free(HandleDataPlace(data, HandleGuardSize()).block);
}

}  // namespace kz
