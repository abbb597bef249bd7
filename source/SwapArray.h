// The bytes of each number of an array reversed.
#ifndef KZCORE_SWAPARRAY_H
#define KZCORE_SWAPARRAY_H

#include "KZTypes.h"

namespace kz {

// Copies `count` numbers of `width` bytes, 2, 4, 8 or 16, the bytes of each in reverse; of another width as they are.
// The two may be the same memory, but not overlap otherwise; neither needs alignment. Any thread.
void ReverseEach(const void* source, void* dest, unsigned long count, uInt32 width);

}  // namespace kz

#endif
