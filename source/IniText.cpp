// Names are compared and hashed in every look-up, so both work on a text where it stands: nothing is copied or folded
// beforehand. The two have to agree, because an index finds a name by its hash first: what CompareBlind calls equal,
// HashOf must hash equal.
//
// Nothing here follows the process's locale, because a file that one program writes is read by another in any locale.
// Case and white space are those of ASCII, and the two calls that only the C library can do well, reading and printing
// a double, run in the C locale.

#include "IniText.h"

#include <errno.h>
#include <limits.h>
#include <locale.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "IniMemory.h"

namespace qkini {

namespace {

// What stands between the base tag and the number of a continuation. It does not overlap itself.
constexpr Text kMark(" Line", size_t{5});

// Zero for what is no hexadecimal digit, else the digit and 16.
constexpr int HexDigit(char c)
{
    if (IsDigit(c)) {
        return 16 + (c - '0');
    }
    const char upper = ToUpper(c);
    return upper >= 'A' && upper <= 'F' ? 16 + 10 + (upper - 'A') : 0;
}

// How many bytes stand for each byte: 1 for itself, 2 for a backslash and a letter, 4 for \xHH. A table, because every
// byte of every value that is put is looked up.
struct EscapeSizes {
    unsigned char sizes[256];

    constexpr EscapeSizes() : sizes()
    {
        for (int byte = 0; byte < 256; ++byte) {
            const bool isControl = byte < ' ' || byte == 0x7F;
            const bool isShort = byte == '\t' || byte == '\n' || byte == '"' || byte == '\\';
            sizes[byte] = isShort ? 2 : isControl ? 4 : 1;
        }
    }
    constexpr size_t operator[](unsigned char byte) const { return sizes[byte]; }
};
constexpr EscapeSizes kEscapeSizes;

// Requires room for as many bytes as the table says.
void WriteEscaped(Text text, char* out)
{
    constexpr char kDigits[] = "0123456789abcdef";
    for (size_t i = 0; i < text.size; ++i) {
        const char c = text.begin[i];
        const auto byte = static_cast<unsigned char>(c);
        const size_t size = kEscapeSizes[byte];
        if (size > 1) {
            *out++ = '\\';
        }
        if (size < 4) {
            *out++ = size == 1 ? c : c == '\t' ? 't' : c == '\n' ? 'n' : c;
        } else {
            *out++ = 'x';
            *out++ = kDigits[byte >> 4];
            *out++ = kDigits[byte & 15];
        }
    }
}

// Collects bytes as far as there is room, and counts them all.
class BoundedOutput {
public:
    BoundedOutput(char* out, size_t room) : m_out(out), m_room(room) {}

