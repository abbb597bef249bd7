// Numbers to text, then text to numbers. Both are loops that a compiler makes fast only if it knows the base, so each
// common base has a loop of its own.
//
// Writing knows the number of digits before the first one is written, and fills them in from the end, two at a time
// from a table of pairs, because a division yields the lowest digit first.
//
// Reading takes as many digits as fit the range in any case without a look at the range, and only then goes digit by
// digit with a test for each. The digits are read in a work type of 32 or 64 bits without their sign; the sign, and
// the range of the type that was asked for, come in at the end.
#include "NumberText.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "ByteOrder.h"
#include "KzAssert.h"
#include "Report.h"

namespace {

// Reports name the module of formatted printing, because the text of numbers is part of it for those who read them.
constexpr char kModule[] = "source/StringFmtPrint";

constexpr unsigned kMostBase = 36;  // ten digits and as many letters as there are

constexpr char kDigits[] = "0123456789ABCDEF";

// All texts of `n` digits in a base, one after the other.
template <int base, int n>
struct DigitGroups {
    static constexpr int kCount = n == 2 ? base * base : base;
    char text[kCount * n];

    constexpr DigitGroups() : text{}
    {
        for (int i = 0; i < kCount; ++i) {
            for (int digit = n - 1, rest = i; digit >= 0; --digit, rest /= base) {
                text[i * n + digit] = kDigits[rest % base];
            }
        }
    }
};

template <int base>
constexpr DigitGroups<base, 2> kPairs;

// Counts the digits of a value, and writes the last `count` of them in front of `end`.
template <int base, typename Unsigned>
struct DigitWriter {
    static constexpr int kBits = std::bit_width(static_cast<unsigned>(base)) - 1;
    static_assert(1 << kBits == base);

    // Of a digit for each kBits bits, and of one for 0.
    static int Count(Unsigned value)
    {
        return std::max(1, (static_cast<int>(std::bit_width(value)) + kBits - 1) / kBits);
    }

    static void Write(Unsigned value, char* end, int count)
    {
        constexpr Unsigned kPairMask = (1u << (2 * kBits)) - 1;
        for (; count >= 2; count -= 2) {
            end -= 2;
            std::memcpy(end, kPairs<base>.text + (value & kPairMask) * 2, 2);
            value >>= 2 * kBits;
        }
        if (count > 0) {
            *--end = kDigits[value & (base - 1)];
        }
    }
};

// The eight bits of a byte as eight digits, the highest first in memory on a little-endian machine: the product puts
// bit 7 - i of the byte into bit 7 of byte i.
void WriteBits(unsigned byte, char* at)
{
    constexpr uint64_t kSpread = 0x8040201008040201u;
    constexpr uint64_t kLowBits = 0x0101010101010101u;
    const uint64_t digits = (((byte * kSpread) >> 7) & kLowBits) | kLowBits * '0';
    std::memcpy(at, &digits, sizeof digits);
}

// Base 2 goes by bytes of eight digits, which a product makes at once.
template <typename Unsigned>
struct DigitWriter<2, Unsigned> {
    static int Count(Unsigned value) { return std::max(1, static_cast<int>(std::bit_width(value))); }

    static void Write(Unsigned value, char* end, int count)
    {
        for (; count >= 8; count -= 8) {
            end -= 8;
            WriteBits(static_cast<unsigned>(value & 0xFF), end);
            value >>= 8;
        }
        if (count > 0) {
            // The digits above `count` are none of the number's: the eight are made aside, and the last ones copied.
            char rest[8];
            WriteBits(static_cast<unsigned>(value & 0xFF), rest);
            for (int i = 1; i <= count; ++i) {
                end[-i] = rest[8 - i];
            }
        }
    }
};

// Base 10 goes by eight digits, because 32-bit divisions by constants are cheaper than 64-bit ones.
template <typename Unsigned>
struct DigitWriter<10, Unsigned> {
    static constexpr auto kPowers = [] {
        std::array<Unsigned, std::numeric_limits<Unsigned>::digits10 + 1> powers{};
        Unsigned power = 1;
        for (Unsigned& each : powers) {
            each = power;
            power *= 10;
        }
        return powers;
    }();

