#include "HandleLayout.h"

#include <cstdlib>

namespace kz {

unsigned char* AllocateHandleData(unsigned long size, HandleAlignment align, Fill fill, unsigned long* blockSize)
{
    const unsigned long guard = HandleGuardSize();
    *blockSize = HandleBlockSize(size, align, guard);
    if (*blockSize == 0) {
        return nullptr;
    }
    // A byte more for no data, because the data's address would else be the end of the block, where another one may
    // begin: who looks whether an address is that of the handle's data would take that block for it.
    auto* const block = static_cast<unsigned char*>(AllocateBytes(*blockSize + (size == 0 ? 1 : 0), fill));
    return block == nullptr ? nullptr : LayOutHandle(block, size, align, guard);
}

void FreeHandleData(unsigned char* data)
{
    std::free(HandleDataPlace(data).block);
}

}  // namespace kz
