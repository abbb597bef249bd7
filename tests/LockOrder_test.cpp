#include "LockOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <string_view>
#include <thread>
#include <vector>

#include "ChildTest.h"
#include "PlatformEventTimer.h"
#include "ReportCatcher.h"
#include "ScopedLock.h"
#include "TestHost.h"
#include "ThInternals.h"
#include "VirtualClock.h"

#ifndef NDEBUG

namespace {

class LockOrderTest : public testing::Test {
protected:
    LockOrderTest()
    {
        KZAppInterfaceSet(&mHost);
        for (ThMutex& lock : locks) {
            ThMutexCreate(&lock, "LockOrder");
        }
    }
    ~LockOrderTest() override
    {
        for (ThMutex lock : locks) {
            ThMutexDestroy(lock);
        }
        KZAppInterfaceSet(nullptr);
    }

    static void TakeBoth(ThMutex first, ThMutex second) KZ_NO_THREAD_CHECK
    {
        kz::ScopedLock outer(first);
        kz::ScopedLock inner(second);
    }

    static void TakeApart(ThMutex first, ThMutex second) KZ_NO_THREAD_CHECK
    {
        ThMutexAcquire(first);
        ThMutexRelease(first);
        ThMutexAcquire(second);
        ThMutexRelease(second);
    }

    int CountErrors()
    {
        const auto all = reports.TakeAll();
        return static_cast<int>(
            std::count_if(all.begin(), all.end(), [](const auto& report) { return report.level == kDbgError; }));
    }

