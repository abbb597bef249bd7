#include "ThMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <latch>
#include <thread>
#include <vector>

#include "PlatformMutex.h"
#include "ReportCatcher.h"
#include "ScopedLock.h"
#include "TestHost.h"

namespace {

// The host is set, since every lock asks it what target this is.
class ThMutexTest : public testing::Test {
protected:
    ThMutexTest() { KZAppInterfaceSet(&mHost); }
    ~ThMutexTest() override { KZAppInterfaceSet(nullptr); }

    // Where a thread is on its way to, or in, the lock's queue.
    static void WaitForCount(ThMutex mutex, int32 count)
    {
        while (kz::ThMutexCount(mutex) != count) {
            std::this_thread::yield();
        }
    }

    kztest::TestHost mHost;
    kztest::ReportCatcher mReports;
};

TEST_F(ThMutexTest, NullIsNothingToLock)
{
    ThMutexAcquire(nullptr);
    ThMutexAcquire(nullptr);
    ThMutexRelease(nullptr);
    ThMutexDestroy(nullptr);
    EXPECT_EQ(ThMutexCreate(nullptr, "none"), kzErrArgument);
}

TEST_F(ThMutexTest, CountTellsHolderAndWaiters)
{
    ThMutex mutex = nullptr;
    ASSERT_EQ(ThMutexCreate(&mutex, nullptr), kzErrNone);
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    {
        kz::ScopedLock lock(mutex);
        EXPECT_EQ(kz::ThMutexCount(mutex), 0);
    }
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);

    // Two more threads queue up; each release lets exactly one of them in.
    ThMutexAcquire(mutex);
    std::atomic<int> inside{0};
    std::atomic<int> mayLeave{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            kz::ScopedLock lock(mutex);
            const int order = ++inside;
            while (mayLeave < order) {
                std::this_thread::yield();
            }
        });
    }
    WaitForCount(mutex, 2);
    EXPECT_EQ(inside, 0);
    ThMutexRelease(mutex);
    for (int order = 1; order <= 2; ++order) {
        while (inside < order) {
            std::this_thread::yield();
        }
        EXPECT_EQ(inside, order);
        EXPECT_EQ(kz::ThMutexCount(mutex), 2 - order);
        mayLeave = order;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    ThMutexDestroy(mutex);
}

class ThMutexStress : public ThMutexTest, public testing::WithParamInterface<bool> {};

TEST_P(ThMutexStress, OneThreadAtATimeIsInside)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 10000;
    mHost.isRealTimeTarget = GetParam();
    ThMutex mutex = nullptr;
    ASSERT_EQ(ThMutexCreate(&mutex, "counter"), kzErrNone);
    PlatformMutex* const platform = CreatePlatformMutex();
    ASSERT_NE(platform, nullptr);
    int counter = 0;
    int platformCounter = 0;
    std::latch start(kThreads);  // all at once, or the first are done before the last begin
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int round = 0; round < kRounds; ++round) {
                {
                    kz::ScopedLock lock(mutex);
                    ++counter;
                }
                EXPECT_EQ(platform->Acquire(), kzErrNone);
                ++platformCounter;
                EXPECT_EQ(platform->Release(), kzErrNone);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
    EXPECT_EQ(platformCounter, kThreads * kRounds);
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    ThMutexDestroy(mutex);
    EXPECT_EQ(DestroyPlatformMutex(platform), kzErrNone);
}

INSTANTIATE_TEST_SUITE_P(Targets, ThMutexStress, testing::Bool(),
                         [](const auto& target) { return target.param ? "RealTime" : "Desktop"; });

TEST_F(ThMutexTest, WhatIsNoMutexIsLeftAlone)
{
    alignas(16) unsigned char block[128] = {};
    ThMutexDestroy(reinterpret_cast<ThMutex>(block));
    EXPECT_TRUE(mReports.Take(kDbgError, "bad mutex verifier in ThMutexDestroy"));
    EXPECT_EQ(DestroyPlatformMutex(nullptr), kzErrNone);
}