    static int Count(Unsigned value)
    {
        const Unsigned odd = value | 1;  // as many digits, and at least one bit
        // log10(2) for each bit, a trifle less: the number of digits or one below it, between which the power decides.
        const int powers = static_cast<int>(std::bit_width(odd)) * 1233 >> 12;
        KZ_ASSERT(powers >= 0 && static_cast<std::size_t>(powers) < kPowers.size());
        return powers + (odd >= kPowers[static_cast<std::size_t>(powers)] ? 1 : 0);
    }

    static void Write(Unsigned value, char* end, int count)
    {
        KZ_ASSERT(count >= 1);
        for (; count > 8; count -= 8) {
            end -= 8;
            WriteEight(static_cast<uInt32>(value % 100000000), end);
            value /= 100000000;
        }
        auto rest = static_cast<uInt32>(value % 100000000);
        for (; count >= 2; count -= 2) {
            end -= 2;
            WritePair(rest % 100, end);
            rest /= 100;
        }
        if (count > 0) {
            *--end = kDigits[rest % 10];
        }
    }

private:
    static void WritePair(uInt32 value, char* at) { std::memcpy(at, kPairs<10>.text + value * 2, 2); }

    // Split in the middle, because the two halves then don't wait for each other.
    static void WriteEight(uInt32 value, char* at)
    {
        const uInt32 high = value / 10000;
        const uInt32 low = value % 10000;
        WritePair(high / 100, at);
        WritePair(high % 100, at + 2);
        WritePair(low / 100, at + 4);
        WritePair(low % 100, at + 6);
    }
};

struct Written {
    int length;       // without the NUL
    bool isComplete;  // all digits had room
    bool hasSign;
};

// Into `room` bytes, at least one. What lacks room goes from the front: the sign first, then the highest digits.
template <int base, typename Unsigned>
Written WriteInBase(Unsigned value, bool isNegative, char* buffer, int room)
{
    KZ_ASSERT(room >= 1);
    using Writer = DigitWriter<base, Unsigned>;
    const int all = Writer::Count(value);
    const int count = std::min(all, room);
    const bool hasSign = isNegative && count < room;
    const int length = count + (hasSign ? 1 : 0);
    buffer[0] = '-';  // the first digit goes over it where there is no sign
    Writer::Write(value, buffer + length, count);
    return {length, count == all, hasSign};
}

// Any other base has no digits, and a sign that is not missed.
template <typename Unsigned>
Written Write(Unsigned value, bool isNegative, char* buffer, int room, int32 base)
{
    switch (base) {
        case 2:
            return WriteInBase<2>(value, isNegative, buffer, room);
        case 8:
            return WriteInBase<8>(value, isNegative, buffer, room);
        case 10:
            return WriteInBase<10>(value, isNegative, buffer, room);
        case 16:
            return WriteInBase<16>(value, isNegative, buffer, room);
        default:
            return {0, false, isNegative};
    }
}

// The reports are kept apart: their streams would make each call set up a large frame.
[[gnu::cold, gnu::noinline]] void ReportTooSmall()
{
    KZ_REPORT(kDbgWarning, 0xB07D16E2) << "NumToStr requires at least 2 bytes in the input buffer.";
}

[[gnu::cold, gnu::noinline]] void ReportIncomplete(int32 base)
{
    KZ_REPORT(kDbgWarning, 0x4E3A90C7) << "Incomplete conversion in NumToStr: buffer provided was not large enough to "
                                          "represent the number in base "
                                       << base << ".";
}

[[gnu::cold, gnu::noinline]] void ReportLostSign()
{
    KZ_REPORT(kDbgWarning, 0x61F8C35D) << "Unable to include sign in NumToStr: buffer too small.";
}

// The value of each byte as a digit; 255, which no base reaches, for none.
constexpr auto kDigitValues = [] {
    std::array<unsigned char, 256> values{};
    values.fill(255);
    for (unsigned i = 0; i < kMostBase; ++i) {
        values[i < 10 ? '0' + i : 'a' + i - 10] = static_cast<unsigned char>(i);
        values[i < 10 ? '0' + i : 'A' + i - 10] = static_cast<unsigned char>(i);
    }
    return values;
}();

// What a reading in `Work` has to know of each base: how many digits fit in any case, also where half of the range is
// the limit, and the greatest value that can take one more digit.
template <typename Work>
struct BaseLimits {
    struct Limits {
        int safeDigits;
        Work last;
        Work lastSigned;
    };
    std::array<Limits, kMostBase + 1> limits{};

