#include "ThTmoEvent.h"

#include <gtest/gtest.h>

#include "HiResClock.h"
#include "Racing.h"
#include "VirtualClock.h"

namespace {

using namespace std::chrono_literals;

class ThTmoEventTest : public kztest::ThreadTest {
protected:
    ThTmoEventTest() { EXPECT_EQ(ThTmoEventCreate(&event), 0); }
    ~ThTmoEventTest() override { ThTmoEventDestroy(event); }

    ThTmoEvent event = nullptr;
};

TEST_F(ThTmoEventTest, ATimeThatHasComeReturnsAtOnce)
{
    for (const uInt32 now : {1000u, 3u, 0x80000005u}) {  // the middle one: times around the wrap
        const kztest::VirtualClock clock(now);
        for (const uInt32 time : {now, now - 1, now - 10, now - 0x7FFFFFFF}) {
            ThTmoEventChangeTmo(event, time);
            EXPECT_EQ(ThTmoEventGetTmo(event), time);
            ThTmoEventWait(event);
        }
    }
    const uInt32 until = (MilliSecs() + 15) | 1;
    ThTmoEventChangeTmo(event, until);
    ThTmoEventWait(event);
    EXPECT_GE(MillisecCmp(MilliSecs(), until), -1) << "the clock is cut to whole milliseconds";
}

// Each row sets a time, unless it is the same again, and then the clock; the waits end with the last one alone.
TEST_F(ThTmoEventTest, ChangesOfTheTimeReachAllWaiters)
{
    constexpr uInt32 kStart = 0xFFFFFFF0;  // the waits go across the wrap
    const struct {
        uInt32 time;
        uInt32 advance;
    } kRows[] = {
        {0, 0},
        {kStart + 100, 99},
        {kStart + 200, 100},
        {0, 1000},
    };
    kztest::VirtualClock clock(kStart);
    std::atomic<int> left{2};
    {
        std::vector<std::jthread> waiters;
        for (int i = left; i > 0; --i) {
            waiters.emplace_back([&] {
                ThTmoEventWait(event);
                --left;
            });
        }
        for (const auto& row : kRows) {
            ThTmoEventChangeTmo(event, row.time);
            clock.Advance(row.advance);
            std::this_thread::sleep_for(20ms);  // that a wait goes on can only be seen by its not ending
            EXPECT_EQ(left, 2) << row.time;
        }
        ThTmoEventChangeTmo(event, kStart + 1199);
        kztest::Await([&] { return left == 0; });
        ThTmoEventChangeTmo(event, kStart + 1);  // so that a waiter which was missed ends
    }
}

}  // namespace
