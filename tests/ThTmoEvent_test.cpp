#include "ThTmoEvent.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "FaultLoop.h"
#include "HiResClock.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "VirtualClock.h"

namespace {

using namespace std::chrono_literals;

class ThTmoEventTest : public testing::Test {
protected:
    ThTmoEventTest() { EXPECT_EQ(0, ThTmoEventCreate(&event)); }
    ~ThTmoEventTest() override { ThTmoEventDestroy(event); }

    // Whether a wait that has begun goes on: it can only be seen not to end.
    static bool StillWaits(const std::atomic<bool>& done)
    {
        std::this_thread::sleep_for(20ms);
        return !done;
    }

    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    ThTmoEvent event = nullptr;
};

TEST_F(ThTmoEventTest, BadArguments)
{
    EXPECT_EQ(1, ThTmoEventCreate(nullptr));
    ThTmoEventChangeTmo(nullptr, 1);
    ThTmoEventWait(nullptr);
    EXPECT_EQ(0u, ThTmoEventGetTmo(nullptr));
    ThTmoEventDestroy(nullptr);
    EXPECT_TRUE(reports.Take(kDbgError, "Bad ThTmoEvent in ThTmoEventDestroy()"));

    static const char kReadOnly[256] = "Evnt";
    const auto bad = reinterpret_cast<ThTmoEvent>(const_cast<char*>(kReadOnly));
    ThTmoEventChangeTmo(bad, 1);
    ThTmoEventWait(bad);
    EXPECT_EQ(0u, ThTmoEventGetTmo(bad));
    ThTmoEventDestroy(bad);
    const auto all = reports.TakeAll();
    ASSERT_EQ(4u, all.size());
    for (const auto& report : all) {
        EXPECT_EQ(kDbgFatal, report.level);
        EXPECT_EQ("", report.text);
    }
    kztest::FaultLoop([](auto failed) {
        ThTmoEvent made = nullptr;
        const KzErr err = ThTmoEventCreate(&made);
        EXPECT_EQ(failed() ? 2 : 0, err);
        if (made != nullptr) {
            ThTmoEventDestroy(made);
        }
    });
}

TEST_F(ThTmoEventTest, ATimeThatHasComeReturnsAtOnce)
{
    for (const uInt32 now : {1000u, 3u, 0x80000005u}) {  // the middle one: times around the wrap
        const kztest::VirtualClock clock(now);
        for (const uInt32 time : {now, now - 1, now - 10, now - 0x7FFFFFFF}) {
            ThTmoEventChangeTmo(event, time);
            EXPECT_EQ(time, ThTmoEventGetTmo(event));
            ThTmoEventWait(event);
        }
    }
}

TEST_F(ThTmoEventTest, RealTimePasses)
{
    const uInt32 until = MilliSecs() + 15;
    ThTmoEventChangeTmo(event, until);
    ThTmoEventWait(event);
    EXPECT_GE(MillisecCmp(MilliSecs(), until), -1) << "the clock is cut to whole milliseconds";
}

TEST_F(ThTmoEventTest, ChangesOfTheTimeReachTheWaiter)
{
    kztest::VirtualClock clock(0xFFFFFFF0);  // the wait goes across the wrap
    std::atomic<bool> done{false};
    std::jthread waiter([&] {
        ThTmoEventWait(event);
        done = true;
    });
    EXPECT_TRUE(StillWaits(done)) << "without a time";
    ThTmoEventChangeTmo(event, 0xFFFFFFF0 + 100);
    clock.Advance(99);
    EXPECT_TRUE(StillWaits(done));
    ThTmoEventChangeTmo(event, 0xFFFFFFF0 + 200);
    clock.Advance(100);
    EXPECT_TRUE(StillWaits(done)) << "a later time keeps it waiting";
    ThTmoEventChangeTmo(event, 0);
    clock.Advance(1000);
    EXPECT_TRUE(StillWaits(done));
    ThTmoEventChangeTmo(event, 0xFFFFFFF0 + 1199);
    waiter.join();
    EXPECT_TRUE(done);
}

TEST_F(ThTmoEventTest, AChangeReachesAllWaiters)
{
    std::atomic<int> left{2};
    std::vector<std::jthread> waiters;
    for (int i = 0; i < 2; ++i) {
        waiters.emplace_back([&] {
            ThTmoEventWait(event);
            --left;
        });
    }
    std::this_thread::sleep_for(20ms);  // both wait by now, or see the new time without waiting
    ThTmoEventChangeTmo(event, (MilliSecs() - 10) | 1);
    const auto patience = std::chrono::steady_clock::now() + 20s;
    while (left > 0 && std::chrono::steady_clock::now() < patience) {
        std::this_thread::yield();
    }
    EXPECT_EQ(left, 0);
    ThTmoEventChangeTmo(event, (MilliSecs() - 1000) | 1);
}

// Times change while threads wait, each on an event of its own; the last time of each is in the past.
TEST_F(ThTmoEventTest, ManyChanges)
{
    kztest::VirtualClock clock(1);
    std::array<ThTmoEvent, 4> events{};
    std::vector<std::jthread> threads;
    for (ThTmoEvent& each : events) {
        ASSERT_EQ(0, ThTmoEventCreate(&each));
        threads.emplace_back([each] { ThTmoEventWait(each); });
        threads.emplace_back([each, seed = threads.size(), &clock] {
            std::mt19937 random(static_cast<unsigned>(seed));
            for (int i = 0; i < 2000; ++i) {
                const auto later = static_cast<uInt32>(1'000'000 + random() % 1000);
                ThTmoEventChangeTmo(each, random() % 5 == 0 ? 0 : MilliSecs() + later);
                clock.Advance(1);
            }
            ThTmoEventChangeTmo(each, MilliSecs() - 1);
        });
    }
    threads.clear();
    for (ThTmoEvent each : events) {
        ThTmoEventDestroy(each);
    }
}

}  // namespace