    constexpr BaseLimits()
    {
        constexpr Work kMost = std::numeric_limits<Work>::max();
        // Base 0 keeps limits of 0: it has no digit. In base 1, whose only digit is 0, the count alone ends the loop.
        for (unsigned base = 1; base < limits.size(); ++base) {
            int safe = 0;
            for (Work power = 1; power <= (kMost >> 1) / base && safe < std::numeric_limits<Work>::digits; ++safe) {
                power *= base;
            }
            limits[base] = {safe, static_cast<Work>(kMost / base), static_cast<Work>((kMost >> 1) / base)};
        }
    }
};

template <typename Work>
constexpr BaseLimits<Work> kBaseLimits;

// Eight digits of base 2 at once: the product gathers the lowest bits of the bytes in its highest byte, the byte that
// comes first in memory on top. False where one of the eight is no digit.
bool ReadEightBits(uint64_t text, uint64_t* value)
{
    constexpr uint64_t kZeros = 0x3030303030303030u;
    constexpr uint64_t kLowBits = 0x0101010101010101u;
    constexpr uint64_t kGather = 0x8040201008040201u;
    *value = ((text & kLowBits) * kGather) >> 56;
    return (text & ~kLowBits) == kZeros;
}

// Bytes in memory, with those operations of a NumberTextReader that are needed. Their end is not known here: the parser
// asks for no more than its caller's length.
class MemoryReader {
public:
    explicit MemoryReader(const unsigned char* at) : mAt(at) {}
    unsigned char Peek() const { return *mAt; }
    void Advance() { ++mAt; }
    void Seek(int32 by) { mAt += by; }
    const unsigned char* at() const { return mAt; }

    // Takes up to `most` digits, which are known to fit, behind those of `value`; how many there were.
    template <typename Work>
    int32 TakeDigits(unsigned base, int32 most, Work* value)
    {
        KZ_ASSERT(most >= 0 && base <= kMostBase);
        const unsigned char* const end = mAt + most;
        const unsigned char* const start = mAt;
        // Each loop knows its base: a product by a constant takes less time.
        switch (base) {
            case 2:
                *value = TakeEightBits<Work>(end);
                *value = TakeIn<Work>(std::integral_constant<unsigned, 2>(), end, *value);
                break;
            case 10:
                *value = TakeIn<Work>(std::integral_constant<unsigned, 10>(), end, 0);
                break;
            case 16:
                *value = TakeIn<Work>(std::integral_constant<unsigned, 16>(), end, 0);
                break;
            default:
                *value = TakeIn<Work>(base, end, 0);
        }
        return static_cast<int32>(mAt - start);
    }

private:
    template <typename Work, typename Base>
    Work TakeIn(Base base, const unsigned char* end, Work value)
    {
        for (; mAt != end; ++mAt) {
            const unsigned digit = base <= 10 ? unsigned{*mAt} - '0' : kDigitValues[*mAt];
            if (digit >= base) {
                break;
            }
            value = static_cast<Work>(value * base + digit);
        }
        return value;
    }

    // Stops at the first eight bytes that are not all digits, which TakeIn then reads one by one.
    template <typename Work>
    Work TakeEightBits(const unsigned char* end)
    {
        Work value = 0;
        uint64_t text = 0;
        uint64_t eight = 0;
        for (; end - mAt >= 8; mAt += 8) {
            std::memcpy(&text, mAt, sizeof text);
            if (!ReadEightBits(text, &eight)) {
                break;
            }
            value = static_cast<Work>(value << 8 | eight);
        }
        return value;
    }

    const unsigned char* mAt;
};

// The host's reader with the same operations. It hands out single bytes, so that there are no loops for bases.
class HostReader {
public:
    explicit HostReader(NumberTextReader* reader) : mReader(*reader) {}
    unsigned char Peek() { return mReader.Peek(); }
    void Advance() { mReader.Advance(); }
    void Seek(int32 by) { mReader.Seek(by); }

