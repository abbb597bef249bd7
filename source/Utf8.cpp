// Single steps. A well-formed character is told by the codec's masks; how far a fault moves the cursor is this module's
// own rule, which stored texts depend on: it goes by the length that the first byte tells in the scheme of up to 6
// bytes (RFC 2279), so that such a sequence is one fault and not six.
#include "Utf8.h"

#include <algorithm>
#include <cstddef>

#include "KzAssert.h"
#include "Utf8Codec.h"

namespace {

using kz::IsUtf8Continuation;

// The length that the first byte of a sequence tells, in the scheme of up to 6 bytes (RFC 2279).
constexpr std::ptrdiff_t SequenceLength(unsigned char lead)
{
    return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : lead < 0xFC ? 5 : 6;
}

constexpr bool StartsNoCharacter(unsigned char lead)
{
    return (lead >= 0x80 && lead < 0xC2) || lead > 0xF4;
}

// What to move on by where no well-formed character stands: at least 1, so that every walk over a text ends.
std::ptrdiff_t MalformedLength(const unsigned char* bytes, const unsigned char* end)
{
    KZ_ASSERT(bytes < end);
    const std::ptrdiff_t length = SequenceLength(bytes[0]);
    if (length > end - bytes) {
        return end - bytes;
    }
    // A byte that breaks the sequence off may itself begin a sound character, so only the lead is given up then.
    const bool continues = std::all_of(bytes + 1, bytes + length, IsUtf8Continuation);
    return continues || StartsNoCharacter(bytes[0]) ? length : 1;
}

}  // namespace

uInt32 ConvertUTF8toUTF32(const unsigned char** cursor, const unsigned char* end)
{
    const unsigned char* const bytes = *cursor;
    if (bytes >= end) {  // NextBytes asks for a byte at least
        return 0;
    }
    uInt32 value = 0;
    const std::ptrdiff_t length = kz::WellFormedCharacter(kz::NextBytes(bytes, end - bytes), value);
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
        // *source stays at a value that has no room, so that the caller can go on from there in another buffer.
        if (targetEnd - *target < static_cast<std::ptrdiff_t>(kz::Utf8Size(value))) {
            return 0;
        }
        *target = kz::EncodeUtf8(value, *target);
        unchanged = replaced ? 0 : unchanged;
    }
    return unchanged;
}
