// Absolute time: seconds since 1 January 1904, 00:00 UTC, as a signed fixed-point number of 128 bits; and the older
// form, whole seconds in 32 bits. The part without classes is usable from C11.
//
// A value is four 32-bit words, in memory the lowest first: fraction low, fraction high, seconds low, seconds high. The
// fraction counts units of 2^-64 seconds and is added to the seconds, which are in two's complement together with it.
// Nothing here fails. Values are plain data: any thread, one at a time for each value.
#ifndef KZCORE_ATIME128_H
#define KZCORE_ATIME128_H

#include <time.h>

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// Between the system's time, in seconds since 1970, and seconds since 1904 in 32 bits, which wrap in February 2040.
// What is out of range wraps too: there and back a time between 1904 and 2040 is itself, and any other one is not.
KZ_EXPORT uInt32 TToStd(time_t t);
KZ_EXPORT time_t StdToT(uInt32 seconds);

KZ_EXTERN_C_END

#ifdef __cplusplus

namespace nQKSS100 {

namespace tFixedPoint128Extra {

// Adds `addend` to the first of `count` words that stand `stride` apart, and carries 1 along them until one does not
// wrap. A carry out of the last word is lost.
template <typename Word>
void AddChain(Word* words, int stride, Word addend, int count)
{
    for (int i = 0; i < count; ++i) {
        Word& word = words[i * stride];
        word += addend;
        if (word >= addend) {
            return;
        }
        addend = 1;
    }
}

extern template void AddChain<uInt32>(uInt32* words, int stride, uInt32 addend, int count);
extern template void AddChain<unsigned long>(unsigned long* words, int stride, unsigned long addend, int count);

}  // namespace tFixedPoint128Extra

template <int FractionBits, bool IsSigned>
class tFixedPoint128;

// The one form there is: 64 bits of integer part, 64 of fraction. Sums and differences wrap.
template <>
class KZ_EXPORT tFixedPoint128<64, true> {
public:
    constexpr tFixedPoint128() = default;
    constexpr tFixedPoint128(uInt32 secHigh, uInt32 secLow, uInt32 fracHigh, uInt32 fracLow)
        : mWords{fracLow, fracHigh, secLow, secHigh}
    {}

    // The value of a double, cut to the resolution. Infinities and NaNs give the largest or the smallest value, by
    // their sign. Numbers from 2^63 to 2^116 lose the bits that don't fit, those beyond give 0.
    explicit tFixedPoint128(double value);

    // The sum of two doubles: seconds and a fraction that is finer than one double could hold beside them.
    tFixedPoint128(double a, double b);

    // Exact, modulo 2^64 seconds. `other` may be the same value.
    tFixedPoint128& operator+=(const tFixedPoint128& other);
    tFixedPoint128& operator-=(const tFixedPoint128& other);

    // The four words; no output may be null.
    void Get(uInt32* secHigh, uInt32* secLow, uInt32* fracHigh, uInt32* fracLow) const;

    // All bits 0; all bits flipped; the value plus 2^-64; the value with the other sign.
    void Zero();
    void Invert();
    void IncrementLSB();
    void Negate();

    // Shifts right by `amount` bits, left by a negative one. Bits that become free at the top are the sign with
    // `arithmetic`, else 0; all of them beyond 127. Below -127 the result is 0.
    void RightShift(int amount, bool arithmetic);

    // The nearest extended and, rounded from that, double.
    explicit operator long double() const;
    explicit operator double() const;

    // The quotient of the nearest double.
    friend double operator/(const tFixedPoint128& value, double by) { return static_cast<double>(value) / by; }

protected:
    // The two halves of the number: units of 2^-64, and seconds.
    uInt64 Fraction() const { return HalfAt(0); }
    uInt64 Seconds() const { return HalfAt(2); }
    void SetFraction(uInt64 half) { SetHalfAt(0, half); }
    void SetSeconds(uInt64 half) { SetHalfAt(2, half); }

private:
    uInt64 HalfAt(int i) const { return mWords[i] | uInt64{mWords[i + 1]} << 32; }
    void SetHalfAt(int i, uInt64 half)
    {
        mWords[i] = static_cast<uInt32>(half);
        mWords[i + 1] = static_cast<uInt32>(half >> 32);
    }

    uInt32 mWords[4] = {};  // the lowest first; stored and shared values have this form
};

}  // namespace nQKSS100

class KZ_EXPORT ATime128 : public nQKSS100::tFixedPoint128<64, true> {
public:
    using tFixedPoint128::tFixedPoint128;
    constexpr ATime128() = default;

    // As the base's; each output may be null.
    void Get(uInt32* secHigh, uInt32* secLow, uInt32* fracHigh, uInt32* fracLow) const;

    // The halves: whole seconds, rounded down, and the rest in units of 2^-64 seconds. Setting one keeps the other.
    int64 GetInt64Seconds() const { return static_cast<int64>(Seconds()); }
    uInt64 GetUInt64Fraction() const { return Fraction(); }
    void SetInt64Seconds(int64 seconds) { SetSeconds(static_cast<uInt64>(seconds)); }
    void SetUInt64Fraction(uInt64 fraction) { SetFraction(fraction); }

    // The halves in seconds: the whole ones, of which a double holds 53 bits, and the rest, which is below
    // 1 unless rounding makes it that.
    double getSeconds() const;
    double getFraction() const;
};

// The time now, from the system's clock, with the resolution of a double.
KZ_EXPORT void GetCurrentATime128(ATime128* out);

// The time from the two halves of a count of 100-nanosecond ticks since 1 January 1601, with the resolution of a
// double.
KZ_EXPORT ATime128 ATime128FromHILOTime(uInt32 hi, uInt32 lo);
#endif

#endif
