#include "HiResClock.h"

#include <gtest/gtest.h>

#include <cmath>

#include "PlatformClock.h"

namespace {

uInt64 gTicks;

TEST(HiResClock, CountsWholeMillisecondsAndWraps)
{
    constexpr uInt64 kTicksPerMilli = 1'000'000;
    const kz::TickSource system = kz::SetTickSource([] { return gTicks; });
    for (const uInt64 millis : {0ull, 1ull, 0xFFFFFFFFull, 0x300000005ull}) {
        for (const uInt64 rest : {0u, 999'999u}) {
            gTicks = millis * kTicksPerMilli + rest;
            EXPECT_EQ(MilliSecs(), static_cast<uInt32>(millis)) << rest;
        }
    }
    kz::SetTickSource(system);
    uInt32 last = MilliSecs();
    for (int i = 0; i < 10'000; ++i) {
        const uInt32 now = MilliSecs();
        ASSERT_GE(MillisecCmp(now, last), 0);
        last = now;
    }
    // The signed distance across the wrap.
    EXPECT_TRUE(MillisecCmp(3, 0xFFFFFFFE) == 5 && MillisecCmp(0xFFFFFFFE, 3) == -5);
    EXPECT_EQ(MillisecCmp(0x80000001, 0), -0x7FFFFFFF);
}

TEST(HiResClock, SecondsAndTicks)
{
    const struct {
        double seconds;
        HRTime ticks;
        double back;
    } kRows[] = {
        {0.0, 0, 0.0},
        {1.5, 1'500'000'000, 1.5},
        {4611686018.427387904, 1ull << 62, 4611686018.427387904},
        {9223372036.854775808, 1ull << 63, 9223372036.854775808},
        {-1.0, 0, 0.0},
        {std::nan(""), 0, 0.0},
        {18446744073.709551616, ~HRTime{0}, 18446744073.709551615},
        {1e30, ~HRTime{0}, 18446744073.709551615},
    };
    for (const auto& row : kRows) {
        HRTime ticks = 7;
        SecondsToHRTime(&ticks, row.seconds);
        EXPECT_EQ(ticks, row.ticks) << row.seconds;
        EXPECT_DOUBLE_EQ(HRTimeToSeconds(ticks), row.back);
    }
    HRTime sum = 7;
    HRTime difference = 7;
    HRTimeAdd(&kRows[7].ticks, &kRows[1].ticks, &sum);
    EXPECT_EQ(sum, 1'499'999'999u) << "sums wrap";
    HRTimeSubtract(&sum, &kRows[1].ticks, &difference);
    EXPECT_EQ(HRTimeCompare(difference, ~HRTime{0}), 0);
    EXPECT_TRUE(HRTimeCompare(1, 2) == -1 && HRTimeCompare(2, 1) == 1);
    HRTimeZero(&sum);
    EXPECT_EQ(sum, 0u);
}

}  // namespace
