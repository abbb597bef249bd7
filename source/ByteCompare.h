// The comparisons that all string families share.
#ifndef KZCORE_BYTECOMPARE_H
#define KZCORE_BYTECOMPARE_H

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "ByteOrder.h"
#include "KZTypes.h"
#include "PlatformLocale.h"

namespace kz {

// The index of the first byte in which a and b differ, or n. The C library's comparison is the fastest for equal
// texts, but doesn't tell the place of a difference. Of no bytes the addresses may be null.
inline std::size_t FirstDifference(const unsigned char* a, const unsigned char* b, std::size_t n)
{
    if (n == 0 || std::memcmp(a, b, n) == 0) {
        return n;
    }
    std::size_t i = 0;
    for (; n - i >= 8; i += 8) {
        const uInt64 difference = LoadNative<uInt64>(a + i) ^ LoadNative<uInt64>(b + i);
        if (difference != 0) {
            return i + static_cast<std::size_t>(__builtin_ctzll(difference)) / 8;
        }
    }
    while (i < n && a[i] == b[i]) {
        ++i;
    }
    return i;
}

// 16 bytes that the compiler handles in one register.
typedef unsigned char ByteBlock __attribute__((vector_size(16)));

inline ByteBlock LoadBlock(const unsigned char* p)
{
    ByteBlock block;
    std::memcpy(&block, p, sizeof block);
    return block;
}

// Whether no bit is set.
inline bool IsClear(ByteBlock block)
{
    uInt64 halves[2];
    std::memcpy(halves, &block, sizeof halves);
    return (halves[0] | halves[1]) == 0;
}

// Whether two blocks are equal but for the case of ASCII letters.
inline bool BlocksEqualAsciiFolded(const unsigned char* a, const unsigned char* b)
{
    const ByteBlock blockA = LoadBlock(a);
    const ByteBlock difference = blockA ^ LoadBlock(b);
    const ByteBlock letters = (blockA | 0x20) - 'a';
    const ByteBlock isLetter = reinterpret_cast<ByteBlock>(letters < 26);
    return IsClear(difference & ~(isLetter & 0x20));
}

// The index of the first byte in which a and b differ after `fold`, which maps a byte to a byte; or n. Long texts go
// by blocks as far as ASCII letters explain their differences.
template <typename Fold>
inline std::size_t FirstFoldedDifference(const unsigned char* a, const unsigned char* b, std::size_t n,
                                         const Fold& fold)
{
    std::size_t i = FirstDifference(a, b, n);
    if (n - i >= sizeof(ByteBlock) && fold.MapsAsciiLetters()) {
        while (n - i >= sizeof(ByteBlock) && BlocksEqualAsciiFolded(a + i, b + i)) {
            i += sizeof(ByteBlock);
        }
    }
    while (i < n && (a[i] == b[i] || fold(a[i]) == fold(b[i]))) {
        ++i;
    }
    return i;
}

// The C library's mapping of a byte to lower case in the current locale.
inline unsigned char LowerByte(unsigned char c)
{
    return LocaleLower()(c);
}

// The difference of the first two bytes that differ, else of the lengths.
inline int32 CompareBytes(const unsigned char* a, int32 aLen, const unsigned char* b, int32 bLen)
{
    const std::size_t n = static_cast<std::size_t>(std::min(aLen, bLen));
    const std::size_t i = FirstDifference(a, b, n);
    return i < n ? a[i] - b[i] : aLen - bLen;
}

// The same, folded by LowerByte.
inline int32 CompareFolded(const unsigned char* a, int32 aLen, const unsigned char* b, int32 bLen)
{
    const LocaleLower lower;
    const std::size_t n = static_cast<std::size_t>(std::min(aLen, bLen));
    const std::size_t i = FirstFoldedDifference(a, b, n, lower);
    return i < n ? lower(a[i]) - lower(b[i]) : aLen - bLen;
}

}  // namespace kz

#endif
