#include "ATime128.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <random>
#include <string>

#include "JsonLines.h"

namespace {

using kztest::Json;
using Fixed = nQKSS100::tFixedPoint128<64, true>;
__extension__ typedef unsigned __int128 Bits;
__extension__ typedef __int128 SignedBits;

constexpr int kRounds = 100'000;

Bits BitsOf(const Fixed& value)
{
    uInt32 w[4];
    value.Get(&w[3], &w[2], &w[1], &w[0]);
    Bits bits = 0;
    for (int i = 3; i >= 0; --i) {
        bits = bits << 32 | w[i];
    }
    return bits;
}

Fixed FromBits(Bits bits)
{
    return Fixed(static_cast<uInt32>(bits >> 96), static_cast<uInt32>(bits >> 64), static_cast<uInt32>(bits >> 32),
                 static_cast<uInt32>(bits));
}

// Words with long runs of equal bits, so that carries and borrows go far.
Bits RandomBits(std::mt19937_64& random)
{
    Bits bits = Bits{random()} << 64 | random();
    switch (random() % 4) {
        case 0:
            bits >>= random() % 128;
            break;
        case 1:
            bits = ~(bits >> random() % 128);
            break;
        case 2:
            bits = bits >> random() % 64 << random() % 64;
            break;
        default:
            break;
    }
    return bits;
}

double RandomDouble(std::mt19937_64& random)
{
    return std::ldexp(static_cast<double>(static_cast<int64>(random())), static_cast<int>(random() % 220) - 160);
}

// Works on the number itself, where the class works on its bits.
Bits Reference(double value)
{
    const double magnitude = std::fabs(value);
    if (!std::isfinite(value)) {
        constexpr Bits kTop = Bits{1} << 127;
        return std::signbit(value) ? kTop : kTop - 1;
    }
    Bits bits = 0;
    int exponent;
    const double mantissa = std::frexp(magnitude, &exponent);  // below 1
    const int shift = exponent - 53 + 64;
    const auto whole = static_cast<Bits>(std::ldexp(mantissa, 53));
    if (shift >= 0) {
        bits = magnitude >= 0x1p116 ? 0 : shift >= 128 ? 0 : whole << shift;
    } else {
        bits = -shift >= 128 ? 0 : whole >> -shift;
    }
    return std::signbit(value) ? 0 - bits : bits;
}

TEST(ATime128, ArithmeticIsExact)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < kRounds; ++i) {
        const Bits a = RandomBits(random);
        const Bits b = RandomBits(random);
        Fixed value = FromBits(a);
        ASSERT_EQ(BitsOf(value), a);
        value += FromBits(b);
        ASSERT_TRUE(BitsOf(value) == a + b);
        value = FromBits(a);
        value -= FromBits(b);
        ASSERT_TRUE(BitsOf(value) == a - b);
        value = FromBits(a);
        value.Negate();
        ASSERT_TRUE(BitsOf(value) == 0 - a);
        value.Invert();
        value.IncrementLSB();
        ASSERT_TRUE(BitsOf(value) == a);

        const int amount = static_cast<int>(random() % 300) - 150;
        const bool arithmetic = random() % 2 != 0;
        const Bits fill = arithmetic && a >> 127 != 0 ? ~Bits{0} : 0;
        Bits shifted = amount < 0 ? (amount < -127 ? 0 : a << -amount) : fill;
        if (amount >= 0 && amount <= 127) {
            shifted = a >> amount | (amount == 0 ? 0 : fill << (128 - amount));
        }
        value.RightShift(amount, arithmetic);
        ASSERT_TRUE(BitsOf(value) == shifted) << amount;
    }
}

TEST(ATime128, DoublesAreExact)
{
    std::mt19937_64 random(2);
    const double special[] = {
        0.0,      -0.0,   1e-300,   5e-324,    0x1p-64,   -0x1p-64,
        0x1p-65,  0x1p63, -0x1p63,  0x1p64,    0x1.8p115, 0x1p116,
        -0x1p116, 1e308,  INFINITY, -INFINITY, NAN,       -std::numeric_limits<double>::quiet_NaN()};
    for (const double value : special) {
        ASSERT_TRUE(BitsOf(Fixed(value)) == Reference(value)) << value;
    }
    for (int i = 0; i < kRounds; ++i) {
        const double value = RandomDouble(random);
        const double other = RandomDouble(random);
        ASSERT_TRUE(BitsOf(Fixed(value)) == Reference(value)) << value;
        ASSERT_TRUE(BitsOf(Fixed(value, other)) == Reference(value) + Reference(other)) << value << " " << other;

        const Bits bits = RandomBits(random);
        const bool isNegative = bits >> 127 != 0;
        const Bits magnitude = isNegative ? 0 - bits : bits;
        // 64 bits fit an extended number, so the sum from the lowest word on rounds at most twice.
        const auto extended = static_cast<long double>(FromBits(bits));
        const long double high = static_cast<long double>(static_cast<uInt64>(magnitude >> 64));
        const long double low = static_cast<long double>(static_cast<uInt64>(magnitude));
        const long double expected = (isNegative ? -1.0L : 1.0L) * (high + low * 0x1p-64L);
        ASSERT_LE(std::fabs(extended - expected), std::fabs(expected) * 0x1p-63L);
        ASSERT_EQ(static_cast<double>(FromBits(bits)), static_cast<double>(extended));
        ASSERT_EQ(FromBits(bits) / 8.0, static_cast<double>(extended) / 8.0);
    }
    EXPECT_EQ(static_cast<double>(Fixed(-1.0)), -1.0);
    EXPECT_EQ(static_cast<double>(FromBits(Bits{1} << 127)), -0x1p63);
}

