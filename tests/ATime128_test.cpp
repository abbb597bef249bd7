#include "ATime128.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <ctime>
#include <iterator>
#include <random>
#include <string>
#include <utility>

#include "JsonLines.h"

namespace {

using kztest::Json;
using Fixed = nQKSS100::tFixedPoint128<64, true>;
__extension__ typedef unsigned __int128 Bits;
__extension__ typedef __int128 SignedBits;

Bits BitsOf(const Fixed& value)
{
    uInt32 w[4];
    value.Get(&w[3], &w[2], &w[1], &w[0]);
    return Bits{w[3]} << 96 | Bits{w[2]} << 64 | Bits{w[1]} << 32 | w[0];
}

Fixed FromBits(Bits bits)
{
    return Fixed(static_cast<uInt32>(bits >> 96), static_cast<uInt32>(bits >> 64), static_cast<uInt32>(bits >> 32),
                 static_cast<uInt32>(bits));
}

// Works on the number itself, where the class works on its bits.
Bits Reference(double value)
{
    const double magnitude = std::fabs(value);
    if (!std::isfinite(value)) {
        constexpr Bits kTop = Bits{1} << 127;
        return std::signbit(value) ? kTop : kTop - 1;
    }
    int exponent;
    const double mantissa = std::frexp(magnitude, &exponent);  // below 1
    const int shift = exponent - 53 + 64;
    const auto whole = static_cast<Bits>(std::ldexp(mantissa, 53));
    const bool isOutside = magnitude >= 0x1p116 || shift <= -128;
    const Bits bits = isOutside ? 0 : shift >= 0 ? whole << shift : whole >> -shift;
    return std::signbit(value) ? 0 - bits : bits;
}

// What an operation may need.
struct Operands {
    Bits bits, other;
    double a, b;
    int amount;
    bool isArithmetic;
};
using In = const Operands&;

Bits Shifted(In x)
{
    return x.amount < -127  ? 0
           : x.amount < 0   ? x.bits << -x.amount
           : x.isArithmetic ? static_cast<Bits>(static_cast<SignedBits>(x.bits) >> std::min(x.amount, 127))
           : x.amount < 128 ? x.bits >> x.amount
                            : 0;
}

// Each operation, and what it comes to.
const struct {
    const char* name;
    Fixed (*call)(Fixed value, In x);
    Bits (*expected)(In x);
} kOperations[] = {
    {"Get", [](Fixed v, In) { return v; }, [](In x) { return x.bits; }},
    {"Add", [](Fixed v, In x) { return v += FromBits(x.other); }, [](In x) { return x.bits + x.other; }},
    {"AddItself", [](Fixed v, In) { return v += std::as_const(v); }, [](In x) { return x.bits * 2; }},
    {"Subtract", [](Fixed v, In x) { return v -= FromBits(x.other); }, [](In x) { return x.bits - x.other; }},
    {"SubtractItself", [](Fixed v, In) { return v -= std::as_const(v); }, [](In) { return Bits{0}; }},
    {"Negate", [](Fixed v, In) { return v.Negate(), v; }, [](In x) { return 0 - x.bits; }},
    {"Invert", [](Fixed v, In) { return v.Invert(), v; }, [](In x) { return ~x.bits; }},
    {"IncrementLSB", [](Fixed v, In) { return v.IncrementLSB(), v; }, [](In x) { return x.bits + 1; }},
    {"RightShift", [](Fixed v, In x) { return v.RightShift(x.amount, x.isArithmetic), v; }, &Shifted},
    {"FromDouble", [](Fixed, In x) { return Fixed(x.a); }, [](In x) { return Reference(x.a); }},
    {"FromTwoDoubles", [](Fixed, In x) { return Fixed(x.a, x.b); },
     [](In x) { return Reference(x.a) + Reference(x.b); }},
};

// Words with long runs of equal bits, so that carries and borrows go far.
Bits RandomBits(std::mt19937_64& random)
{
    const Bits bits = Bits{random()} << 64 | random();
    const auto kind = random() % 4;
    return kind == 0   ? bits >> random() % 128
           : kind == 1 ? ~(bits >> random() % 128)
           : kind == 2 ? bits >> random() % 64 << random() % 64
                       : bits;
}

double RandomDouble(std::mt19937_64& random)
{
    constexpr double kSpecial[] = {0.0,    1e-300,    5e-324,  0x1p-64, 0x1p-65,  0x1p63,
                                   0x1p64, 0x1.8p115, 0x1p116, 1e308,   INFINITY, NAN};
    const double value =
        std::ldexp(static_cast<double>(static_cast<int64>(random())), static_cast<int>(random() % 220) - 160);
    return random() % 16 == 0 ? std::copysign(kSpecial[random() % std::size(kSpecial)], value) : value;
}

TEST(ATime128, ArithmeticIsExact)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 100'000; ++i) {
        const Operands x{RandomBits(random),
                         RandomBits(random),
                         RandomDouble(random),
                         RandomDouble(random),
                         static_cast<int>(random() % 300) - 150,
                         random() % 2 != 0};
        for (const auto& operation : kOperations) {
            ASSERT_TRUE(BitsOf(operation.call(FromBits(x.bits), x)) == operation.expected(x))
                << operation.name << " " << x.a << " " << x.b << " " << x.amount;
        }
        const bool isNegative = x.bits >> 127 != 0;
        const Bits magnitude = isNegative ? 0 - x.bits : x.bits;
        // 64 bits fit an extended number, so the sum from the lowest word on rounds at most twice.
        const auto extended = static_cast<long double>(FromBits(x.bits));
        const long double high = static_cast<long double>(static_cast<uInt64>(magnitude >> 64));
        const long double low = static_cast<long double>(static_cast<uInt64>(magnitude));
        const long double expected = (isNegative ? -1.0L : 1.0L) * (high + low * 0x1p-64L);
        ASSERT_LE(std::fabs(extended - expected), std::fabs(expected) * 0x1p-63L);
        ASSERT_EQ(static_cast<double>(FromBits(x.bits)), static_cast<double>(extended));
        ASSERT_EQ(FromBits(x.bits) / 8.0, static_cast<double>(extended) / 8.0);
    }
    EXPECT_EQ(static_cast<double>(FromBits(Bits{1} << 127)), -0x1p63);
}

