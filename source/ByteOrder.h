// Scalars in a fixed byte order, inlined: for code of the library that knows the order of what it reads and writes.
// Where a caller chooses the order, the byte order objects do the same behind virtual calls.
//
// Addresses need no alignment. The bytes are copied, because a cast would tell the compiler of an alignment that isn't
// there; the compiler makes a single load or store of the copy.
#ifndef KZCORE_BYTEORDER_H
#define KZCORE_BYTEORDER_H

#include <bit>
#include <cstring>
#include <type_traits>

#include "KZTypes.h"

// Stated here for the whole library: no other place asks for the order or has a branch for the other one, because
// nothing could run such a branch.
static_assert(std::endian::native == std::endian::little, "the library is written for little-endian hosts");

namespace kz {

// The bytes of a value in reverse order.
inline uInt16 ReverseBytes(uInt16 value)
{
    return __builtin_bswap16(value);
}
inline uInt32 ReverseBytes(uInt32 value)
{
    return __builtin_bswap32(value);
}
inline uInt64 ReverseBytes(uInt64 value)
{
    return __builtin_bswap64(value);
}

// The integer of type T at an address without alignment, in host order.
template <typename T>
inline T LoadNative(const void* source)
{
    static_assert(std::is_integral_v<T>);
    T value;
    std::memcpy(&value, source, sizeof value);
    return value;
}

// Puts the integer there.
template <typename T>
inline void StoreNative(void* dest, T value)
{
    static_assert(std::is_integral_v<T>);
    std::memcpy(dest, &value, sizeof value);
}

// The same for big-endian memory; T is uInt16, uInt32 or uInt64, or their signed kin.
template <typename T>
inline T LoadBig(const void* source)
{
    return static_cast<T>(ReverseBytes(LoadNative<std::make_unsigned_t<T>>(source)));
}

template <typename T>
inline void StoreBig(void* dest, T value)
{
    StoreNative(dest, ReverseBytes(static_cast<std::make_unsigned_t<T>>(value)));
}

}  // namespace kz

// The four bytes of a 32-bit value in reverse order: turns a big-endian count of a stored list into a native one.
inline int32 RevBL(int32 value)
{
    return static_cast<int32>(kz::ReverseBytes(static_cast<uInt32>(value)));
}

#endif
