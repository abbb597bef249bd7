// The text of a string handle, and how many things a block really holds of those that it counts.
//
// A block that is counted has two lengths: the count at its start, which any caller can write, and the block's size,
// which the memory manager keeps. Everything that reads such a block goes by the smaller of the two, so that a count
// that lies, or one that is negative, leads nowhere outside the block.
#ifndef KZCORE_HANDLETEXT_H
#define KZCORE_HANDLETEXT_H

#include <algorithm>
#include <cstddef>

#include "ByteOrder.h"
#include "KzAssert.h"
#include "MemoryManager.h"

namespace kz {

// The count of a string or list that is relied on; 0 for null and for a negative one.
template <typename Counted>
int32 CountOf(const Counted* counted)
{
    return counted == nullptr ? 0 : std::max(counted->cnt, 0);
}

// The 32-bit count at the start of a block of `size` bytes, as far as the block holds what it counts: things of `each`
// bytes from the offset `start` on.
inline int32 HeldCount(const void* block, std::size_t size, std::size_t start, std::size_t each)
{
    KZ_ASSERT(start >= sizeof(int32) && each != 0);
    if (size < start) {  // the count itself may be outside
        return 0;
    }
    const std::size_t count = static_cast<std::size_t>(std::max(LoadNative<int32>(block), 0));
    return static_cast<int32>(std::min(count, (size - start) / each));
}

// The same of a handle. None for null, and for a handle that was disposed or damaged, which is reported at level 4.
template <typename Counted>
int32 HeldCount(Counted* const* handle, std::size_t start, std::size_t each)
{
    const std::size_t size = handle == nullptr ? 0 : DSGetHandleSize(handle);
    return size < start ? 0 : HeldCount(*handle, size, start, each);
}

// A view of a text, which ends with the next call that changes or disposes the handle.
struct HandleText {
    const unsigned char* bytes = nullptr;  // null where there is no string
    int32 count = 0;                       // never negative
};

// What the block holds of the text that the count tells; nothing for null, for a block without a count, and for a
// handle that was disposed or damaged, which is reported at level 4. The address of a pointer to a string that is no
// handle's block is accepted too, wherever that string stands, and its count is relied on.
HandleText TextOf(const LStr* const* handle);

// The same without a report: for what may be called while something is being reported, and for a second pass over
// handles that have been reported already.
HandleText QuietTextOf(const LStr* const* handle);

}  // namespace kz

#endif
