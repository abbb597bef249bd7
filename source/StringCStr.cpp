// Comparisons take two ways. Whether texts are equal is what the C library tells fastest, so it is asked first; of a
// difference it promises no more than the sign, but callers get the distance of two bytes, so that texts that differ
// are gone through again, up to the place where they do.
//
// Case is of two kinds, which don't mix. Single bytes, and all caseless comparisons, follow the C library's locale.
// StrToUpper and StrToLower map whole UTF-8 text by Unicode's tables, in every locale alike. They change text in place
// and take memory only for text over 255 bytes that isn't ASCII. The hash of short counted strings relies on that,
// because it can't fail.
#include "StringCStr.h"

#include <strings.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "ByteCompare.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "Literals.h"
#include "MemoryManager.h"
#include "Report.h"
#include "Utf8Case.h"
#include "Utf8Codec.h"

namespace {

constexpr char kModule[] = "source/StringCStr";
constexpr std::size_t kNoLimit = static_cast<std::size_t>(-1);

// Characters come as int32, from callers to whom `char` is signed as well as from others.
unsigned char LowByte(int32 c)
{
    return static_cast<unsigned char>(c);
}

// The bytes that take part when two C strings are compared: the shorter one's text and its terminator, or the limit.
// The second search ends where the first string did, so that a short string against a long one costs little.
std::size_t ComparedBytes(const unsigned char* a, const unsigned char* b, std::size_t limit)
{
    const std::size_t aLen = strnlen(kz::AsChars(a), limit);
    const std::size_t shorter = strnlen(kz::AsChars(b), aLen);
    return std::min(shorter + 1, limit);
}

// The folding of comparisons that heed case.
struct AsItIs {
    unsigned char operator()(unsigned char c) const { return c; }
    bool MapsAsciiLetters() const { return false; }
};

// The index of the first bytes of two C strings that differ when folded; one of the terminator, or the limit, where
// none do. Few texts are alike for long, so the first bytes are looked at before the ends are searched.
template <typename Fold>
std::size_t DifferenceWithin(const unsigned char* a, const unsigned char* b, std::size_t limit, const Fold& fold)
{
    constexpr std::size_t kNear = 32;
    for (std::size_t i = 0; i < kNear; ++i) {
        if (i == limit || a[i] == 0 || (a[i] != b[i] && fold(a[i]) != fold(b[i]))) {
            return i;
        }
    }
    const std::size_t n = ComparedBytes(a, b, limit);
    KZ_ASSERT(n >= kNear);  // neither string has ended among the first bytes
    return std::min(kz::FirstFoldedDifference(a, b, n, fold), n == limit ? limit : n - 1);
}

// The result where the first bytes differ, folded when neither string ends there.
template <typename Fold>
int32 CompareWithin(const char* a, const char* b, std::size_t limit, const Fold& fold)
{
    const unsigned char* const aBytes = kz::AsBytes(a);
    const unsigned char* const bBytes = kz::AsBytes(b);
    const std::size_t i = DifferenceWithin(aBytes, bBytes, limit, fold);
    KZ_ASSERT(i <= limit);
    if (i == limit) {
        return 0;
    }
    // A prefix is below the longer text by that text's next byte, and a longer text above its prefix by 1. The rule is
    // lopsided, but it is what callers were promised.
    if (aBytes[i] == 0) {
        return -bBytes[i];
    }
    return bBytes[i] == 0 ? 1 : fold(aBytes[i]) - fold(bBytes[i]);
}

bool IsBlank(char c)
{
    return c == ' ' || c == '\t';
}

// Whether s begins with pattern, folded, when the blanks of s are left out.
bool BeginsWithSkippingBlanks(const char* s, const char* pattern)
{
    for (; *pattern != 0; ++pattern, ++s) {
        while (IsBlank(*s)) {
            ++s;
        }
        if (*s == 0 || ToLower(*s) != ToLower(*pattern)) {
            return false;
        }
    }
    return true;
}

// The case of ASCII text, whose letters from `first` on change sides; false, with nothing done, for any other text.
bool MapAsciiCase(unsigned char* bytes, std::size_t length, unsigned char first)
{
    unsigned char all = 0;
    for (std::size_t i = 0; i < length; ++i) {
        all |= bytes[i];
    }
    if (all >= 0x80) {
        return false;
    }
    for (std::size_t i = 0; i < length; ++i) {
        const bool changes = static_cast<unsigned char>(bytes[i] - first) < 26;
        bytes[i] = static_cast<unsigned char>(bytes[i] ^ (changes ? 0x20 : 0));
    }
    return true;
}

// Short texts are copied to the stack, so that their mapping can't fail. The copy is needed because a mapped text can
// outgrow what has been read of the old one.
KzErr MapCase(unsigned char* bytes, int32 length, unsigned char firstLetter, const kz::CaseMapping& mapping)
{
    const std::size_t size = static_cast<std::size_t>(std::max(length, 0));  // a negative length is none
    if (MapAsciiCase(bytes, size, firstLetter)) {
        return kzErrNone;
    }
    unsigned char few[kz::kMostInPStr];
    const bool isShort = size <= sizeof few;
    const std::unique_ptr<unsigned char[]> many(isShort ? nullptr : new (std::nothrow) unsigned char[size]);
    unsigned char* const copy = isShort ? few : many.get();
    if (copy == nullptr) {
        return kzErrMemoryFull;
    }
    std::memcpy(copy, bytes, size);
    kz::MapUtf8Case(mapping, copy, size, bytes);
    return kzErrNone;
}

}  // namespace

constinit unsigned char gUseUTF8 = 0;
constinit unsigned char gDecimalPoint = '.';

