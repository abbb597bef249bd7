#include "LockOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string_view>

#include "ChildTest.h"
#include "PlatformEventTimer.h"
#include "Racing.h"
#include "ScopedLock.h"
#include "ThInternals.h"
#include "VirtualClock.h"

#ifndef NDEBUG

namespace {

class LockOrderTest : public kztest::ThreadTest {
protected:
    LockOrderTest() { std::generate(std::begin(locks), std::end(locks), &kztest::MakeLock); }
    ~LockOrderTest() override
    {
        EXPECT_STREQ(kz::LockGraphFault(), nullptr);
        std::for_each(std::begin(locks), std::end(locks), &ThMutexDestroy);
    }

    // Takes the locks one under the other, and gives them all back.
    static void TakeAll(std::initializer_list<ThMutex> sequence)
    {
        std::deque<kz::ScopedLock> scopes(sequence.begin(), sequence.end());
    }

    static void TakeApart(ThMutex first, ThMutex second)
    {
        TakeAll({first});
        TakeAll({second});
    }

    // A lock that is handed to another thread has no order.
    static void HandOver(ThMutex lock)
    {
        kztest::Take(lock);
        std::jthread([lock] { kztest::GiveBack(lock); }).join();
    }

    // A new lock may stand where the old one was.
    static void Renew(ThMutex* lock)
    {
        ThMutexDestroy(*lock);
        *lock = kztest::MakeLock();
    }

    int CountErrors()
    {
        const auto all = reports.TakeAll();
        return static_cast<int>(
            std::count_if(all.begin(), all.end(), [](const auto& report) { return report.level == kDbgError; }));
    }

    static constexpr int kLocks = 5;
    ThMutex locks[kLocks] = {};
};

TEST_F(LockOrderTest, ContradictionsAreReportedOnceWithBothChains)
{
    std::jthread([this] { TakeAll({locks[0], locks[1]}); }).join();
    EXPECT_TRUE(reports.TakeAll().empty());
    TakeAll({locks[1], locks[0]});
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
    gSecondTakes = 0;
    const DebugOutputHandler outer = DebugOutputGetHandler();
    DebugOutputSetHandler(&LockingHandler);
    std::jthread holder([this] {
        kztest::Take(locks[0]);
        kztest::Take(locks[0]);
        kztest::GiveBack(locks[0]);
    });
    kztest::Await([this] { return kz::ThMutexCount(locks[0]) >= 1; });
    kztest::GiveBack(locks[0]);  // lets the holder's handler go on
    holder.join();
    DebugOutputSetHandler(outer);
    EXPECT_EQ(gSecondTakes, 1);
    EXPECT_EQ(kz::ThMutexCount(locks[0]), -1);
}

TEST_F(LockOrderTest, LocksThatAreHandedOverGoneOrFreeHaveNoOrder)
{
    TakeApart(locks[0], locks[1]);
    TakeApart(locks[1], locks[0]);
    for (int round = 0; round < 10; ++round) {
        TakeAll({locks[0], locks[1]});
        Renew(&locks[1]);
        TakeAll({locks[1], locks[0]});
        Renew(&locks[1]);
    }
    TakeAll({locks[0], locks[1]});
    for (int round = 0; round < 3; ++round) {
        HandOver(locks[0]);
        TakeApart(locks[0], locks[1]);
        TakeAll({locks[1], locks[0]});
    }
    // More than any table of such locks could hold, all of them alive at the end.
    std::vector<ThMutex> many(200);
    for (ThMutex& lock : many) {
        lock = kztest::MakeLock();
        HandOver(lock);
        TakeAll({lock, locks[1]});
        TakeAll({locks[1], lock});
        TakeApart(locks[2], locks[3]);
    }
    EXPECT_TRUE(reports.TakeAll().empty());
    std::for_each(many.begin(), many.end(), &ThMutexDestroy);
    TakeAll({locks[2], locks[3]});
    TakeAll({locks[3], locks[2]});
    EXPECT_EQ(CountErrors(), 1) << "the recorder goes on";
}

// What a recorder would know that keeps every order and tries every way.
struct NaiveOrder {
    int held;
    int taken;
    unsigned holding;  // a bit for each lock
};

bool LeadsTo(const std::vector<NaiveOrder>& orders, int from, int to, unsigned used)
{
    return std::any_of(orders.begin(), orders.end(), [&](const NaiveOrder& order) {
        return order.held == from && (order.holding & used) == 0 &&
               (order.taken == to || LeadsTo(orders, order.taken, to, used | order.holding));
    });
}

// Takes the locks of random sequences, renews some, and says after each how many contradictions a naive recorder finds:
// one for each order that can be under way together with others that lead back, unless a known order says as much.
// Orders under a common gate don't contradict.
TEST_F(LockOrderTest, RandomSequencesAgreeWithAModel)
{
    int found = 0;
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 4; ++seed) {
        std::mt19937 random(seed);
        std::vector<NaiveOrder> orders;
        for (ThMutex& lock : locks) {
            Renew(&lock);
        }
        for (int step = 0; step < 8; ++step) {
            int sequence[kLocks] = {0, 1, 2, 3, 4};
            std::shuffle(std::begin(sequence), std::end(sequence), random);
            const auto count = 2 + random() % 3;
            int expected = 0;
            unsigned holding = 0;
            std::deque<kz::ScopedLock> scopes;
            for (std::size_t i = 0; i < count; ++i) {
                const int taken = sequence[i];
                for (int held = 0; held < kLocks; ++held) {
                    const bool isKnown = std::any_of(orders.begin(), orders.end(), [&](const NaiveOrder& order) {
                        return order.held == held && order.taken == taken && (order.holding & ~holding) == 0;
                    });
                    if ((holding >> held & 1) != 0 && !isKnown) {
                        expected += LeadsTo(orders, taken, held, holding);
                        orders.push_back({held, taken, holding});
                    }
                }
                scopes.emplace_back(locks[taken]);
                holding |= 1u << taken;
            }
            scopes.clear();
            ASSERT_EQ(CountErrors(), expected) << "seed " << seed << ", step " << step;
            found += expected;
            if (random() % 8 == 0) {
                const int gone = static_cast<int>(random() % kLocks);
                Renew(&locks[gone]);
                std::erase_if(orders, [gone](const NaiveOrder& order) {
                    return order.taken == gone || (order.holding >> gone & 1) != 0;
                });
            }
        }
        ASSERT_STREQ(kz::LockGraphFault(), nullptr) << "seed " << seed;
    }
    EXPECT_GT(found, 100);
}

// In a process of its own, because the recorder stops for good. No lock has an order any more, and none is held.
TEST_F(LockOrderTest, DISABLED_TooManyHeldLocks)
{
    std::vector<ThMutex> many(20);
    std::generate(many.begin(), many.end(), &kztest::MakeLock);
    kztest::Take(locks[0]);
    std::jthread([&] {
        std::deque<kz::ScopedLock> scopes(many.begin(), many.end());
        kztest::GiveBack(locks[0]);
    }).join();
    TakeApart(locks[0], locks[1]);
    TakeAll({locks[1], locks[0]});
    EXPECT_EQ(CountErrors(), 0);
    std::for_each(many.begin(), many.end(), &ThMutexDestroy);
}

TEST(LockOrder, WithTooManyHeldLocksNobodyIsAccused)
{
    EXPECT_EQ(kztest::RunChildTests("LockOrderTest.DISABLED_TooManyHeldLocks", {}), 0);
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
