// Blocks come one after the other and double in size, from 1 KiB for the many small files to 32 KiB, which is where the
// allocations no longer count. A text that doesn't fit leaves the rest of its block unused for good; one that is larger
// than a block gets one of its own size.

#include "IniArena.h"

#include <stdlib.h>

#include "IniMemory.h"
#include "KzAssert.h"

namespace qkini {

namespace {

constexpr size_t kFirstBlockSize = 1024;
constexpr size_t kGreatestBlockSize = 1 << 15;

// A block with room for `size` bytes, larger than the one before. False when out of memory: nothing changed.
bool AddBlock(Arena* arena, size_t size)
{
    // The last block's size is not kept, because it can be seen from where the block ends.
    const size_t last =
        arena->newest == nullptr ? 0 : static_cast<size_t>(arena->end - reinterpret_cast<char*>(arena->newest));
    const size_t grown = last * 2 < kFirstBlockSize      ? kFirstBlockSize
                         : last * 2 < kGreatestBlockSize ? last * 2
                                                         : kGreatestBlockSize;
    const size_t needed = sizeof(Arena::Block) + size;
    const size_t blockSize = needed > grown ? needed : grown;
    auto* const block = static_cast<Arena::Block*>(Allocate(blockSize));
    if (block == nullptr) {
        return false;
    }
    block->older = arena->newest;
    arena->newest = block;
    arena->at = reinterpret_cast<char*>(block + 1);
    arena->end = reinterpret_cast<char*>(block) + blockSize;
    return true;
}

}  // namespace

char* Arena::Copy(Text text)
{
    const size_t size = text.size + 1;
    KZ_ASSERT(at <= end);
    if (static_cast<size_t>(end - at) < size && !AddBlock(this, size)) {
        return nullptr;
    }
    char* const copy = at;
    memcpy(copy, text.begin, text.size);
    copy[text.size] = 0;
    at += size;
    return copy;
}

const char* Arena::Fault() const
{
    if (newest == nullptr) {
        return at == nullptr && end == nullptr ? nullptr : "an arena without a block has room";
    }
    const bool isInBlock = at >= reinterpret_cast<const char*>(newest + 1) && at <= end;
    return isInBlock ? nullptr : "an arena's room is not in its newest block";
}

void Arena::Clear()
{
    while (newest != nullptr) {
        Block* const older = newest->older;
        free(newest);
        newest = older;
    }
    at = nullptr;
    end = nullptr;
}

}  // namespace qkini
