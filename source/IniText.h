// Text as the INI engine sees it: bytes, of which only those of ASCII mean anything, in whatever locale the process
// runs. C library only. Pure functions, for any thread; none but Duplicate and Escaped allocates.
#ifndef KZCORE_INITEXT_H
#define KZCORE_INITEXT_H

#include <stddef.h>
#include <string.h>

#include "KzAssert.h"

namespace qkini {

// A piece of text that is somebody else's, who keeps it for as long as this is used. No NUL needs to follow it.
struct Text {
    const char* begin;
    size_t size;  // bytes

    constexpr Text(const char* from, size_t length) : begin(from), size(length) {}
    // Requires `to` at or behind `from`, in the same text.
    Text(const char* from, const char* to) : begin(from), size(static_cast<size_t>(to - from))
    {
        KZ_ASSERT(from <= to);
    }
    // Up to its NUL; null is empty.
    explicit Text(const char* text) : begin(text == nullptr ? "" : text), size(strlen(begin)) {}

    const char* end() const { return begin + size; }
    bool IsEmpty() const { return size == 0; }
    bool Contains(char c) const { return memchr(begin, c, size) != nullptr; }
};

// The character classes of the C locale, because isspace and its kin follow the process's.
constexpr bool IsSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr char ToUpper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// The text without white space at its front, at its end, and at both.
Text TrimmedLeft(Text text);
Text TrimmedRight(Text text);
Text Trimmed(Text text);

// A copy with a NUL behind it, which the caller frees; null when out of memory.
char* Duplicate(Text text);

// A hash that is equal for names that compare equal, whatever the case and the white space at the ends. The seed is
// random for each object, because a stranger who knew it could fill a file with names that all collide.
unsigned HashOf(Text name, unsigned long long seed);

// A name to be found, with its hash.
struct NameKey {
    Text name;
    unsigned hash;

    NameKey(Text text, unsigned long long seed) : name(text), hash(HashOf(text, seed)) {}
};

// Names compare without regard to case and to white space at their ends, or byte for byte. Requires a name without a
// NUL.
int CompareBlind(Text a, Text b);  // -1, 0 or 1
bool AreSameName(const char* stored, Text name, bool caseSensitive);

// What a tag like "base Line0001" stands for: the part of that number of the value of "base". -1 for any other tag.
struct Continuation {
    size_t baseSize;  // bytes
    long number;      // 0 or more
};
Continuation ContinuationOf(Text tag);

// The size of the base of a tag that ends in " Line", in either case, and digits, because such a tag can be equal to
// that of a part; 0 for any other.
size_t BaseOfLookalike(Text tag);

// Whether a tag with " Line0001" behind it would stand for another base, or none.
bool HasContinuationMark(Text tag);

// Escapes: \t, \n, \", \\, and \x with two hexadecimal digits for other control characters. Escaped returns a text that
// the caller frees, null when out of memory. Unescape returns the size of the whole result, of which it writes as much
// as fits in `room` bytes, without a NUL; the result is never longer than the text, and `out` may be the text's own
// memory.
char* Escaped(Text text);
size_t Unescape(Text text, char* out, size_t room);

// Numbers as in the C locale, in the whole text with white space around integers; false for anything else.
bool ParseInt(const char* text, int* out);
bool ParseUInt(const char* text, unsigned int* out);
bool ParseDouble(const char* text, double* out);
void FormatDouble(double value, char* out, size_t size);  // "%.14e", with a NUL, cut to `size` bytes

}  // namespace qkini

#endif
