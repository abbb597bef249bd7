// Runs of UTF-8, for texts that are long and mostly ASCII.
//
// The decoder alternates between two gaits. Blocks of 16 ASCII bytes are widened to 16 characters at once, without a
// look at any single one. Where a block holds anything else, the decoder widens what it begins with and then goes on
// character by character until three ASCII bytes in a row promise that blocks pay again. Both stop at the first
// character that is not well-formed, because what a fault means is for the callers to say.
//
// Widening writes whole blocks, also where only their start counts, so it may write behind what has been decoded. The
// room makes that sound: 16 ASCII bytes are 16 characters, which CountUtf8Starts has counted, and a mixed block is
// widened only where room for 16 is left.
#include "Utf8Codec.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace kz {

namespace {

// Vectors of 16 bytes, which compilers keep in whatever registers there are.
typedef signed char ByteBlock __attribute__((vector_size(16)));
typedef unsigned short HalfBlock __attribute__((vector_size(16)));
constexpr std::ptrdiff_t kBlock = sizeof(ByteBlock);

constexpr uInt64 kTopBits = 0x8080808080808080;

// The blocks that one vector of byte counters takes: a counter that has grown by 1 for each of them doesn't overflow,
// also when it is read as a signed number.
constexpr std::ptrdiff_t kMostCountedBlocks = 127;

bool IsAsciiBlock(const unsigned char* bytes)
{
    static_assert(2 * sizeof(uInt64) == kBlock);
    return ((LoadNative<uInt64>(bytes) | LoadNative<uInt64>(bytes + sizeof(uInt64))) & kTopBits) == 0;
}

// How many ASCII characters 8 bytes begin with.
std::ptrdiff_t CountAscii(const unsigned char* bytes)
{
    return std::countr_zero(LoadNative<uInt64>(bytes) & kTopBits) / 8;
}

// A block whose elements have become twice as wide, since a zero follows each of them in memory: the first half of the
// elements, then the second.
struct Widened {
    ByteBlock parts[2];
};

Widened Widen(ByteBlock block)
{
    constexpr ByteBlock kZero = {};
    return {{__builtin_shufflevector(block, kZero, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23),
             __builtin_shufflevector(block, kZero, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31)}};
}

Widened Widen(HalfBlock block)
{
    constexpr HalfBlock kZero = {};
    return {{std::bit_cast<ByteBlock>(__builtin_shufflevector(block, kZero, 0, 8, 1, 9, 2, 10, 3, 11)),
             std::bit_cast<ByteBlock>(__builtin_shufflevector(block, kZero, 4, 12, 5, 13, 6, 14, 7, 15))}};
}

// Inlined because both callers stand in the decoder's loop, where a call for each 16 bytes would show.
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

// The bytes among up to kMostCountedBlocks blocks that are no continuation.
std::size_t CountStartsInBlocks(const unsigned char* bytes, std::ptrdiff_t blocks)
{
    KZ_ASSERT(blocks >= 0 && blocks <= kMostCountedBlocks);
    ByteBlock counts = {};
    for (std::ptrdiff_t i = 0; i < blocks; ++i) {
        ByteBlock block;
        std::memcpy(&block, bytes + i * kBlock, sizeof block);
        // Continuation bytes are the 64 lowest numbers when they are signed. A lane that compares true is -1.
        counts -= block > -65;
    }
    std::size_t count = 0;
    for (std::ptrdiff_t lane = 0; lane < kBlock; ++lane) {
        count += static_cast<unsigned char>(counts[lane]);
    }
    return count;
}

}  // namespace

std::size_t CountUtf8Starts(const unsigned char* at, const unsigned char* end)
{
    KZ_ASSERT(at <= end);
    std::size_t count = 0;
    while (end - at >= kBlock) {
        const std::ptrdiff_t blocks = std::min((end - at) / kBlock, kMostCountedBlocks);
        count += CountStartsInBlocks(at, blocks);
        at += blocks * kBlock;
    }
    return count +
           static_cast<std::size_t>(std::count_if(at, end, [](unsigned char c) { return !IsUtf8Continuation(c); }));
}

wchar_t* DecodeWellFormedUtf8(const unsigned char*& cursor, const unsigned char* end, wchar_t* out, wchar_t* outEnd)
{
    KZ_ASSERT(cursor <= end && out <= outEnd);
    KZ_ASSERT_SLOW(CountUtf8Starts(cursor, end) <= static_cast<std::size_t>(outEnd - out));
    constexpr std::ptrdiff_t kLongest = 4;
    const unsigned char* at = cursor;
    std::ptrdiff_t length = 1;  // of the last character; 0 once one is not well-formed, which ends all loops
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
        // At most the first 8 characters count, because 8 bytes are what one word tells about.
        const std::ptrdiff_t ascii = CountAscii(at);
        WidenBlock(at, out);
        at += ascii;
        out += ascii;
        // Three ASCII bytes end the slow gait. With fewer, texts of short words between accents would pay for a block
        // again and again.
        while (end - at >= kLongest && (at[0] | at[1] | at[2]) >= 0x80 && step(kLongest)) {
        }
    }
    while (length != 0 && at < end && step(end - at)) {
    }
    KZ_ASSERT(at <= end && out <= outEnd);
    cursor = at;
    return out;
}

}  // namespace kz
