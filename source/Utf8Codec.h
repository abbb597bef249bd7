// UTF-8 for the modules that walk whole texts: single characters inline, and runs of well-formed text. What a fault in
// a text means is for those modules to say; nothing here reports, allocates or fails. Any thread.
#ifndef KZCORE_UTF8CODEC_H
#define KZCORE_UTF8CODEC_H

#include <cstddef>

#include "ByteOrder.h"
#include "KZTypes.h"
#include "KzAssert.h"

namespace kz {

// What stands in a text for a character that can't be told.
inline constexpr uInt32 kReplacementCharacter = 0xFFFD;
inline constexpr uInt32 kLastCodePoint = 0x10FFFF;

// The bytes that EncodeUtf8 writes for a value up to kLastCodePoint.
constexpr std::size_t Utf8Size(uInt32 value)
{
    return value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
}

// Writes a value up to kLastCodePoint, surrogates too, in Utf8Size bytes, and returns the end of what it wrote.
inline unsigned char* EncodeUtf8(uInt32 value, unsigned char* out)
{
    KZ_ASSERT(value <= kLastCodePoint);
    // The lead has the bits on top, marked by as many ones as there are bytes; each byte that follows has six more.
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

// Whether a byte continues a character. Of all bytes exactly these can't be the first one of a character, which lets a
// walk find the start of a character from any byte within it.
constexpr bool IsUtf8Continuation(unsigned char c)
{
    return (c & 0xC0) == 0x80;
}

// The next four bytes, the first one on top. Zero, which continues nothing, stands in the place of bytes behind the
// end, so that a character that is cut off is told from a whole one without a look at its length.
inline uInt32 NextBytes(const unsigned char* bytes, std::ptrdiff_t left)
{
    KZ_ASSERT(left > 0);
    const auto byte = [=](int i) { return i < left ? uInt32{bytes[i]} << (24 - 8 * i) : 0; };
    return byte(0) | byte(1) | byte(2) | byte(3);
}

// The length of the well-formed character that the bytes of NextBytes begin with, whose value is stored, or 0. Each
// test looks at the marks of the lead and of all continuation bytes at once. What the rows of table 3-7 of the Unicode
// standard shut out beyond that shows in the value: forms that are longer than needed would be read as another
// spelling of a character that filters look for, and surrogates and values above kLastCodePoint are no characters.
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
        return value >= 0x10000 && value <= kLastCodePoint ? 4 : 0;
    }
    return 0;
}

// The bytes that are no continuation: as many as there are characters, where the text is well-formed.
std::size_t CountUtf8Starts(const unsigned char* at, const unsigned char* end);

// Decodes the well-formed characters from `cursor` on, NULs too, and moves it to where they end: to `end`, or to the
// first byte of what is not well-formed. Requires room for at least CountUtf8Starts values, all of which may be written
// to. Returns the end of those that count.
wchar_t* DecodeWellFormedUtf8(const unsigned char*& cursor, const unsigned char* end, wchar_t* out, wchar_t* outEnd);

}  // namespace kz

#endif