    kztest::ReportCatcher reports;
    kztest::TestHost mHost;
    ThMutex locks[3] = {};
};

TEST_F(LockOrderTest, ContradictionsAreReportedOnceWithBothChains)
{
    TakeBoth(locks[0], locks[1]);
    std::jthread([this] { TakeBoth(locks[1], locks[2]); }).join();
    TakeBoth(locks[0], locks[2]);
    EXPECT_TRUE(reports.TakeAll().empty());
    std::jthread([this] { TakeBoth(locks[2], locks[0]); }).join();  // closes 0, 1, 2 and 0, 2
    int mine = 0;
    int others = 0;
    int errors = 0;
    for (const auto& report : reports.TakeAll()) {
        mine += report.text.rfind("this order: ", 0) == 0 ? 1 : 0;
        others += report.text.rfind("the other order: ", 0) == 0 ? 1 : 0;
        errors += report.level == kDbgError ? 1 : 0;
    }
    EXPECT_GT(mine, 1);
    EXPECT_GT(others, 1);
    EXPECT_EQ(errors, 1);
    TakeBoth(locks[2], locks[0]);
    EXPECT_TRUE(reports.TakeAll().empty());
}

ThMutex gReportedLock = nullptr;
std::atomic<int> gSecondTakes{0};

// As a host's handler may, this one uses the library, and meets the very lock that is reported. It is a warning,
// because the other thread's release makes a sound program of it.
void LockingHandler(const char*, int32, const char*, int32 level, uInt32, const char* text, uInt64)
{
    constexpr std::string_view kText =
        " is taken by the thread that holds it, which waits until another thread releases it";
    gSecondTakes += level == kDbgWarning && std::string_view(text).find(kText) != std::string_view::npos;
    kz::ScopedLock lock(gReportedLock);
}

TEST_F(LockOrderTest, ASecondTakeIsReportedOnceEvenIfTheHandlerTakesTheLock)
{
    gReportedLock = locks[0];
    const DebugOutputHandler outer = DebugOutputGetHandler();
    DebugOutputSetHandler(&LockingHandler);
    std::jthread holder([this]() KZ_NO_THREAD_CHECK {
        ThMutexAcquire(locks[0]);
        ThMutexAcquire(locks[0]);
        ThMutexRelease(locks[0]);
    });
    while (kz::ThMutexCount(locks[0]) < 1) {
        std::this_thread::yield();
    }
    [this]() KZ_NO_THREAD_CHECK { ThMutexRelease(locks[0]); }();  // lets the holder's handler go on
    holder.join();
    DebugOutputSetHandler(outer);
    EXPECT_EQ(gSecondTakes, 1);
    EXPECT_EQ(kz::ThMutexCount(locks[0]), -1);
}

TEST_F(LockOrderTest, ALockThatIsHandedToAnotherThreadHasNoOrder)
{
    TakeBoth(locks[0], locks[1]);
    for (int round = 0; round < 3; ++round) {
        [this]() KZ_NO_THREAD_CHECK { ThMutexAcquire(locks[0]); }();
        std::jthread([this]() KZ_NO_THREAD_CHECK { ThMutexRelease(locks[0]); }).join();
        TakeApart(locks[0], locks[1]);
        TakeBoth(locks[1], locks[0]);
    }
    EXPECT_TRUE(reports.TakeAll().empty());
}

// More than any table of such locks could hold, all of them alive at the end.
TEST_F(LockOrderTest, ManyHandedOverLocksAccuseNobody)
{
    std::vector<ThMutex> many(200);
    for (ThMutex& lock : many) {
        ThMutexCreate(&lock, "LockOrder");
        [lock]() KZ_NO_THREAD_CHECK { ThMutexAcquire(lock); }();
        std::jthread([lock]() KZ_NO_THREAD_CHECK { ThMutexRelease(lock); }).join();
        TakeBoth(lock, locks[0]);
        TakeBoth(locks[0], lock);
        TakeApart(locks[1], locks[2]);
    }
    EXPECT_TRUE(reports.TakeAll().empty());
    for (ThMutex lock : many) {
        ThMutexDestroy(lock);
    }
    TakeBoth(locks[1], locks[2]);
    TakeBoth(locks[2], locks[1]);
    EXPECT_EQ(CountErrors(), 1) << "the recorder goes on";
}

// Each row takes locks one under the other, in each of its sequences, and says how many contradictions there are.
TEST_F(LockOrderTest, OrdersUnderACommonGateDoNotContradict)
{
    const struct {
        const char* name;
        std::vector<std::vector<int>> sequences;
        int contradictions;
    } kRows[] = {
        {"no gate", {{1, 2}, {2, 1}}, 1},
        {"a common gate", {{0, 1, 2}, {0, 2, 1}}, 0},
        {"a common gate, later one without it", {{0, 1, 2}, {0, 2, 1}, {1, 2}}, 1},
        {"without the gate first", {{1, 2}, {0, 1, 2}, {0, 2, 1}}, 1},
        {"a gate of one", {{0, 1, 2}, {2, 1}}, 1},
        {"two gates", {{0, 1, 2}, {3, 2, 1}}, 1},
        {"one of two gates, the other side under both", {{0, 1, 2}, {3, 1, 2}, {0, 3, 2, 1}}, 0},
        {"a ring of three", {{1, 2}, {2, 3}, {3, 1}}, 1},
        {"a ring of three with a gate of two", {{0, 1, 2}, {0, 2, 3}, {3, 1}}, 0},
        {"a gate that is taken in between", {{1, 0, 2}, {2, 0, 1}}, 2},
    };
    for (const auto& row : kRows) {
        ThMutex four[4] = {};
        for (ThMutex& lock : four) {
            ThMutexCreate(&lock, "LockOrder");
        }
        for (const std::vector<int>& sequence : row.sequences) {
            std::deque<kz::ScopedLock> scopes;
            for (const int lock : sequence) {
                scopes.emplace_back(four[lock]);
            }
        }
        EXPECT_EQ(CountErrors(), row.contradictions) << row.name;
        for (ThMutex lock : four) {
            ThMutexDestroy(lock);
        }
    }
}

// In a process of its own, because the recorder stops for good.
TEST_F(LockOrderTest, DISABLED_TooManyHeldLocks)
{
    ThMutex many[20] = {};
    for (ThMutex& lock : many) {
        ThMutexCreate(&lock, "LockOrder");
    }
    [this]() KZ_NO_THREAD_CHECK { ThMutexAcquire(locks[0]); }();
    std::jthread([&]() KZ_NO_THREAD_CHECK {
        std::deque<kz::ScopedLock> scopes(std::begin(many), std::end(many));
        ThMutexRelease(locks[0]);
    }).join();
    TakeApart(locks[0], locks[1]);
    TakeBoth(locks[1], locks[0]);
    EXPECT_EQ(CountErrors(), 0);
    for (ThMutex lock : many) {
        ThMutexDestroy(lock);
    }
}

TEST(LockOrder, WithTooManyHeldLocksNobodyIsAccused)
{
    EXPECT_EQ(kztest::RunChildTests("LockOrderTest.DISABLED_TooManyHeldLocks", {}), 0);
}

TEST_F(LockOrderTest, LocksThatAreGoneOrFreeHaveNoOrder)
{
    for (int round = 0; round < 10; ++round) {
        TakeBoth(locks[0], locks[1]);
        // A new lock may stand where the old one was.
        ThMutexDestroy(locks[1]);
        ThMutexCreate(&locks[1], "LockOrder");
        TakeBoth(locks[1], locks[0]);
        ThMutexDestroy(locks[1]);
        ThMutexCreate(&locks[1], "LockOrder");
    }
    EXPECT_TRUE(reports.TakeAll().empty());
    // What was released is no longer held.
    TakeApart(locks[0], locks[1]);
    TakeApart(locks[1], locks[0]);
    EXPECT_TRUE(reports.TakeAll().empty());
}

}  // namespace

#endif

namespace {

TEST(PlatformEventTimer, Figures)
{
    kztest::VirtualClock clock(1000);
    PlatformEventTimer timer;
    unsigned int count = 7;
    unsigned long long total = 7;
    unsigned long long min = 7;
    unsigned long long max = 7;
    timer.GetLatencyStats(&count, &total, &min, &max);
    EXPECT_EQ(count + total + min + max, 0u);
    for (const uInt32 milliseconds : {5u, 2u, 9u}) {
        timer.Start();
        clock.Advance(milliseconds);
        timer.RecordLatency();
    }
    timer.Start();
    const kztest::VirtualClock earlier(1);
    timer.RecordLatency();  // ignored
    timer.GetLatencyStats(&count, &total, &min, &max);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(total, 16'000'000u);
    EXPECT_EQ(min, 2'000'000u);
    EXPECT_EQ(max, 9'000'000u);
    timer.GetLatencyStats(nullptr, nullptr, nullptr, nullptr);
}

}  // namespace
