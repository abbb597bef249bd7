// UTF-8 for the modules that walk whole texts: single characters inline, and runs of well-formed text.
#ifndef KZCORE_UTF8CODEC_H
#define KZCORE_UTF8CODEC_H

#include <cstddef>

#include "KZTypes.h"

namespace kz {

inline constexpr uInt32 kReplacementCharacter = 0xFFFD;
inline constexpr uInt32 kLastCodePoint = 0x10FFFF;

// The bytes that EncodeUtf8 writes for a value up to kLastCodePoint.
constexpr std::size_t Utf8Size(uInt32 value)
{
    return value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
}

// Writes a value up to kLastCodePoint, surrogates too, and returns the end of what it wrote.
inline unsigned char* EncodeUtf8(uInt32 value, unsigned char* out)
{
    const auto lead = [value](uInt32 mark, int shift) { return static_cast<unsigned char>(mark | value >> shift); };
    const auto next = [value](int shift) { return static_cast<unsigned char>(0x80 | (value >> shift & 0x3F)); };
    switch (Utf8Size(value)) {
        case 1:
            *out++ = lead(0, 0);
            break;
        case 2:
            *out++ = lead(0xC0, 6);
            *out++ = next(0);
            break;
        case 3:
            *out++ = lead(0xE0, 12);
            *out++ = next(6);
            *out++ = next(0);
            break;
        default:
            *out++ = lead(0xF0, 18);
            *out++ = next(12);
            *out++ = next(6);
            *out++ = next(0);
    }
    return out;
}

constexpr bool IsUtf8Continuation(unsigned char c)
{
    return (c & 0xC0) == 0x80;
}

// The bytes that are no continuation: as many as there are characters, where the text is well-formed.
std::size_t CountUtf8Starts(const unsigned char* at, const unsigned char* end);

// Decodes the well-formed characters from `cursor` on, NULs too, and moves it to where they end. There is room for
// CountUtf8Starts values, all of which it may write to. Returns the end of those that count.
wchar_t* DecodeWellFormedUtf8(const unsigned char*& cursor, const unsigned char* end, wchar_t* out, wchar_t* outEnd);

}  // namespace kz

#endif
