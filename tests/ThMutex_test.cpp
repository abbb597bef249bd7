#include "ThMutex.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <cstring>
#include <latch>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FaultLoop.h"
#include "PlatformMutex.h"
#include "ReportCatcher.h"
#include "ScopedLock.h"
#include "SlotOf.h"
#include "TestHost.h"
#include "ThInternals.h"

namespace {

// The host is set, since every lock asks it what target this is.
class ThMutexTest : public testing::Test {
protected:
    ThMutexTest() { KZAppInterfaceSet(&mHost); }
    ~ThMutexTest() override { KZAppInterfaceSet(nullptr); }

    static ThMutex MakeMutex()
    {
        ThMutex mutex = nullptr;
        EXPECT_EQ(ThMutexCreate(&mutex, nullptr), kzErrNone);
        return mutex;
    }

    template <typename Condition>
    static void WaitUntil(Condition&& condition)
    {
        while (!condition()) {
            std::this_thread::yield();
        }
    }

    kztest::TestHost mHost;
    kztest::ReportCatcher mReports;
};

TEST_F(ThMutexTest, NullIsNothingToLockAndForeignBlocksAreLeftAlone)
{
    ThMutexAcquire(nullptr);
    ThMutexAcquire(nullptr);
    ThMutexRelease(nullptr);
    ThMutexDestroy(nullptr);
    EXPECT_EQ(ThMutexCreate(nullptr, "none"), kzErrArgument);
    EXPECT_EQ(DestroyPlatformMutex(nullptr), kzErrNone);

    static const unsigned char kReadOnly[128] = {};
    ThMutexDestroy(reinterpret_cast<ThMutex>(const_cast<unsigned char*>(kReadOnly)));
    EXPECT_TRUE(mReports.Take(kDbgError, "bad mutex verifier in ThMutexDestroy"));

    // What is left of a destroyed lock is one of these blocks.
    alignas(16) unsigned char block[128] = {};
    const ThMutex mutex = MakeMutex();
    kztest::CopyAtDelete(mutex, block, 24);
    ThMutexDestroy(mutex);
    ASSERT_TRUE(kztest::CopiedAtDelete());
    ASSERT_EQ(memmem(block, sizeof block, "Mutx", 4), nullptr);
    ThMutexDestroy(reinterpret_cast<ThMutex>(block));
    EXPECT_TRUE(mReports.Take(kDbgError, "bad mutex verifier in ThMutexDestroy"));
}

TEST_F(ThMutexTest, ATakeIsNoCancellationPoint)
{
    const ThMutex mutex = MakeMutex();
    static bool sTaken;
    sTaken = false;
    [mutex]() KZ_NO_THREAD_CHECK { ThMutexAcquire(mutex); }();
    pthread_t thread;
    const auto take = [](void* lock) KZ_NO_THREAD_CHECK -> void* {
        ThMutexAcquire(static_cast<ThMutex>(lock));
        sTaken = true;
        ThMutexRelease(static_cast<ThMutex>(lock));
        pthread_testcancel();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, take, mutex), 0);
    WaitUntil([mutex] { return kz::ThMutexCount(mutex) == 1; });
    pthread_cancel(thread);
    [mutex]() KZ_NO_THREAD_CHECK { ThMutexRelease(mutex); }();
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(sTaken);
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    ThMutexDestroy(mutex);
}

TEST_F(ThMutexTest, MadeBeforeTheHostIsSetWorksWithAReport)
{
    KZAppInterfaceSet(nullptr);
    const ThMutex mutex = MakeMutex();
    const std::vector<kztest::CaughtReport> reports = mReports.TakeAll();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].level, kDbgWarning);
    EXPECT_EQ(reports[0].text, "mutex created before kzcore is initialized, move caller to after KZApp is ready\n");
    kz::ScopedLock(ThMutex{mutex});
    ThMutexDestroy(mutex);
}

TEST_F(ThMutexTest, CountTellsHolderAndWaiters)
{
    const ThMutex mutex = MakeMutex();
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    ThMutexAcquire(mutex);
    EXPECT_EQ(kz::ThMutexCount(mutex), 0);

    // Two more threads queue up; each release lets exactly one of them in.
    std::atomic<int> inside{0};
    std::atomic<int> mayLeave{0};
    const auto visit = [&] {
        kz::ScopedLock lock(mutex);
        const int order = ++inside;
        WaitUntil([&] { return mayLeave >= order; });
    };
    std::thread first(visit);
    std::thread second(visit);
    WaitUntil([&] { return kz::ThMutexCount(mutex) == 2; });
    EXPECT_EQ(inside, 0);
    ThMutexRelease(mutex);
    for (int order = 1; order <= 2; ++order) {
        WaitUntil([&] { return inside >= order; });
        EXPECT_EQ(inside, order);
        EXPECT_EQ(kz::ThMutexCount(mutex), 2 - order);
        mayLeave = order;
    }
    first.join();
    second.join();
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    ThMutexDestroy(mutex);
}

TEST_F(ThMutexTest, OneThreadAtATimeIsInside)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 10000;
    for (const KzBool isRealTime : {0, 1}) {
        mHost.isRealTimeTarget = isRealTime;
        const ThMutex mutex = MakeMutex();
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
}

TEST(PlatformMutexLayout, SlotsStandInOrder)
{
    EXPECT_EQ(
        kztest::SlotsOf(&PlatformMutex::Acquire, &PlatformMutex::Release, &PlatformMutex::Init, &PlatformMutex::Uninit),
        (std::vector<long>{2, 3, 4, 5}));
}

}  // namespace