    void Put(char c)
    {
        if (m_size < m_room) {
            m_out[m_size] = c;
        }
        ++m_size;
    }
    size_t size() const { return m_size; }

private:
    char* const m_out;
    const size_t m_room;
    size_t m_size = 0;
};

// Eight bytes, those of lower-case letters made upper-case, all at once.
uint64_t FoldWord(uint64_t word)
{
    constexpr uint64_t kOnes = 0x0101010101010101;
    constexpr uint64_t kHighs = kOnes * 0x80;
    const uint64_t ascii = word & ~kHighs;
    const uint64_t fromA = ascii + kOnes * (0x80 - 'a');        // high bit: at least 'a'
    const uint64_t behindZ = ascii + kOnes * (0x80 - 'z' - 1);  // high bit: above 'z'
    const uint64_t isLower = fromA & ~behindZ & ~word & kHighs;
    return word ^ (isLower >> 2);  // 0x80 >> 2 is the bit of the case
}

uint64_t LoadWord(const char* from)
{
    uint64_t word;
    memcpy(&word, from, sizeof word);
    return word;
}

// The last eight bytes, or all of a shorter text. A text of 4 to 7 bytes is taken as two halves that overlap, which
// saves a loop; texts of different sizes may give one word, so the hash takes the size too.
uint64_t LastWord(Text text)
{
    if (text.size >= sizeof(uint64_t)) {
        return LoadWord(text.end() - sizeof(uint64_t));
    }
    if (text.size >= sizeof(uint32_t)) {
        uint32_t first;
        uint32_t last;
        memcpy(&first, text.begin, sizeof first);
        memcpy(&last, text.end() - sizeof last, sizeof last);
        return (uint64_t{first} << 32) | last;
    }
    uint64_t word = 0;
    for (size_t i = 0; i < text.size; ++i) {
        word = (word << 8) | static_cast<unsigned char>(text.begin[i]);
    }
    return word;
}

// Both halves of the product of all bits, folded into one: the step that spreads each bit over the hash.
uint64_t Mix(uint64_t a, uint64_t b)
{
    __extension__ typedef unsigned __int128 Wide;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

// An integer's sign and magnitude of at most 32 bits. False for text without a digit, with anything else in it, or
// with a number that is greater: a liar's number past this would wrap into a small one.
bool ParseMagnitude(const char* text, bool* isNegative, unsigned int* magnitude)
{
    constexpr unsigned int kTenth = UINT_MAX / 10;  // 429,496,729
    const Text trimmed = Trimmed(Text(text));
    const char* at = trimmed.begin;
    *isNegative = at != trimmed.end() && *at == '-';
    if (at != trimmed.end() && (*at == '-' || *at == '+')) {
        ++at;
    }
    if (at == trimmed.end()) {
        return false;
    }
    unsigned int value = 0;
    for (; at != trimmed.end(); ++at) {
        const auto digit = static_cast<unsigned int>(*at - '0');
        if (!IsDigit(*at) || value > kTenth || (value == kTenth && digit > UINT_MAX % 10)) {
            return false;
        }
        value = value * 10 + digit;
    }
    *magnitude = value;
    return true;
}

// The locale of files, for this thread and the time of a call into the C library. The object is made once and never
// freed, because any thread may be in such a call at the process's end. Where there is no memory to make it, uselocale
// is given null, which leaves the thread's locale as it is.
class CLocale {
public:
    CLocale() : m_before(uselocale(Object())) {}
    ~CLocale() { uselocale(m_before); }
    CLocale(const CLocale&) = delete;
    CLocale& operator=(const CLocale&) = delete;

private:
    static locale_t Object()
    {
        static const locale_t sObject = newlocale(LC_ALL_MASK, "C", nullptr);
        return sObject;
    }

    const locale_t m_before;
};

}  // namespace

Text TrimmedLeft(Text text)
{
    const char* at = text.begin;
    while (at != text.end() && IsSpace(*at)) {
        ++at;
    }
    return {at, text.end()};
}

Text TrimmedRight(Text text)
{
    size_t size = text.size;
    while (size > 0 && IsSpace(text.begin[size - 1])) {
        --size;
    }
    return {text.begin, size};
}

Text Trimmed(Text text)
{
    return TrimmedRight(TrimmedLeft(text));
}

char* Duplicate(Text text)
{
    auto* const copy = static_cast<char*>(Allocate(text.size + 1));
    if (copy != nullptr) {
        memcpy(copy, text.begin, text.size);
        copy[text.size] = 0;
    }
    return copy;
}

unsigned HashOf(Text name, unsigned long long seed)
{
    // Multiply and fold the product, as in wyhash by Wang Yi; its constants. The last word may overlap the one before
    // it, so that no byte is handled alone.
    constexpr uint64_t kFirst = 0xA0761D6478BD642F;
    constexpr uint64_t kSecond = 0xE7037ED1A0B428DB;
    const Text trimmed = Trimmed(name);
    uint64_t hash = seed ^ (kFirst + trimmed.size);
    const char* at = trimmed.begin;
    for (size_t rest = trimmed.size; rest > sizeof(uint64_t); rest -= sizeof(uint64_t)) {
        hash = Mix(hash ^ FoldWord(LoadWord(at)), kSecond ^ seed);
        at += sizeof(uint64_t);
    }
    hash = Mix(hash ^ FoldWord(LastWord(trimmed)), kSecond ^ seed);
    return static_cast<unsigned>(hash ^ (hash >> 32));
}

int CompareBlind(Text a, Text b)
{
    // Bytes compare without a sign, so that names beyond ASCII stand behind it in every sorted list, whatever `char`
    // is.
    const Text x = Trimmed(a);
    const Text y = Trimmed(b);
    const size_t common = x.size < y.size ? x.size : y.size;
    for (size_t i = 0; i < common; ++i) {
        const auto p = static_cast<unsigned char>(ToUpper(x.begin[i]));
        const auto q = static_cast<unsigned char>(ToUpper(y.begin[i]));
        if (p != q) {
            return p < q ? -1 : 1;
        }
    }
    return x.size == y.size ? 0 : x.size < y.size ? -1 : 1;
}

bool AreSameName(const char* stored, Text name, bool caseSensitive)
{
    KZ_ASSERT(!name.Contains('\0'));
    // Names are mostly asked for as they are stored. strncmp stops at the NUL of `stored`, which the name does not
    // hold, so the byte behind an equal run is within `stored`.
    if (strncmp(stored, name.begin, name.size) == 0 && stored[name.size] == 0) {
        return true;
    }
    return !caseSensitive && CompareBlind(Text(stored), name) == 0;
}

// From the right, because the base may end in anything, a mark and digits too.
size_t BaseOfLookalike(Text tag)
{
    const char* digits = tag.end();
    while (digits != tag.begin && IsDigit(digits[-1])) {
        --digits;
    }
    const Text front(tag.begin, digits);
    if (digits == tag.end() || front.size <= kMark.size) {
        return 0;
    }
    const size_t baseSize = front.size - kMark.size;
    return CompareBlind({front.begin + baseSize, kMark.size}, kMark) == 0 ? baseSize : 0;
}

Continuation ContinuationOf(Text tag)
{
    constexpr Continuation kNone{0, -1};
    // The writer's mark has this case and no other. A base that holds a mark itself is the base of no part, because
    // what is joined once would look like a part again at the next reading.
    const size_t baseSize = BaseOfLookalike(tag);
    if (baseSize == 0 || memcmp(tag.begin + baseSize, kMark.begin, kMark.size) != 0 ||
        HasContinuationMark({tag.begin, baseSize})) {
        return kNone;
    }
    const char* digits = tag.begin + baseSize + kMark.size;
    long number = 0;
    for (; digits != tag.end(); ++digits) {
        const long digit = *digits - '0';
        // A number that wraps could come out as 1, the mark of a value's first part.
        if (number > (LONG_MAX - digit) / 10) {
            return kNone;
        }
        number = number * 10 + digit;
    }
    return {baseSize, number};
}

bool HasContinuationMark(Text tag)
{
    return memmem(tag.begin, tag.size, kMark.begin, kMark.size) != nullptr;
}

char* Escaped(Text text)
{
    // Measured first, because one block of just the size is what the object keeps.
    size_t size = text.size;
    for (size_t i = 0; i < text.size; ++i) {
        size += kEscapeSizes[static_cast<unsigned char>(text.begin[i])] - 1;
    }
    auto* const result = static_cast<char*>(Allocate(size + 1));
    if (result == nullptr) {
        return nullptr;
    }
    result[size] = 0;
    KZ_ASSERT(size >= text.size);
    if (size == text.size) {
        memcpy(result, text.begin, size);
    } else {
        WriteEscaped(text, result);
    }
    return result;
}

size_t Unescape(Text text, char* out, size_t room)
{
    BoundedOutput output(out, room);
    for (const char* at = text.begin; at != text.end(); ++at) {
        if (*at != '\\') {
            output.Put(*at);
            continue;
        }
        // A backslash at the end stands for nothing, one in front of no escape for the character behind it.
        if (++at == text.end()) {
            break;
        }
        const bool hasTwoDigits = *at == 'x' && text.end() - at > 2 && HexDigit(at[1]) != 0 && HexDigit(at[2]) != 0;
        if (hasTwoDigits) {
            output.Put(static_cast<char>((HexDigit(at[1]) & 15) * 16 + (HexDigit(at[2]) & 15)));
            at += 2;
        } else {
            output.Put(*at == 'n' ? '\n' : *at == 't' ? '\t' : *at);
        }
    }
    return output.size();
}

bool ParseInt(const char* text, int* out)
{
    bool isNegative = false;
    unsigned int magnitude = 0;
    if (!ParseMagnitude(text, &isNegative, &magnitude)) {
        return false;
    }
    // One more below 0 than above, and from unsigned to int without an overflow on the way.
    if (magnitude > static_cast<unsigned int>(INT_MAX) + (isNegative ? 1 : 0)) {
        return false;
    }
    *out = static_cast<int>(isNegative ? 0u - magnitude : magnitude);
    return true;
}

bool ParseUInt(const char* text, unsigned int* out)
{
    bool isNegative = false;
    unsigned int magnitude = 0;
    if (!ParseMagnitude(text, &isNegative, &magnitude) || isNegative) {
        return false;
    }
    *out = magnitude;
    return true;
}

bool ParseDouble(const char* text, double* out)
{
    const Text whole(text);
    if (CompareBlind(whole, Text("+Inf")) == 0 || CompareBlind(whole, Text("Inf")) == 0) {
        *out = HUGE_VAL;
        return true;
    }
    if (CompareBlind(whole, Text("-Inf")) == 0) {
        *out = -HUGE_VAL;
        return true;
    }
    // A number beyond the range of doubles is no number, rather than the infinity that strtod makes of it; only errno
    // tells. The caller's errno stays.
    const CLocale locale;
    const int before = errno;
    errno = 0;
    char* end = nullptr;
    const double value = strtod(text, &end);
    const bool isNumber = errno == 0 && end == whole.end() && end != text;
    errno = before;
    if (isNumber) {
        *out = value;
    }
    return isNumber;
}

void FormatDouble(double value, char* out, size_t size)
{
    KZ_ASSERT(size > 0);
    const CLocale locale;
    snprintf(out, size, "%.14e", value);
}

}  // namespace qkini
