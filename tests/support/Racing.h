// What tests of threads share: races, patience, and the fixture.
#ifndef KZCORE_TESTS_RACING_H
#define KZCORE_TESTS_RACING_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <latch>
#include <thread>
#include <vector>

#include "LockOrder.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "ThMutex.h"

namespace kztest {

// Longer than anything takes that ends as it should.
constexpr int kPatienceMs = 60000;

// Calls `work(i)` on so many threads, which set off at the same moment, and waits for them all.
template <typename Work>
void Race(int threads, const Work& work)
{
    std::latch start(threads);
    std::vector<std::jthread> all;
    for (int i = 0; i < threads; ++i) {
        all.emplace_back([&work, &start, i] {
            start.arrive_and_wait();
            work(i);
        });
    }
}

// Waits, without sleep, until the condition holds; false, and a failure, when patience ends before.
template <typename Condition>
bool Await(Condition holds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    for (int tries = 0; !holds(); ++tries) {
        if (tries > 1000) {
            std::this_thread::yield();
            if (std::chrono::steady_clock::now() > end) {
                ADD_FAILURE() << "what was waited for never came";
                return false;
            }
        }
    }
    return true;
}

// Lets some time pass between two steps of a race.
inline void Dawdle(int steps)
{
    for (std::atomic<int> step{0}; step < steps; ++step) {
    }
}

// How often a race is run: KZ_STRESS_ROUNDS raises the usual number.
inline int StressRounds(int usual)
{
    const char* const text = std::getenv("KZ_STRESS_ROUNDS");
    return text == nullptr ? usual : std::atoi(text);
}

// For locks that one thread takes and another one gives back.
inline void Take(ThMutex lock) KZ_NO_THREAD_CHECK
{
    ThMutexAcquire(lock);
}

inline void GiveBack(ThMutex lock) KZ_NO_THREAD_CHECK
{
    ThMutexRelease(lock);
}

inline ThMutex MakeLock()
{
    ThMutex lock = nullptr;
    EXPECT_EQ(ThMutexCreate(&lock, "test"), 0);
    return lock;
}

class ThreadTest : public testing::Test {
protected:
    ~ThreadTest() override { EXPECT_STREQ(kz::LockGraphFault(), nullptr); }

    static TestHost& Host() { return static_cast<TestHost&>(*KZApp()); }

    ReportCatcher reports;
    RunningMemory memory;
};

}  // namespace kztest

#endif
