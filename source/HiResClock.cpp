// Ticks are the platform clock's, unsigned, and all sums wrap at 64 bits, which takes some 580 years of nanoseconds.
// The millisecond counter wraps within 50 days, so only differences of it mean anything.
#include "HiResClock.h"

#include <atomic>

#include "PlatformClock.h"

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

// Relaxed: a flag that nothing here reads.
constinit std::atomic<KzBool> gUseMultimediaTimer{0};

}  // namespace

uInt32 MilliSecs(void)
{
    constexpr uInt64 kMicrosecondsPerMilli = 1'000;
    return static_cast<uInt32>(kz::Microseconds() / kMicrosecondsPerMilli);
}

int32 MillisecCmp(uInt32 a, uInt32 b)
{
    return static_cast<int32>(a - b);
}

HRTime HRWallClockTime(HRTime* out)
{
    const HRTime now = kz::MonotonicTicks();
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

void HRTimeZero(HRTime* t)
{
    *t = 0;
}

void HRTimeAdd(const HRTime* a, const HRTime* b, HRTime* out)
{
    *out = *a + *b;
}

void HRTimeSubtract(const HRTime* a, const HRTime* b, HRTime* out)
{
    *out = *a - *b;
}

int32 HRTimeCompare(HRTime a, HRTime b)
{
    return (a > b ? 1 : 0) - (a < b ? 1 : 0);
}

double HRTimeToSeconds(HRTime t)
{
    return static_cast<double>(t) * kz::kSecondsPerTick;
}

void SecondsToHRTime(HRTime* out, double seconds)
{
    const double ticks = seconds / kz::kSecondsPerTick;
    if (!(ticks >= 1.0)) {  // NaN too
        *out = 0;
    } else if (ticks < kTwoTo63) {
        *out = static_cast<HRTime>(ticks);
    } else if (ticks < 2 * kTwoTo63) {
        *out = static_cast<HRTime>(ticks - kTwoTo63) | HRTime{1} << 63;
    } else {
        *out = ~HRTime{0};
    }
}

void HRTimeSetUseMultimediaTimer(KzBool flag)
{
    gUseMultimediaTimer.store(flag, std::memory_order_relaxed);
}

KzBool HRTimeGetUseMultimediaTimer(void)
{
    return gUseMultimediaTimer.load(std::memory_order_relaxed);
}
