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

// How many bytes stand for each byte.
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

// The last eight bytes, or all of a shorter text.
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

uint64_t Mix(uint64_t a, uint64_t b)
{
    __extension__ typedef unsigned __int128 Wide;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

// An integer's sign and magnitude of at most 32 bits.
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
        if (!IsDigit(*at) || value > kTenth || (value == kTenth && digit > 5)) {
            return false;
        }
        value = value * 10 + digit;
    }
    *magnitude = value;
    return true;
}

// The locale of files, for the time of a call into the C library. It is made once and never freed, because any thread
// may be in such a call at the process's end.
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
    // Multiply and fold the product, as in wyhash by Wang Yi; its constants.
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
    if (strncmp(stored, name.begin, name.size) == 0 && stored[name.size] == 0) {
        return true;
    }
    return !caseSensitive && CompareBlind(Text(stored), name) == 0;
}

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
    const size_t baseSize = BaseOfLookalike(tag);
    if (baseSize == 0 || memcmp(tag.begin + baseSize, kMark.begin, kMark.size) != 0 ||
        HasContinuationMark({tag.begin, baseSize})) {
        return kNone;
    }
    const char* digits = tag.begin + baseSize + kMark.size;
    long number = 0;
    for (; digits != tag.end(); ++digits) {
        const long digit = *digits - '0';
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
    size_t size = text.size;
    for (size_t i = 0; i < text.size; ++i) {
        size += kEscapeSizes[static_cast<unsigned char>(text.begin[i])] - 1;
    }
    auto* const result = static_cast<char*>(Allocate(size + 1));
    if (result == nullptr) {
        return nullptr;
    }
    result[size] = 0;
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
    const CLocale locale;
    snprintf(out, size, "%.14e", value);
}

}  // namespace qkini