TEST_F(ThMutexTest, MadeBeforeTheHostIsSetWorksWithAReport)
{
    KZAppInterfaceSet(nullptr);
    ThMutex mutex = nullptr;
    ASSERT_EQ(ThMutexCreate(&mutex, "early"), kzErrNone);
    const std::vector<kztest::CaughtReport> reports = mReports.TakeAll();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].level, kDbgWarning);
    EXPECT_EQ(reports[0].text, "mutex created before kzcore is initialized, move caller to after KZApp is ready\n");
    KZAppInterfaceSet(&mHost);
    kz::ScopedLock(ThMutex{mutex});
    ThMutexDestroy(mutex);
}

// A pointer to a virtual member holds 1 + 8 * slot; the destructor pair takes the first two slots.
TEST(PlatformMutexLayout, SlotsStandInOrder)
{
    const auto slot = [](KzErr (PlatformMutex::*member)()) {
        uintptr_t words[2];
        static_assert(sizeof words == sizeof member);
        std::memcpy(words, &member, sizeof words);
        return (words[0] - 1) / 8;
    };
    EXPECT_EQ(slot(&PlatformMutex::Acquire), 2U);
    EXPECT_EQ(slot(&PlatformMutex::Release), 3U);
    EXPECT_EQ(slot(&PlatformMutex::Init), 4U);
    EXPECT_EQ(slot(&PlatformMutex::Uninit), 5U);
}

#ifndef NDEBUG

// Wrong uses, which clang would refuse.
void WrongTake(ThMutex mutex) KZ_NO_THREAD_CHECK
{
    ThMutexAcquire(mutex);
    ThMutexAcquire(mutex);
    ThMutexRelease(mutex);
}
void WrongRelease(ThMutex mutex) KZ_NO_THREAD_CHECK
{
    ThMutexRelease(mutex);
}

TEST_F(ThMutexTest, SecondTakeByTheHolderIsReportedBeforeItHangs)
{
    ThMutex mutex = nullptr;
    ASSERT_EQ(ThMutexCreate(&mutex, "twice"), kzErrNone);
    std::thread holder(&WrongTake, mutex);
    while (!mReports.Take(kDbgError, "ThMutexAcquire: this thread holds the mutex, and will wait for ever")) {
        std::this_thread::yield();
    }
    WaitForCount(mutex, 1);

    // Only somebody else's release lets it go on, and that is a defect too.
    WrongRelease(mutex);
    EXPECT_TRUE(mReports.Take(kDbgError, "ThMutexRelease: this thread does not hold the mutex"));
    holder.join();
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    ThMutexDestroy(mutex);
}

ThMutex gHandlerMutex = nullptr;
std::atomic<int> gHandlerCalls{0};

// As a host's handler may, this one uses the library, and meets the very lock that is reported.
void LockingHandler(const char*, int32, const char*, int32, uInt32, const char*, uInt64)
{
    ++gHandlerCalls;
    kz::ScopedLock lock(gHandlerMutex);
}

TEST_F(ThMutexTest, HandlerThatTakesTheReportedMutexIsNotReportedAgain)
{
    ASSERT_EQ(ThMutexCreate(&gHandlerMutex, "handler"), kzErrNone);
    gHandlerCalls = 0;
    const DebugOutputHandler outer = DebugOutputGetHandler();
    DebugOutputSetHandler(&LockingHandler);
    std::thread holder(&WrongTake, gHandlerMutex);
    WaitForCount(gHandlerMutex, 1);
    WrongRelease(gHandlerMutex);  // lets the handler's take go on; its report then takes the lock too
    holder.join();
    DebugOutputSetHandler(outer);
    EXPECT_EQ(gHandlerCalls, 2);
    EXPECT_EQ(kz::ThMutexCount(gHandlerMutex), -1);
    ThMutexDestroy(gHandlerMutex);
}

#endif

}  // namespace
