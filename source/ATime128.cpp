// The number is computed with as two halves of 64 bits, of which the words in memory are the lowest first. Everything
// wraps, because the halves are unsigned; only the sign's bit, on top of the seconds, is looked at as such.
#include "ATime128.h"

#include <bit>
#include <cmath>
#include <limits>

#include "PlatformClock.h"

namespace nQKSS100 {

namespace tFixedPoint128Extra {

template KZ_EXPORT void AddChain<uInt32>(uInt32* words, int stride, uInt32 addend, int count);
template KZ_EXPORT void AddChain<unsigned long>(unsigned long* words, int stride, unsigned long addend, int count);

}  // namespace tFixedPoint128Extra

namespace {

constexpr int kWords = 4;
constexpr int kHalfBits = 64;
constexpr int kLastShift = 127;  // a shift by more leaves nothing of the value

// IEEE 754 binary64.
constexpr int kMantissaBits = 52;
constexpr int kExponentOfNonNumbers = 2047;

// The biased exponent of a number whose mantissa, with the hidden bit, counts units of 2^-64.
constexpr int kUnitExponent = 1011;

}  // namespace

static_assert(sizeof(tFixedPoint128<64, true>) == 16 && alignof(tFixedPoint128<64, true>) == 4);
static_assert(sizeof(ATime128) == 16);
static_assert(std::numeric_limits<double>::is_iec559);

tFixedPoint128<64, true>::tFixedPoint128(double value)
{
    const auto bits = std::bit_cast<uInt64>(value);
    const bool isNegative = bits >> 63 != 0;
    const int exponent = static_cast<int>(bits >> kMantissaBits) & kExponentOfNonNumbers;
    // Infinities and NaNs become the end of the range on their side.
    if (exponent == kExponentOfNonNumbers) {
        SetFraction(isNegative ? 0 : ~uInt64{0});
        SetSeconds(isNegative ? uInt64{1} << 63 : ~uInt64{0} >> 1);
        return;
    }
    // The mantissa stands where its lowest bit counts 2^-64, and is shifted to where the exponent puts it. Zero,
    // and numbers too small for a normal exponent, have no hidden bit, but are below the resolution and vanish anyhow.
    constexpr uInt64 kHiddenBit = uInt64{1} << kMantissaBits;
    SetFraction((bits & (kHiddenBit - 1)) | kHiddenBit);
    RightShift(kUnitExponent - exponent, false);
    if (isNegative) {
        Negate();
    }
}

tFixedPoint128<64, true>::tFixedPoint128(double a, double b) : tFixedPoint128(a)
{
    *this += tFixedPoint128(b);
}

tFixedPoint128<64, true>& tFixedPoint128<64, true>::operator+=(const tFixedPoint128& other)
{
    // A sum that wraps is below each of its parts.
    const uInt64 fraction = Fraction() + other.Fraction();
    const uInt64 carry = fraction < Fraction() ? 1 : 0;
    SetSeconds(Seconds() + other.Seconds() + carry);
    SetFraction(fraction);
    return *this;
}

tFixedPoint128<64, true>& tFixedPoint128<64, true>::operator-=(const tFixedPoint128& other)
{
    const uInt64 borrow = Fraction() < other.Fraction() ? 1 : 0;
    SetSeconds(Seconds() - other.Seconds() - borrow);
    SetFraction(Fraction() - other.Fraction());
    return *this;
}

void tFixedPoint128<64, true>::Get(uInt32* secHigh, uInt32* secLow, uInt32* fracHigh, uInt32* fracLow) const
{
    *fracLow = mWords[0];
    *fracHigh = mWords[1];
    *secLow = mWords[2];
    *secHigh = mWords[3];
}

void tFixedPoint128<64, true>::Zero()
{
    SetFraction(0);
    SetSeconds(0);
}

void tFixedPoint128<64, true>::Invert()
{
    SetFraction(~Fraction());
    SetSeconds(~Seconds());
}

void tFixedPoint128<64, true>::IncrementLSB()
{
    tFixedPoint128Extra::AddChain<uInt32>(mWords, 1, 1, kWords);
}

void tFixedPoint128<64, true>::Negate()
{
    Invert();  // two's complement
    IncrementLSB();
}

void tFixedPoint128<64, true>::RightShift(int amount, bool arithmetic)
{
    if (amount == 0) {
        return;
    }
    // C++ leaves a shift by 64 or more of a half undefined, so that whole halves move first and bits after them. The
    // amount may be the least int, which has no positive partner: it is compared before it is negated.
    const uInt64 low = Fraction();
    const uInt64 high = Seconds();
    if (amount < 0) {
        const int left = amount < -kLastShift ? 2 * kHalfBits : -amount;
        if (left >= kHalfBits) {
            SetFraction(0);
            SetSeconds(left >= 2 * kHalfBits ? 0 : low << (left - kHalfBits));
        } else {
            SetFraction(low << left);
            SetSeconds(high << left | low >> (kHalfBits - left));
        }
        return;
    }
    const uInt64 fill = arithmetic && high >> 63 != 0 ? ~uInt64{0} : 0;
    if (amount > kLastShift) {
        SetFraction(fill);
        SetSeconds(fill);
    } else if (amount >= kHalfBits) {
        const int rest = amount - kHalfBits;
        SetFraction(rest == 0 ? high : high >> rest | fill << (kHalfBits - rest));
        SetSeconds(fill);
    } else {
        SetFraction(low >> amount | high << (kHalfBits - amount));
        SetSeconds(high >> amount | fill << (kHalfBits - amount));
    }
}

tFixedPoint128<64, true>::operator long double() const
{
    // Each word is exact in the extended format, so that rounding happens in the sums alone, from the smallest part up.
    // The least number is its own negative, whose words as unsigned are its magnitude all the same.
    constexpr long double kWeights[kWords] = {0x1p-64L, 0x1p-32L, 1.0L, 0x1p32L};
    const bool isNegative = Seconds() >> 63 != 0;
    tFixedPoint128 magnitude = *this;
    if (isNegative) {
        magnitude.Negate();
    }
    long double sum = 0;
    for (int i = 0; i < kWords; ++i) {
        sum += static_cast<long double>(magnitude.mWords[i]) * kWeights[i];
    }
    return isNegative ? -sum : sum;
}

tFixedPoint128<64, true>::operator double() const
{
    return static_cast<double>(static_cast<long double>(*this));
}

}  // namespace nQKSS100

