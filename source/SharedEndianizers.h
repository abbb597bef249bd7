// The three shared byte order objects as the library sees them: which object is one of them, and the scalars that they
// read and write, without a call. The typed reader and writer go this way because two virtual calls for each scalar
// cost several times what the move of its bytes costs.
//
// A byte order object of the host's own is always called, since its operations may do anything.
#ifndef KZCORE_SHAREDENDIANIZERS_H
#define KZCORE_SHAREDENDIANIZERS_H

#include "ByteOrder.h"

class Endianizer;

namespace kz {

// Places the three objects, as far as they are missing, while no other thread uses or places them.
void PlaceEndianizers();

// Whether the object is one of the three; null is none.
bool IsSharedEndianizer(const Endianizer* endianizer);

// The scalar that one of the three has at an address without alignment. T is an unsigned integer; `isBig` tells the
// big-endian object from the other two, which differ in extended floats only.
template <typename T>
inline T LoadShared(const void* source, bool isBig)
{
    // A byte has no order, and LoadBig no form for it.
    if constexpr (sizeof(T) == 1) {
        return LoadNative<T>(source);
    } else {
        return isBig ? LoadBig<T>(source) : LoadNative<T>(source);
    }
}

// Stores a scalar as one of the three does; T and `isBig` as in LoadShared.
template <typename T>
inline void StoreShared(void* dest, T value, bool isBig)
{
    if constexpr (sizeof(T) == 1) {
        StoreNative(dest, value);
    } else {
        isBig ? StoreBig(dest, value) : StoreNative(dest, value);
    }
}

}  // namespace kz

#endif
