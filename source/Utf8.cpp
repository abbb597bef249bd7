#include "Utf8.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "Utf8Codec.h"

namespace {

using kz::IsUtf8Continuation;

// The length that the first byte of a sequence tells, in the scheme of up to 6 bytes that UTF-8 once had.
constexpr std::ptrdiff_t SequenceLength(unsigned char lead)
{
    return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : lead < 0xFC ? 5 : 6;
}

constexpr bool StartsNoCharacter(unsigned char lead)
{
    return (lead >= 0x80 && lead < 0xC2) || lead > 0xF4;
}

// The next four bytes, the first one on top. In place of those behind the end stands zero, which continues nothing.
inline uInt32 NextBytes(const unsigned char* bytes, std::ptrdiff_t left)
{
    const auto byte = [=](int i) { return i < left ? uInt32{bytes[i]} << (24 - 8 * i) : 0; };
    return byte(0) | byte(1) | byte(2) | byte(3);
}

// The length of the well-formed character that the bytes begin with, whose value is stored, or 0. Forms longer than
// needed, surrogates and values that are too high show in the value, as the rows of table 3-7 shut them out.
inline std::ptrdiff_t WellFormedCharacter(uInt32 bytes, uInt32& value)
{
    if (bytes < 0x80000000) {
        value = bytes >> 24;
        return 1;
    }
    if ((bytes & 0xE0C00000) == 0xC0800000) {
        value = (bytes >> 18 & 0x7C0) | (bytes >> 16 & 0x3F);
        return value >= 0x80 ? 2 : 0;
    }
    if ((bytes & 0xF0C0C000) == 0xE0808000) {
        value = (bytes >> 12 & 0xF000) | (bytes >> 10 & 0xFC0) | (bytes >> 8 & 0x3F);
        return value >= 0x800 && (value & 0xF800) != 0xD800 ? 3 : 0;
    }
    if ((bytes & 0xF8C0C0C0) == 0xF0808080) {
        value = (bytes >> 6 & 0x1C0000) | (bytes >> 4 & 0x3F000) | (bytes >> 2 & 0xFC0) | (bytes & 0x3F);
        return value >= 0x10000 && value <= kz::kLastCodePoint ? 4 : 0;
    }
    return 0;
}

// What to move on by where no well-formed character stands.
std::ptrdiff_t MalformedLength(const unsigned char* bytes, const unsigned char* end)
{
    const std::ptrdiff_t length = SequenceLength(bytes[0]);
    if (length > end - bytes) {
        return end - bytes;
    }
    const bool continues = std::all_of(bytes + 1, bytes + length, IsUtf8Continuation);
    return continues || StartsNoCharacter(bytes[0]) ? length : 1;
}

// Vectors of 16 bytes, which compilers keep in whatever registers there are.
typedef signed char ByteBlock __attribute__((vector_size(16)));
typedef unsigned short HalfBlock __attribute__((vector_size(16)));
constexpr std::ptrdiff_t kBlock = sizeof(ByteBlock);

constexpr uInt64 kTopBits = 0x8080808080808080;

bool IsAsciiBlock(const unsigned char* bytes)
{
    uInt64 words[2];
    static_assert(sizeof words == kBlock);
    std::memcpy(words, bytes, sizeof words);
    return ((words[0] | words[1]) & kTopBits) == 0;
}

// How many ASCII characters a block of 8 begins with.
std::ptrdiff_t CountAscii(const unsigned char* bytes)
{
    uInt64 word = 0;
    std::memcpy(&word, bytes, sizeof word);
    word &= kTopBits;
    return (std::endian::native == std::endian::little ? std::countr_zero(word) : std::countl_zero(word)) / 8;
}

// Each element behind, or on the other kind of processor before, one of zero: together an element of twice the size.
// The first half of the elements, then the second.
struct Widened {
    ByteBlock parts[2];
};

Widened Widen(ByteBlock block)
{
    constexpr ByteBlock kZero = {};
    const ByteBlock a = std::endian::native == std::endian::little ? block : kZero;
    const ByteBlock b = std::endian::native == std::endian::little ? kZero : block;
    return {{__builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23),
             __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31)}};
}

Widened Widen(HalfBlock block)
{
    constexpr HalfBlock kZero = {};
    const HalfBlock a = std::endian::native == std::endian::little ? block : kZero;
    const HalfBlock b = std::endian::native == std::endian::little ? kZero : block;
    return {{std::bit_cast<ByteBlock>(__builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11)),
             std::bit_cast<ByteBlock>(__builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15))}};
}

