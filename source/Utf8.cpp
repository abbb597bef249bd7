#include "Utf8.h"

#include <cstddef>

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

// A sequence of 2 to 4 bytes, well-formed.
uInt32 Assemble(const unsigned char* bytes, std::ptrdiff_t length)
{
    uInt32 value = bytes[0] & (0xFFu >> (length + 1));
    for (std::ptrdiff_t i = 1; i < length; ++i) {
        value = value << 6 | (bytes[i] & 0x3Fu);
    }
    return value;
}

}  // namespace

uInt32 ConvertUTF8toUTF32(const unsigned char** cursor, const unsigned char* end)
{
    const unsigned char* const bytes = *cursor;
    if (bytes >= end) {
        return 0;
    }
    if (bytes[0] < 0x80) {
        *cursor = bytes + 1;
        return bytes[0];
    }
    const std::ptrdiff_t length = SequenceLength(bytes[0]);
    if (length > end - bytes) {
        *cursor = end;
        return 0;
    }
    if (StartsNoCharacter(bytes[0])) {
        *cursor = bytes + length;
        return 0;
    }
    for (std::ptrdiff_t i = 1; i < length; ++i) {
        if (!IsUtf8Continuation(bytes[i])) {
            *cursor = bytes + 1;
            return 0;
        }
    }
    *cursor = bytes + length;
    return SecondFitsLead(bytes[0], bytes[1]) ? Assemble(bytes, length) : 0;
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