Fixed FromWords(const Json& words)
{
    uInt32 w[4];
    for (std::size_t i = 0; i < 4; ++i) {
        w[i] = static_cast<uInt32>(std::stoul(words[i].Str(), nullptr, 16));
    }
    return Fixed(w[3], w[2], w[1], w[0]);
}

double FromHexDigits(const Json& digits)
{
    return std::bit_cast<double>(static_cast<uInt64>(std::stoull(digits.Str(), nullptr, 16)));
}

// What the operation of a row gives.
Fixed ResultOf(const std::string& op, const Json& row)
{
    if (op == "FromDouble") {
        return Fixed(FromHexDigits(row["double"]));
    }
    if (op == "FromTwoDoubles") {
        return Fixed(FromHexDigits(row["doubles"][std::size_t{0}]), FromHexDigits(row["doubles"][std::size_t{1}]));
    }
    if (op == "FromHILOTime") {
        return ATime128FromHILOTime(static_cast<uInt32>(row["hi"].UInt()), static_cast<uInt32>(row["lo"].UInt()));
    }
    Fixed value = FromWords(row["words"]);
    if (op == "Add") {
        value += FromWords(row["other"]);
    } else if (op == "Subtract") {
        value -= FromWords(row["other"]);
    } else if (op == "IncrementLSB") {
        value.IncrementLSB();
    } else if (op == "Invert") {
        value.Invert();
    } else if (op == "Negate") {
        value.Negate();
    } else if (op == "RightShift") {
        value.RightShift(static_cast<int>(row["amount"].Int()), row["arithmetic"].Int() != 0);
    } else {
        ADD_FAILURE() << row.Line();
    }
    return value;
}

TEST(ATime128, AgreesWithStoredVectors)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/fixed_time.jsonl")) {
        const std::string& op = row["op"].Str();
        if (op == "ToDouble") {
            EXPECT_EQ(static_cast<double>(FromWords(row["words"])), FromHexDigits(row["double"])) << row.Line();
            continue;
        }
        const Fixed expected = FromWords(row[row.Has("result") ? "result" : "words"]);
        EXPECT_TRUE(BitsOf(ResultOf(op, row)) == BitsOf(expected)) << row.Line();
    }
}

TEST(ATime128, HalvesLayoutAndClock)
{
    ATime128 time(1, 2, 3, 4);
    uInt32 words[4];
    std::memcpy(words, &time, sizeof words);
    EXPECT_EQ(words[0], 4u);
    EXPECT_EQ(words[3], 1u);
    EXPECT_EQ(time.GetInt64Seconds(), 0x100000002);
    EXPECT_EQ(time.GetUInt64Fraction(), 0x300000004u);
    time.SetInt64Seconds(-5);
    time.SetUInt64Fraction(uInt64{1} << 63);
    EXPECT_EQ(time.getSeconds(), -5.0);
    EXPECT_EQ(time.getFraction(), 0.5);
    EXPECT_EQ(static_cast<double>(time), -4.5);
    time.Get(nullptr, nullptr, &words[0], nullptr);
    EXPECT_EQ(words[0], 0x80000000u);
    time.Zero();
    EXPECT_EQ(static_cast<double>(time), 0.0);

    // Not ::time, because that may lag the precise clock by a tick.
    const auto seconds = [] {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        return now.tv_sec;
    };
    const time_t before = seconds();
    GetCurrentATime128(&time);
    const time_t after = seconds();
    EXPECT_GE(time.GetInt64Seconds(), before + 2'082'844'800);
    EXPECT_LE(time.GetInt64Seconds(), after + 2'082'844'800);
    EXPECT_EQ(TToStd(0), 2'082'844'800u);
    EXPECT_EQ(StdToT(0), -2'082'844'800);
    EXPECT_EQ(StdToT(TToStd(before)), before);

    // The chain over halves that stand two words apart, and over one that ends while it still carries.
    unsigned long halves[] = {~0ul, 7, ~0ul, 7, 1};
    nQKSS100::tFixedPoint128Extra::AddChain<unsigned long>(halves, 2, 5, 3);
    EXPECT_EQ(halves[0], 4u);
    EXPECT_EQ(halves[2], 0u);
    EXPECT_EQ(halves[4], 2u);
    EXPECT_EQ(halves[1] + halves[3], 14u);
}

}  // namespace