[[gnu::always_inline]] inline void WidenBlock(const unsigned char* bytes, wchar_t* out)
{
    static_assert(sizeof(wchar_t) == 4);
    ByteBlock block;
    std::memcpy(&block, bytes, sizeof block);
    for (const ByteBlock half : Widen(block).parts) {
        const Widened values = Widen(std::bit_cast<HalfBlock>(half));
        std::memcpy(out, &values, sizeof values);
        out += sizeof values / sizeof *out;
    }
}

// The bytes among up to 127 blocks that are no continuation: all from -64 on, as signed.
std::size_t CountStartsInBlocks(const unsigned char* bytes, std::ptrdiff_t blocks)
{
    ByteBlock counts = {};
    for (std::ptrdiff_t i = 0; i < blocks; ++i) {
        ByteBlock block;
        std::memcpy(&block, bytes + i * kBlock, sizeof block);
        counts -= block > -65;  // a lane that compares true is -1
    }
    std::size_t count = 0;
    for (std::ptrdiff_t lane = 0; lane < kBlock; ++lane) {
        count += static_cast<unsigned char>(counts[lane]);
    }
    return count;
}

}  // namespace

namespace kz {

std::size_t CountUtf8Starts(const unsigned char* at, const unsigned char* end)
{
    std::size_t count = 0;
    while (end - at >= kBlock) {
        const std::ptrdiff_t blocks = std::min<std::ptrdiff_t>((end - at) / kBlock, 127);
        count += CountStartsInBlocks(at, blocks);
        at += blocks * kBlock;
    }
    return count +
           static_cast<std::size_t>(std::count_if(at, end, [](unsigned char c) { return !IsUtf8Continuation(c); }));
}

wchar_t* DecodeWellFormedUtf8(const unsigned char*& cursor, const unsigned char* end, wchar_t* out, wchar_t* outEnd)
{
    constexpr std::ptrdiff_t kLongest = 4;
    const unsigned char* at = cursor;
    std::ptrdiff_t length = 1;
    const auto step = [&](std::ptrdiff_t left) {
        uInt32 value = 0;
        length = WellFormedCharacter(NextBytes(at, left), value);
        if (length != 0) {
            *out++ = static_cast<wchar_t>(value);
            at += length;
        }
        return length != 0;
    };
    while (length != 0) {
        while (end - at >= kBlock && IsAsciiBlock(at)) {
            WidenBlock(at, out);
            at += kBlock;
            out += kBlock;
        }
        if (end - at < kBlock || outEnd - out < kBlock) {
            break;
        }
        // What a block begins with, and then what is not ASCII or stands close to it.
        const std::ptrdiff_t ascii = CountAscii(at);
        WidenBlock(at, out);
        at += ascii;
        out += ascii;
        while (end - at >= kLongest && (at[0] | at[1] | at[2]) >= 0x80 && step(kLongest)) {
        }
    }
    while (length != 0 && at < end && step(end - at)) {
    }
    cursor = at;
    return out;
}

}  // namespace kz

uInt32 ConvertUTF8toUTF32(const unsigned char** cursor, const unsigned char* end)
{
    const unsigned char* const bytes = *cursor;
    if (bytes >= end) {
        return 0;
    }
    uInt32 value = 0;
    const std::ptrdiff_t length = WellFormedCharacter(NextBytes(bytes, end - bytes), value);
    if (length == 0) {
        *cursor = bytes + MalformedLength(bytes, end);
        return 0;
    }
    *cursor = bytes + length;
    return value;
}

KzBool ConvertUTF32toUTF8(const uInt32** source, const uInt32* sourceEnd, unsigned char** target,
                          unsigned char* targetEnd)
{
    KzBool unchanged = 1;
    for (; *source < sourceEnd; ++*source) {
        uInt32 value = **source;
        const bool replaced = value > kz::kLastCodePoint;
        if (replaced) {
            value = kz::kReplacementCharacter;
        }
        if (targetEnd - *target < static_cast<std::ptrdiff_t>(kz::Utf8Size(value))) {
            return 0;
        }
        *target = kz::EncodeUtf8(value, *target);
        unchanged = replaced ? 0 : unchanged;
    }
    return unchanged;
}