    template <typename Work>
    int32 TakeDigits(unsigned base, int32 most, Work* value)
    {
        int32 count = 0;
        for (*value = 0; count < most; ++count, mReader.Advance()) {
            const unsigned digit = kDigitValues[mReader.Peek()];
            if (digit >= base) {
                break;
            }
            *value = *value * base + digit;
        }
        return count;
    }

private:
    NumberTextReader& mReader;
};

// A type's range: of 0 bits for what is no integer, which holds whatever the work type holds.
struct Target {
    bool isSigned;
    int bits;

    explicit Target(int32 type)
        : isSigned(type >= kNumI8 && type <= kNumI64),
          bits(isSigned                            ? 8 << (type - kNumI8)
               : type >= kNumU8 && type <= kNumU64 ? 8 << (type - kNumU8)
                                                   : 0)
    {}
};

// Reads one number in a work type as wide as the values it is to hold. One object reads one number.
template <typename Work, typename Reader>
class NumberParser {
public:
    NumberParser(Reader* reader, int32 length, int32 base)
        : mReader(reader), mLength(length), mLeft(length), mBase(base)
    {}

    Work Parse(int32 type, bool noSign)
    {
        const Target target(type);
        while (HasNext(' ')) {
            Skip();
        }
        if (!noSign && (HasNext('-') || HasNext('+'))) {
            mIsMinus = mReader->Peek() == '-';
            Skip();
        }
        // Blanks and a sign are part of a number only if a digit follows; else the reader goes back to the start.
        const int32 before = mLeft;
        const Work value = ReadDigits(target.isSigned && mBase == 10);
        if (mLeft == before) {
            mReader->Seek(mLeft - mLength);
            return 0;
        }
        if (mBase != 10) {
            const Work held = HeldAsBits(value, target);
            return mIsMinus ? Work{0} - held : held;
        }
        // What has overflowed is the end of the range already, and must not be negated.
        const bool isNegated = mIsMinus && !mOverflowed;
        return Held(isNegated ? Work{0} - value : value, isNegated, target);
    }

private:
    using SignedWork = std::make_signed_t<Work>;
    static constexpr int kWorkBits = std::numeric_limits<Work>::digits;

    bool HasNext(unsigned char c) const { return mLeft > 0 && mReader->Peek() == c; }

    void Skip()
    {
        mReader->Advance();
        --mLeft;
    }

    // The next digit's value, which is the base or more when there is none.
    unsigned NextDigit() const { return mLeft > 0 ? kDigitValues[mReader->Peek()] : 255; }

    // The digits' value, or the end of the range that it passes.
    Work ReadDigits(bool isSigned)
    {
        // A base out of range is the nearest one in range, since the tables end there.
        const auto base = static_cast<unsigned>(std::clamp(mBase, 0, static_cast<int>(kMostBase)));
        const auto& limits = kBaseLimits<Work>.limits[base];
        Work value = 0;
        mLeft -= mReader->TakeDigits(base, std::clamp(mLeft, 0, limits.safeDigits), &value);
        unsigned digit = NextDigit();
        if (digit >= base) {
            return value;
        }
        const Work most = isSigned ? std::numeric_limits<Work>::max() >> 1 : std::numeric_limits<Work>::max();
        const Work last = isSigned ? limits.lastSigned : limits.last;
        // After an overflow the digits are still read, so that none is left standing behind the number.
        for (; digit < base; digit = NextDigit()) {
            mOverflowed = mOverflowed || value > last || digit > most - value * base;
            if (!mOverflowed) {
                value = value * base + digit;
            }
            Skip();
        }
        if (!mOverflowed) {
            return value;
        }
        return isSigned && mIsMinus ? most + 1 : most;  // the bits of the least number
    }

    // Base 10: the nearest value of the type.
    static Work Held(Work value, bool isNegated, const Target& target)
    {
        if (target.bits == 0 || target.bits >= kWorkBits) {
            return value;
        }
        const Work most = (Work{1} << (target.bits - (target.isSigned ? 1 : 0))) - 1;
        // Below 0 an unsigned type holds nothing, so that its nearest value is 0.
        if (!target.isSigned) {
            return isNegated ? 0 : std::min(value, most);
        }
        const auto top = static_cast<SignedWork>(most);
        return static_cast<Work>(std::clamp(static_cast<SignedWork>(value), -top - 1, top));
    }