void ATime128::Get(uInt32* secHigh, uInt32* secLow, uInt32* fracHigh, uInt32* fracLow) const
{
    // The base's outputs are not optional, so the ones that nobody wants share a place.
    uInt32 unused;
    const auto orUnused = [&unused](uInt32* out) { return out == nullptr ? &unused : out; };
    tFixedPoint128::Get(orUnused(secHigh), orUnused(secLow), orUnused(fracHigh), orUnused(fracLow));
}

double ATime128::getSeconds() const
{
    ATime128 seconds = *this;
    seconds.SetUInt64Fraction(0);
    return static_cast<double>(seconds);
}

double ATime128::getFraction() const
{
    ATime128 fraction = *this;
    fraction.SetInt64Seconds(0);
    return static_cast<double>(fraction);
}

void GetCurrentATime128(ATime128* out)
{
    constexpr double kCFAbsoluteTimeIntervalSince1904 = 3061152000.0;  // to 1 January 2001
    const double now = kz::WallClockSince2001() + kCFAbsoluteTimeIntervalSince1904;
    const double seconds = std::floor(now);  // below 0 too the fraction is added to the seconds
    *out = ATime128(seconds, now - seconds);
}

ATime128 ATime128FromHILOTime(uInt32 hi, uInt32 lo)
{
    constexpr int64 kTicksFrom1601To1904 = 0x0153B281E0FB4000;
    constexpr double kTicksPerSecond = 1e7;
    // The ticks are counted from 1904 before they become seconds, since a double holds the smaller number more finely.
    ATime128 ticks;
    ticks.SetInt64Seconds(static_cast<int64>(uInt64{hi} << 32 | lo));
    ATime128 epoch;
    epoch.SetInt64Seconds(kTicksFrom1601To1904);
    ticks -= epoch;
    return ATime128(ticks / kTicksPerSecond);
}

namespace {

constexpr int64 kSecondsFrom1904To1970 = 2'082'844'800;

}  // namespace

uInt32 TToStd(time_t t)
{
    return static_cast<uInt32>(static_cast<uInt64>(t) + kSecondsFrom1904To1970);
}

time_t StdToT(uInt32 seconds)
{
    return static_cast<time_t>(seconds) - kSecondsFrom1904To1970;
}
