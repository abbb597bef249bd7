// Numbers with their bytes reversed: one of a width that is known at compile time, or an array of them.
//
// Source and destination may be the same memory, but not overlap otherwise; neither needs alignment. Any thread.
#ifndef KZCORE_SWAPARRAY_H
#define KZCORE_SWAPARRAY_H

#include "ByteOrder.h"

namespace kz {

// Copies one number of the size of T, which is uInt16, uInt32 or uInt64, its bytes in reverse.
template <typename T>
inline void CopyReversed(const void* source, void* dest)
{
    StoreNative(dest, LoadBig<T>(source));
}

// Copies 16 bytes in reverse. Both halves are read before either is written, because the two may be the same memory.
inline void CopyReversed16(const void* source, void* dest)
{
    const auto* const in = static_cast<const unsigned char*>(source);
    auto* const out = static_cast<unsigned char*>(dest);
    const uInt64 first = LoadBig<uInt64>(in);
    const uInt64 second = LoadBig<uInt64>(in + sizeof(uInt64));
    StoreNative(out, second);
    StoreNative(out + sizeof(uInt64), first);
}

// Copies `count` numbers of `width` bytes, the bytes of each in reverse. The width is 2, 4, 8 or 16; numbers of another
// one are copied as they are. Source and destination have `count * width` bytes.
void ReverseEach(const void* source, void* dest, unsigned long count, uInt32 width);

}  // namespace kz

#endif