Bits FromWords(const Json& words)
{
    Bits bits = 0;
    for (int i = 3; i >= 0; --i) {
        bits = bits << 32 | std::stoul(words[i].Str(), nullptr, 16);
    }
    return bits;
}

double FromHexDigits(const Json& digits)
{
    return std::bit_cast<double>(static_cast<uInt64>(std::stoull(digits.Str(), nullptr, 16)));
}

TEST(ATime128, AgreesWithStoredVectors)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/fixed_time.jsonl")) {
        SCOPED_TRACE(row.Line());
        const std::string& op = row["op"].Str();
        Operands x{};
        x.bits = FromWords(row["words"]);
        x.other = row.Has("other") ? FromWords(row["other"]) : 0;
        x.a = row.Has("double")    ? FromHexDigits(row["double"])
              : row.Has("doubles") ? FromHexDigits(row["doubles"][0])
                                   : 0;
        x.b = row.Has("doubles") ? FromHexDigits(row["doubles"][1]) : 0;
        x.amount = row.Has("amount") ? static_cast<int>(row["amount"].Int()) : 0;
        x.isArithmetic = row.Has("arithmetic") && row["arithmetic"].Int() != 0;
        const Bits expected = FromWords(row[row.Has("result") ? "result" : "words"]);
        if (op == "ToDouble") {
            EXPECT_EQ(static_cast<double>(FromBits(x.bits)), x.a);
        } else if (op == "FromHILOTime") {
            const auto hi = static_cast<uInt32>(row["hi"].UInt()), lo = static_cast<uInt32>(row["lo"].UInt());
            EXPECT_TRUE(BitsOf(ATime128FromHILOTime(hi, lo)) == expected);
        } else {
            const auto found = std::find_if(std::begin(kOperations), std::end(kOperations),
                                            [&](const auto& operation) { return op == operation.name; });
            ASSERT_NE(found, std::end(kOperations));
            EXPECT_TRUE(BitsOf(found->call(FromBits(x.bits), x)) == expected);
        }
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