int32 StrGetDecimalPoint()
{
    return gDecimalPoint;
}

void StrSetDecimalPoint(int32 c)
{
    gDecimalPoint = LowByte(c);
}

uInt32 StrLen(const char* s)
{
    return static_cast<uInt32>(std::strlen(s));
}

// Copies go through MoveBlock, since source and destination may overlap, and so that a host's memory check sees them.
char* StrCpy(char* dst, const char* src)
{
    MoveBlock(src, dst, std::strlen(src) + 1);
    return dst;
}

char* StrNCpy(char* dst, const char* src, uInt32 n)
{
    const std::size_t length = strnlen(src, n);
    MoveBlock(src, dst, length);
    std::memset(dst + length, 0, n - length);
    return dst;
}

uInt32 StrCat(char* dst, const char* src)
{
    const std::size_t dstLength = std::strlen(dst);
    const std::size_t srcLength = std::strlen(src);
    MoveBlock(src, dst + dstLength, srcLength);
    dst[dstLength + srcLength] = 0;
    return static_cast<uInt32>(dstLength + srcLength);
}

// The C library tells fastest whether two texts are equal, but of a difference it promises the sign only.
int32 StrCmp(const char* a, const char* b)
{
    return std::strcmp(a, b) == 0 ? 0 : CompareWithin(a, b, kNoLimit, AsItIs());
}

KzBool StrEqual(const char* a, const char* b)
{
    return std::strcmp(a, b) == 0;
}

int32 StrNCmp(const char* a, const char* b, uInt32 n)
{
    return std::strncmp(a, b, n) == 0 ? 0 : CompareWithin(a, b, n, AsItIs());
}

KzBool StrNEqual(const char* a, const char* b, uInt32 n)
{
    return std::strncmp(a, b, n) == 0;
}

int32 StrCaseCmp(const char* a, const char* b)
{
    if (strcasecmp(a, b) == 0) {
        return 0;
    }
    const kz::LocaleLower lower;
    const std::size_t i = DifferenceWithin(kz::AsBytes(a), kz::AsBytes(b), kNoLimit, lower);
    return ToLower(a[i]) - ToLower(b[i]);
}

int32 StrNCaseCmp(const char* a, const char* b, uInt32 n)
{
    return strncasecmp(a, b, n) == 0 ? 0 : CompareWithin(a, b, n, kz::LocaleLower());
}

KzBool StrNCaseEqual(const char* a, const char* b, uInt32 n)
{
    return StrNCaseCmp(a, b, n) == 0;
}

char* StrChr(const char* s, int32 c)
{
    return LowByte(c) == 0 ? nullptr : const_cast<char*>(std::strchr(s, LowByte(c)));
}

char* StrRChr(const char* s, int32 c)
{
    return LowByte(c) == 0 ? nullptr : const_cast<char*>(std::strrchr(s, LowByte(c)));
}

KzBool StrIStr(const char* s, const char* pattern)
{
    if (*pattern == 0) {
        return *s != 0;
    }
    for (; *s != 0; ++s) {
        // From a blank the search would only go on to the byte behind it.
        if (!IsBlank(*s) && BeginsWithSkippingBlanks(s, pattern)) {
            return 1;
        }
    }
    return 0;
}

char HexChar(int32 n)
{
    return "0123456789ABCDEF"[n & 15];
}

KzBool IsAlpha(int32 c)
{
    const int lower = LowByte(c) | 0x20;
    return lower >= 'a' && lower <= 'z';
}

KzBool IsDigit(int32 c)
{
    return LowByte(c) >= '0' && LowByte(c) <= '9';
}

KzBool IsPunct(int32 c)
{
    const int byte = LowByte(c);
    return byte >= 33 && byte <= 126 && !IsAlpha(byte) && !IsDigit(byte);
}

int32 ToUpper(int32 c)
{
    return LowByte(std::toupper(LowByte(c)));
}

int32 ToLower(int32 c)
{
    return kz::LowerByte(LowByte(c));
}

KzBool IsLower(int32 c)
{
    return ToUpper(c) != LowByte(c);
}

KzBool IsUpper(int32 c)
{
    return ToLower(c) != LowByte(c);
}

KzErr StrToUpper(unsigned char* bytes, int32 length)
{
    return MapCase(bytes, length, 'a', kz::kToUpper);
}

KzErr StrToLower(unsigned char* bytes, int32 length)
{
    return MapCase(bytes, length, 'A', kz::kToLower);
}

int32 StrNextChar(const char* buffer, int32 index)
{
    // The lead byte begins with as many ones as its character has bytes. A single one marks a continuation, seven and
    // eight mark nothing. The sum is made in 64 bits because the index may be the greatest there is.
    const int leadingOnes = std::countl_one(kz::AsBytes(buffer)[index]);
    const int64 next = int64{index} + (leadingOnes >= 2 && leadingOnes <= 6 ? leadingOnes : 1);
    return static_cast<int32>(std::min<int64>(next, std::numeric_limits<int32>::max()));
}

int32 StrPrevChar(const char* buffer, int32 index)
{
    if (index < 0) {
        KZ_REPORT(kDbgWarning, 0x3D52A9C1) << "Negative index into string in StrPrevChar";
        return 0;
    }
    if (index == 0) {
        return 0;
    }
    // The walk back may pass any number of continuation bytes, but counts only where a lead byte ends it: without one
    // those bytes are no character, and a step is a byte.
    int32 start = index - 1;
    while (start > 0 && kz::IsUtf8Continuation(static_cast<unsigned char>(buffer[start]))) {
        --start;
    }
    return (buffer[start] & 0xC0) == 0xC0 ? start : index - 1;
}
