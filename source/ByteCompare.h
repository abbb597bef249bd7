// The comparisons that all string families share: where two texts differ, as they are or folded to one case, and from
// that their order. All take bytes as unsigned and text by length; nothing here looks for a terminator.
//
// Most comparisons are of short texts that differ early, or of equal ones. So few bytes are compared inline, by two
// words that may overlap, and many by the C library, which has the widest instructions; the place of a difference in a
// long text is sought only when there is one. Folded comparisons follow the same plan: whole blocks are equal when
// nothing but the case of ASCII letters differs in them, and only what is left is folded byte by byte.
#ifndef KZCORE_BYTECOMPARE_H
#define KZCORE_BYTECOMPARE_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "ByteOrder.h"
#include "KZTypes.h"
#include "KzAssert.h"
#include "PlatformLocale.h"

namespace kz {

// The index in memory of the first byte that is not 0 in what LoadNative gave.
inline std::size_t FirstByteSet(uInt64 word)
{
    KZ_ASSERT(word != 0);
    return static_cast<std::size_t>(std::countr_zero(word)) / 8;
}

// FirstDifference of at most 16 bytes, by two loads of each text that overlap where it isn't twice as long as a word.
// What the second load sees for a second time is known to be equal then.
inline std::size_t FirstDifferenceOfFew(const unsigned char* a, const unsigned char* b, std::size_t n)
{
    KZ_ASSERT(n <= 16);
    if (n >= 8) {
        const uInt64 low = LoadNative<uInt64>(a) ^ LoadNative<uInt64>(b);
        if (low != 0) {
            return FirstByteSet(low);
        }
        const uInt64 high = LoadNative<uInt64>(a + n - 8) ^ LoadNative<uInt64>(b + n - 8);
        return high == 0 ? n : n - 8 + FirstByteSet(high);
    }
    if (n >= 4) {
        const uInt32 low = LoadNative<uInt32>(a) ^ LoadNative<uInt32>(b);
        if (low != 0) {
            return FirstByteSet(low);
        }
        const uInt32 high = LoadNative<uInt32>(a + n - 4) ^ LoadNative<uInt32>(b + n - 4);
        return high == 0 ? n : n - 4 + FirstByteSet(high);
    }
    std::size_t i = 0;
    while (i < n && a[i] == b[i]) {
        ++i;
    }
    return i;
}

// The index of the first byte in which a and b differ, or n. The C library's comparison is the fastest for long equal
// texts, but doesn't tell the place of a difference. Of no bytes the addresses may be null.
inline std::size_t FirstDifference(const unsigned char* a, const unsigned char* b, std::size_t n)
{
    if (n <= 16) {
        return FirstDifferenceOfFew(a, b, n);
    }
    if (std::memcmp(a, b, n) == 0) {
        return n;
    }
    std::size_t i = 0;
    for (; n - i >= 8; i += 8) {
        const uInt64 difference = LoadNative<uInt64>(a + i) ^ LoadNative<uInt64>(b + i);
        if (difference != 0) {
            return i + FirstByteSet(difference);
        }
    }
    while (i < n && a[i] == b[i]) {
        ++i;
    }
    return i;
}

// As memcmp, without its call for few bytes. The sign is what to rely on.
inline int32 OrderOfBytes(const unsigned char* a, const unsigned char* b, std::size_t n)
{
    if (n > 16) {
        return std::memcmp(a, b, n);
    }
    const std::size_t i = FirstDifferenceOfFew(a, b, n);
    return i == n ? 0 : a[i] - b[i];
}

// Whether all bytes are equal. Of no bytes the addresses may be null.
inline bool EqualBytes(const unsigned char* a, const unsigned char* b, std::size_t n)
{
    return n <= 16 ? FirstDifferenceOfFew(a, b, n) == n : std::memcmp(a, b, n) == 0;
}

// 16 bytes that the compiler handles in one register.
typedef unsigned char ByteBlock __attribute__((vector_size(16)));

inline ByteBlock LoadBlock(const unsigned char* p)
{
    ByteBlock block;
    std::memcpy(&block, p, sizeof block);
    return block;
}

// The first and the last 8 of 8 to 16 bytes, which overlap where there are fewer than 16.
inline ByteBlock LoadEnds(const unsigned char* p, std::size_t n)
{
    KZ_ASSERT(n >= 8 && n <= sizeof(ByteBlock));
    const uInt64 halves[2] = {LoadNative<uInt64>(p), LoadNative<uInt64>(p + n - 8)};
    ByteBlock block;
    std::memcpy(&block, halves, sizeof block);
    return block;
}

// Whether no bit is set.
inline bool IsClear(ByteBlock block)
{
    uInt64 halves[2];
    std::memcpy(halves, &block, sizeof halves);
    return (halves[0] | halves[1]) == 0;
}

// Clear where two blocks are equal but for the case of ASCII letters. The cases of a letter differ in the bit 0x20
// alone, and the bytes from 0x80 up are no letters, since the subtraction takes them past 26.
inline ByteBlock AsciiFoldedDifference(ByteBlock a, ByteBlock b)
{
    const ByteBlock letters = (a | 0x20) - 'a';
    const ByteBlock isLetter = reinterpret_cast<ByteBlock>(letters < 26);
    return (a ^ b) & ~(isLetter & 0x20);
}

// From this length on wider blocks pay for the call that they need.
inline constexpr std::size_t kLongText = 64;

// As AsciiFoldedBytes, by the widest blocks that the processor has: a whole number of such blocks from the start, of
// which there may be none, and the rest is the caller's to compare.
std::size_t AsciiFoldedWideBytes(const unsigned char* a, const unsigned char* b, std::size_t n);

// How many bytes from the start are known to be equal but for the case of ASCII letters: up to the block that holds a
// difference, or n. At least 8 bytes.
inline std::size_t AsciiFoldedBytes(const unsigned char* a, const unsigned char* b, std::size_t n)
{
    KZ_ASSERT(n >= 8);
    constexpr std::size_t kBlock = sizeof(ByteBlock);
    if (n < kBlock) {
        return IsClear(AsciiFoldedDifference(LoadEnds(a, n), LoadEnds(b, n))) ? n : 0;
    }
    std::size_t i = n < kLongText ? 0 : AsciiFoldedWideBytes(a, b, n);
    for (; n - i >= kBlock; i += kBlock) {
        if (!IsClear(AsciiFoldedDifference(LoadBlock(a + i), LoadBlock(b + i)))) {
            return i;
        }
    }
    // The rest is compared as a whole block that ends where the texts do, part of which is known to be equal.
    const std::size_t last = n - kBlock;
    return IsClear(AsciiFoldedDifference(LoadBlock(a + last), LoadBlock(b + last))) ? n : i;
}

// The index of the first byte in which a and b differ after `fold`, which maps a byte to a byte; or n. All but the
// shortest texts go by blocks as far as the case of ASCII letters explains their differences. A fold tells by
// MapsAsciiLetters whether it maps the two cases of those letters to the same, which it need not in every locale.
template <typename Fold>
inline std::size_t FirstFoldedDifference(const unsigned char* a, const unsigned char* b, std::size_t n,
                                         const Fold& fold)
{
    std::size_t i = FirstDifference(a, b, n);
    if (n - i >= 8 && fold.MapsAsciiLetters()) {
        i += AsciiFoldedBytes(a + i, b + i, n - i);
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
    KZ_ASSERT(aLen >= 0 && bLen >= 0);
    const std::size_t n = static_cast<std::size_t>(std::min(aLen, bLen));
    const std::size_t i = FirstDifference(a, b, n);
    return i < n ? a[i] - b[i] : aLen - bLen;
}

// The same, folded by LowerByte, whose table is looked up once for the whole comparison.
inline int32 CompareFolded(const unsigned char* a, int32 aLen, const unsigned char* b, int32 bLen)
{
    KZ_ASSERT(aLen >= 0 && bLen >= 0);
    const LocaleLower lower;
    const std::size_t n = static_cast<std::size_t>(std::min(aLen, bLen));
    const std::size_t i = FirstFoldedDifference(a, b, n, lower);
    return i < n ? lower(a[i]) - lower(b[i]) : aLen - bLen;
}

}  // namespace kz

#endif