    // Other bases: the value if the type has so many bits, else its greatest value.
    static Work HeldAsBits(Work value, const Target& target)
    {
        if (target.bits == 0 || target.bits >= kWorkBits) {
            return value;
        }
        const Work bits = (Work{1} << target.bits) - 1;
        return value <= bits ? value : target.isSigned ? bits >> 1 : bits;
    }

    Reader* const mReader;
    const int32 mLength;
    int32 mLeft;
    const int32 mBase;
    bool mIsMinus = false;
    bool mOverflowed = false;
};

template <typename Reader>
uInt32 Parse32(Reader* reader, int32 length, int32 type, int32 base, KzBool noSign)
{
    return NumberParser<uInt32, Reader>(reader, length, base).Parse(type, noSign != 0);
}

template <typename Reader>
uInt64 Parse64(Reader* reader, int32 length, int32 type, int32 base, KzBool noSign)
{
    if (type == kNumI64 || type == kNumU64) {
        return NumberParser<uInt64, Reader>(reader, length, base).Parse(type, noSign != 0);
    }
    return Parse32(reader, length, type, base, noSign);
}

}  // namespace

// The caller who asks by `ok` gets no report, whatever lacks. The others get one for each thing that lacks, since both
// the digits and the sign may.
template <typename T>
int32 NumToStr(T value, char* buffer, int32 bufferSize, int32 base, bool* ok)
{
    if (bufferSize < 2) {
        if (ok == nullptr) {
            ReportTooSmall();
        } else {
            *ok = false;
        }
        if (bufferSize == 1) {
            buffer[0] = 0;
        }
        return 0;
    }
    using Unsigned = std::make_unsigned_t<T>;
    const bool isNegative = base == 10 && value < 0;
    // Negated as unsigned: the least number has no positive partner in its own type.
    const auto magnitude = isNegative ? Unsigned{0} - static_cast<Unsigned>(value) : static_cast<Unsigned>(value);
    const Written written = Write(magnitude, isNegative, buffer, bufferSize - 1, base);
    buffer[written.length] = 0;
    if (ok != nullptr) {
        *ok = written.isComplete && written.hasSign == isNegative;
        return written.length;
    }
    if (!written.isComplete) {
        ReportIncomplete(base);
    }
    if (written.hasSign != isNegative) {
        ReportLostSign();
    }
    return written.length;
}

template KZ_EXPORT int32 NumToStr<int>(int, char*, int32, int32, bool*);
template KZ_EXPORT int32 NumToStr<unsigned int>(unsigned int, char*, int32, int32, bool*);
template KZ_EXPORT int32 NumToStr<long long>(long long, char*, int32, int32, bool*);
template KZ_EXPORT int32 NumToStr<unsigned long long>(unsigned long long, char*, int32, int32, bool*);

int32 NumToIntString(const void* value, char* buffer, int32 bufferSize, int32 base, KzBool isSigned, int32 type)
{
    if (type == kNumI64 || type == kNumU64) {
        return isSigned != 0 ? NumToStr(kz::LoadNative<long long>(value), buffer, bufferSize, base, nullptr)
                             : NumToStr(kz::LoadNative<unsigned long long>(value), buffer, bufferSize, base, nullptr);
    }
    return isSigned != 0 ? NumToStr(kz::LoadNative<int>(value), buffer, bufferSize, base, nullptr)
                         : NumToStr(kz::LoadNative<unsigned int>(value), buffer, bufferSize, base, nullptr);
}

uInt32 StringToNum32(const unsigned char** cursor, int32 length, int32 type, int32 base, KzBool noSign)
{
    MemoryReader reader(*cursor);
    const uInt32 result = Parse32(&reader, length, type, base, noSign);
    *cursor = reader.at();
    return result;
}

uInt64 StringToNum64(const unsigned char** cursor, int32 length, int32 type, int32 base, KzBool noSign)
{
    MemoryReader reader(*cursor);
    const uInt64 result = Parse64(&reader, length, type, base, noSign);
    *cursor = reader.at();
    return result;
}

uInt32 StringToNumL(NumberTextReader* reader, int32 length, int32 type, int32 base, KzBool noSign)
{
    HostReader host(reader);
    return Parse32(&host, length, type, base, noSign);
}

uInt64 StringToNumQ(NumberTextReader* reader, int32 length, int32 type, int32 base, KzBool noSign)
{
    HostReader host(reader);
    return Parse64(&host, length, type, base, noSign);
}
