#include "HiResClock.h"

#include <gtest/gtest.h>

#include <cmath>

#include "PlatformClock.h"

namespace {

uInt64 gTicks;

TEST(HiResClock, CountsWholeMillisecondsAndWraps)
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
    // The signed distance across the wrap.
    EXPECT_EQ(MillisecCmp(3, 0xFFFFFFFE), 5);
    EXPECT_EQ(MillisecCmp(0xFFFFFFFE, 3), -5);
    EXPECT_EQ(MillisecCmp(0x80000001, 0), -0x7FFFFFFF);
}

TEST(HiResClock, SecondsAndTicks)
{
    const struct {
        HRTime ticks;
        double seconds;
    } kRows[] = {
        {0, 0.0}, {1'500'000'000, 1.5}, {0x4000000000000000, 4611686018.427387904}, {1ull << 63, 9223372036.854775808}};
    for (const auto& row : kRows) {
        EXPECT_DOUBLE_EQ(HRTimeToSeconds(row.ticks), row.seconds);
        HRTime ticks = 7;
        SecondsToHRTime(&ticks, row.seconds);
        EXPECT_EQ(ticks, row.ticks);
    }
    HRTime held[] = {7, 7, 7};
    SecondsToHRTime(&held[0], -1.0);
    SecondsToHRTime(&held[1], std::nan(""));
    SecondsToHRTime(&held[2], 1e30);
    EXPECT_TRUE(held[0] == 0 && held[1] == 0 && held[2] == ~HRTime{0}) << "what no count can express";
    HRTimeAdd(&held[2], &kRows[1].ticks, &held[0]);
    EXPECT_EQ(held[0], 1'499'999'999u) << "sums wrap";
    HRTimeSubtract(&held[0], &kRows[1].ticks, &held[1]);
    EXPECT_EQ(HRTimeCompare(held[1], held[2]), 0);
    EXPECT_TRUE(HRTimeCompare(1, 2) == -1 && HRTimeCompare(2, 1) == 1);
    HRTimeZero(&held[1]);
    EXPECT_EQ(held[1], 0u);
}

}  // namespace
