#include "HiResClock.h"

#include <gtest/gtest.h>

#include "PlatformClock.h"

namespace {

uInt64 gTicks;

class VirtualClock {
public:
    VirtualClock() : mOld(kz::SetTickSource([] { return gTicks; })) {}
    ~VirtualClock() { kz::SetTickSource(mOld); }
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

private:
    kz::TickSource mOld;
};

TEST(HiResClock, MilliSecsCountsWholeMillisecondsAndWraps)
{
    constexpr uInt64 kTicksPerMilli = 1'000'000;
    const struct {
        int line;
        uInt32 expected;
        uInt64 ticks;
    } kRows[] = {
        {__LINE__, 0, 0},
        {__LINE__, 0, kTicksPerMilli - 1},
        {__LINE__, 1, kTicksPerMilli},
        {__LINE__, 0xFFFFFFFF, 0xFFFFFFFFu * kTicksPerMilli},
        {__LINE__, 0, 0x100000000u * kTicksPerMilli},
        {__LINE__, 5, 0x300000005u * kTicksPerMilli + 999'999},
    };
    VirtualClock clock;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        gTicks = row.ticks;
        EXPECT_EQ(MilliSecs(), row.expected);
    }
}

TEST(HiResClock, TheSystemClockIsBackAfterAVirtualOneAndDoesNotGoBack)
{
    gTicks = 0;
    {
        VirtualClock clock;
        EXPECT_EQ(MilliSecs(), 0u);
    }
    EXPECT_NE(kz::MonotonicTicks(), 0u);
    uInt32 last = MilliSecs();
    for (int i = 0; i < 10'000; ++i) {
        const uInt32 now = MilliSecs();
        ASSERT_GE(MillisecCmp(now, last), 0);
        last = now;
    }
}

TEST(HiResClock, MillisecCmpIsTheSignedDistanceAcrossTheWrap)
{
    const struct {
        int line;
        uInt32 a;
        uInt32 b;
        int32 expected;
    } kRows[] = {
        {__LINE__, 5, 5, 0},
        {__LINE__, 7, 5, 2},
        {__LINE__, 5, 7, -2},
        {__LINE__, 3, 0xFFFFFFFE, 5},
        {__LINE__, 0xFFFFFFFE, 3, -5},
        {__LINE__, 0x7FFFFFFF, 0, 0x7FFFFFFF},
        {__LINE__, 0x80000001, 0, -0x7FFFFFFF},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(MillisecCmp(row.a, row.b), row.expected);
    }
}

}  // namespace
