// One-shot completions: who waited for something destroys it at once, while the thread that let it go on may still be
// on its way out of the call. A touch after that is one of freed memory, which the sanitizers see.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "HiResClock.h"
#include "ReportCatcher.h"
#include "Spin.h"
#include "TestHost.h"
#include "ThEvent.h"
#include "ThMutex.h"
#include "ThTmoEvent.h"

namespace {

// What the completing thread does last, and what the waiting one does.
struct EventKind {
    using Thing = ThEvent;
    static Thing Make()
    {
        ThEvent event = nullptr;
        EXPECT_EQ(ThEventCreate(&event, nullptr, 0), 0);
        return event;
    }
    static void Complete(Thing event) { ThEventSignal(event); }
    static void WaitAndDestroy(Thing event)
    {
        EXPECT_EQ(ThEventWait(event), 0);
        ThEventDestroy(event);
    }
};

struct LockKind {
    using Thing = ThMutex;
    static Thing Make() KZ_NO_THREAD_CHECK
    {
        ThMutex mutex = nullptr;
        EXPECT_EQ(ThMutexCreate(&mutex, nullptr), 0);
        ThMutexAcquire(mutex);
        return mutex;
    }
    static void Complete(Thing mutex) KZ_NO_THREAD_CHECK { ThMutexRelease(mutex); }
    static void WaitAndDestroy(Thing mutex)
    {
        ThMutexAcquire(mutex);
        ThMutexRelease(mutex);
        ThMutexDestroy(mutex);
    }
};

struct TimedEventKind {
    using Thing = ThTmoEvent;
    static Thing Make()
    {
        ThTmoEvent event = nullptr;
        EXPECT_EQ(ThTmoEventCreate(&event), 0);
        return event;
    }
    static void Complete(Thing event) { ThTmoEventChangeTmo(event, (MilliSecs() - 1) | 1); }
    static void WaitAndDestroy(Thing event)
    {
        ThTmoEventWait(event);
        ThTmoEventDestroy(event);
    }
};

void Dawdle(int steps)
{
    for (std::atomic<int> step{0}; step < steps; ++step) {
    }
}

// The maker completes, since a lock is taken by the thread that releases it.
template <typename Kind>
void PlayRounds(int rounds)
{
    std::atomic<typename Kind::Thing> next{nullptr};
    std::thread waiter([&] {
        for (int round = 0; round < rounds; ++round) {
            typename Kind::Thing thing = nullptr;
            for (int tries = 0; (thing = next.exchange(nullptr)) == nullptr; ++tries) {
                if (tries > 100) {
                    std::this_thread::yield();
                }
            }
            Dawdle(round % 7);
            Kind::WaitAndDestroy(thing);
        }
    });
    for (int round = 0; round < rounds; ++round) {
        const auto thing = Kind::Make();
        while (next.load() != nullptr) {
            std::this_thread::yield();
        }
        next = thing;
        Dawdle(round % 11 * (round % 5 == 0 ? 100 : 1));  // now and then the waiter is asleep by then
        Kind::Complete(thing);
    }
    waiter.join();
}

template <typename Kind>
class OneShot : public testing::Test {
protected:
    OneShot() { KZAppInterfaceSet(&mHost); }
    ~OneShot() override { KZAppInterfaceSet(nullptr); }

    kztest::TestHost mHost;
    kztest::ReportCatcher mReports;
};
using Kinds = testing::Types<EventKind, LockKind, TimedEventKind>;
TYPED_TEST_SUITE(OneShot, Kinds);

// KZ_STRESS_ROUNDS raises the number of rounds.
TYPED_TEST(OneShot, TheWaiterMayDestroyAtOnce)
{
    const char* const text = std::getenv("KZ_STRESS_ROUNDS");
    const int rounds = text == nullptr ? 10000 : std::atoi(text);
    for (const bool spins : {true, false}) {
        kz::AllowSpins(spins);
        PlayRounds<TypeParam>(rounds);
        std::vector<std::thread> pairs;  // eight threads
        for (int i = 0; i < 4; ++i) {
            pairs.emplace_back(&PlayRounds<TypeParam>, rounds / 4);
        }
        for (std::thread& pair : pairs) {
            pair.join();
        }
    }
    kz::AllowSpins(true);
}

}  // namespace
