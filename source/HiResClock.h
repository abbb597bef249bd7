// Elapsed time: the coarse millisecond counter, and ticks of the platform's monotonic clock. Usable from C11 and C++20.
//
// Ticks are unsigned and count from an unspecified start. Any thread may call.
#ifndef KZCORE_HIRESCLOCK_H
#define KZCORE_HIRESCLOCK_H

#include "KZTypes.h"

typedef uInt64 HRTime;

KZ_EXTERN_C_BEGIN

// Milliseconds on a monotonic clock, from an unspecified start, wrapping at 32 bits.
KZ_EXPORT uInt32 MilliSecs(void);

// a - b in milliseconds across the wrap: positive when `a` is the later time. Right for times less than 2^31 ms, some
// 24 days, apart.
KZ_EXPORT int32 MillisecCmp(uInt32 a, uInt32 b);

// The ticks now, which are also stored in `*out` unless that is null.
KZ_EXPORT HRTime HRWallClockTime(HRTime* out);

// *t = 0; *out = *a + *b; *out = *a - *b; both wrap at 64 bits. No pointer may be null.
KZ_EXPORT void HRTimeZero(HRTime* t);
KZ_EXPORT void HRTimeAdd(const HRTime* a, const HRTime* b, HRTime* out);
KZ_EXPORT void HRTimeSubtract(const HRTime* a, const HRTime* b, HRTime* out);

// 0 for equal times, 1 for `a` above `b`, -1 below.
KZ_EXPORT int32 HRTimeCompare(HRTime a, HRTime b);

// Between ticks and seconds, rounded towards 0. Seconds that no tick count can express give 0 below and the highest
// count above.
KZ_EXPORT double HRTimeToSeconds(HRTime t);
KZ_EXPORT void SecondsToHRTime(HRTime* out, double seconds);

// A flag that is kept and has no effect.
KZ_EXPORT void HRTimeSetUseMultimediaTimer(KzBool flag);
KZ_EXPORT KzBool HRTimeGetUseMultimediaTimer(void);

KZ_EXTERN_C_END

#ifdef __cplusplus

// A point or a span of time in ticks; 0 at first. Sums and differences wrap.
class HiResClock {
public:
    constexpr HiResClock() = default;

    // From the same clock as HRWallClockTime.
    void SetToNow() { HRWallClockTime(&mTime); }
    double ToSeconds() const { return HRTimeToSeconds(mTime); }

    // In ticks, without a test for a wrap: a negative span is a very large one.
    friend constexpr HiResClock operator+(HiResClock a, HiResClock b) { return HiResClock(a.mTime + b.mTime); }
    friend constexpr HiResClock operator-(HiResClock a, HiResClock b) { return HiResClock(a.mTime - b.mTime); }

private:
    explicit constexpr HiResClock(HRTime time) : mTime(time) {}

    HRTime mTime = 0;
};
#endif

#endif
