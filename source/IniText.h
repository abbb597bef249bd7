// Text as the INI engine sees it: bytes, of which only those of ASCII mean anything, in whatever locale the process
// runs. C library only.
#ifndef KZCORE_INITEXT_H
#define KZCORE_INITEXT_H

#include <stddef.h>
#include <string.h>

namespace qkini {

// A piece of text that is somebody else's.
struct Text {
    const char* begin;
    size_t size;

    constexpr Text(const char* from, size_t length) : begin(from), size(length) {}
    Text(const char* from, const char* to) : begin(from), size(static_cast<size_t>(to - from)) {}
    // Up to its NUL; null is empty.
    explicit Text(const char* text) : begin(text == nullptr ? "" : text), size(strlen(begin)) {}

    const char* end() const { return begin + size; }
    bool IsEmpty() const { return size == 0; }
    bool Contains(char c) const { return memchr(begin, c, size) != nullptr; }
};

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

// The text without white space at both ends, and at one.
Text TrimmedLeft(Text text);
Text TrimmedRight(Text text);
Text Trimmed(Text text);

// A copy with a NUL behind it; null when out of memory.
char* Duplicate(Text text);

// A hash that is equal for names that compare equal, whatever the case and the white space at the ends. `seed` keeps
// names from being chosen to collide.
unsigned HashOf(Text name, unsigned long long seed);

// A name to be found, with its hash.
struct NameKey {
    Text name;
    unsigned hash;

    NameKey(Text text, unsigned long long seed) : name(text), hash(HashOf(text, seed)) {}
};

// Names compare without regard to case and to white space at their ends, or byte for byte.
int CompareBlind(Text a, Text b);  // -1, 0 or 1
bool AreSameName(const char* stored, Text name, bool caseSensitive);

// What a tag like "base Line0001" stands for; the number is -1 for any other.
struct Continuation {
    size_t baseSize;
    long number;
};
Continuation ContinuationOf(Text tag);

// The size of the base of a tag that ends in " Line", in either case, and digits, because such a tag can be equal to
// that of a part; 0 for any other.
size_t BaseOfLookalike(Text tag);

// Whether a tag with " Line0001" behind it would stand for another base, or none.
bool HasContinuationMark(Text tag);

// Escapes: \t, \n, \", \\, and \x with two hexadecimal digits for other control characters. An escaped text is the
// caller's to free, null when out of memory. The other gives the size of the result, which is written, without a NUL,
// as far as it fits in `room` bytes.
char* Escaped(Text text);
size_t Unescape(Text text, char* out, size_t room);

// Numbers as in the C locale, in the whole text with white space around integers; false for anything else.
bool ParseInt(const char* text, int* out);
bool ParseUInt(const char* text, unsigned int* out);
bool ParseDouble(const char* text, double* out);
void FormatDouble(double value, char* out, size_t size);  // "%.14e"

}  // namespace qkini

#endif
