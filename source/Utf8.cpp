#include "Utf8.h"

#include <algorithm>
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

// Table 3-7 of the Unicode standard: what the first byte leaves of the continuation bytes for the second. It shuts out
// longer forms than needed, surrogates, and values above 0x10FFFF.
constexpr bool SecondFitsLead(unsigned char lead, unsigned char second)
{
    switch (lead) {
        case 0xE0:
            return second >= 0xA0;
        case 0xED:
            return second <= 0x9F;
        case 0xF0:
            return second >= 0x90;
        case 0xF4:
            return second <= 0x8F;
        default:
            return true;
    }
}

// The length of the well-formed character at `bytes`, whose value is stored, or 0 where there is none.
inline std::ptrdiff_t WellFormedCharacter(const unsigned char* bytes, const unsigned char* end, uInt32& value)
{
    const unsigned char lead = bytes[0];
    const std::ptrdiff_t left = end - bytes;
    if (lead < 0x80) {
        value = lead;
        return 1;
    }
    if (StartsNoCharacter(lead) || left < 2 || !IsUtf8Continuation(bytes[1])) {
        return 0;
    }
    if (lead < 0xE0) {
        value = (lead & 0x1Fu) << 6 | (bytes[1] & 0x3Fu);
        return 2;
    }
    if (left < 3 || !IsUtf8Continuation(bytes[2]) || !SecondFitsLead(lead, bytes[1])) {
        return 0;
    }
    const uInt32 tail = (bytes[1] & 0x3Fu) << 6 | (bytes[2] & 0x3Fu);
    if (lead < 0xF0) {
        value = (lead & 0x0Fu) << 12 | tail;
        return 3;
    }
    if (left < 4 || !IsUtf8Continuation(bytes[3])) {
        return 0;
    }
    value = (lead & 0x07u) << 18 | tail << 6 | (bytes[3] & 0x3Fu);
    return 4;
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

constexpr std::ptrdiff_t kBlock = 16;

bool IsAsciiBlock(const unsigned char* bytes)
{
    uInt64 words[2];
    static_assert(sizeof words == kBlock);
    std::memcpy(words, bytes, sizeof words);
    return ((words[0] | words[1]) & 0x8080808080808080) == 0;
}

}  // namespace

namespace kz {

std::size_t CountUtf8Starts(const unsigned char* at, const unsigned char* end)
{
    std::size_t count = 0;
    for (; end - at >= kBlock; at += kBlock) {
        unsigned char starts = 0;
        for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
            starts = static_cast<unsigned char>(starts + !IsUtf8Continuation(at[i]));
        }
        count += starts;
    }
    return count +
           static_cast<std::size_t>(std::count_if(at, end, [](unsigned char c) { return !IsUtf8Continuation(c); }));
}

wchar_t* DecodeWellFormedUtf8(const unsigned char*& cursor, const unsigned char* end, wchar_t* out)
{
    const unsigned char* at = cursor;
    while (at < end) {
        if (end - at >= kBlock && IsAsciiBlock(at)) {
            for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
                out[i] = at[i];
            }
            at += kBlock;
            out += kBlock;
            continue;
        }
        // Another look at a whole block pays after as much.
        const unsigned char* const blockEnd = at + std::min(kBlock, end - at);
        while (at < blockEnd) {
            uInt32 value = 0;
            const std::ptrdiff_t length = WellFormedCharacter(at, end, value);
            if (length == 0) {
                cursor = at;
                return out;
            }
            *out++ = static_cast<wchar_t>(value);
            at += length;
        }
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
    const std::ptrdiff_t length = WellFormedCharacter(bytes, end, value);
    *cursor = bytes + (length != 0 ? length : MalformedLength(bytes, end));
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
