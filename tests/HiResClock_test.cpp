#include "HiResClock.h"

#include <gtest/gtest.h>

#include "PlatformClock.h"

namespace {

uInt64 gTicks;

TEST(HiResClock, MilliSecsCountsWholeMillisecondsAndWraps)
{
    constexpr uInt64 kTicksPerMilli = 1'000'000;
    const struct {
        uInt32 expected;
        uInt64 ticks;
    } kRows[] = {
        {0, kTicksPerMilli - 1},
        {1, kTicksPerMilli},
        {0xFFFFFFFF, 0xFFFFFFFFu * kTicksPerMilli},
        {5, 0x300000005u * kTicksPerMilli + 999'999},
    };
    const kz::TickSource system = kz::SetTickSource([] { return gTicks; });
    for (const auto& row : kRows) {
        gTicks = row.ticks;
        EXPECT_EQ(MilliSecs(), row.expected) << row.ticks;
    }
    kz::SetTickSource(system);
    uInt32 last = MilliSecs();
    for (int i = 0; i < 10'000; ++i) {
        const uInt32 now = MilliSecs();
        ASSERT_GE(MillisecCmp(now, last), 0);
        last = now;
    }
}

TEST(HiResClock, MillisecCmpIsTheSignedDistanceAcrossTheWrap)
{
    EXPECT_EQ(MillisecCmp(7, 5), 2);
    EXPECT_EQ(MillisecCmp(5, 7), -2);
    EXPECT_EQ(MillisecCmp(3, 0xFFFFFFFE), 5);
    EXPECT_EQ(MillisecCmp(0xFFFFFFFE, 3), -5);
    EXPECT_EQ(MillisecCmp(0x80000001, 0), -0x7FFFFFFF);
}

}  // namespace
