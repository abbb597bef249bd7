// One-shot completions: who waited for something destroys it at once, while the thread that let it go on may still be
// on its way out of the call. A touch after that is one of freed memory, which the sanitizers see.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "HiResClock.h"
#include "ReportCatcher.h"
#include "ScopedLock.h"
#include "Spin.h"
#include "TestHost.h"
#include "ThEvent.h"
#include "ThTmoEvent.h"

namespace {

// `complete` is the last that the maker does with a thing, `waitAndDestroy` all that the other thread does.
struct Kind {
    const char* name;
    void* (*make)();
    void (*complete)(void* thing);
    void (*waitAndDestroy)(void* thing);
};

const Kind kEvent = {"event",
                     []() -> void* {
                         ThEvent event = nullptr;
                         EXPECT_EQ(ThEventCreate(&event, nullptr, 0), 0);
                         return event;
                     },
                     [](void* event) { ThEventSignal(static_cast<ThEvent>(event)); },
                     [](void* event) {
                         EXPECT_EQ(ThEventWait(static_cast<ThEvent>(event)), 0);
                         ThEventDestroy(static_cast<ThEvent>(event));
                     }};
const Kind kTimedEvent = {
    "timed event",
    []() -> void* {
        ThTmoEvent event = nullptr;
        EXPECT_EQ(ThTmoEventCreate(&event), 0);
        return event;
    },
    [](void* event) { ThTmoEventChangeTmo(static_cast<ThTmoEvent>(event), (MilliSecs() - 1) | 1); },
    [](void* event) {
        ThTmoEventWait(static_cast<ThTmoEvent>(event));
        ThTmoEventDestroy(static_cast<ThTmoEvent>(event));
    }};
const Kind kLock = {"lock",
                    []() KZ_NO_THREAD_CHECK -> void* {
                        ThMutex lock = nullptr;
                        EXPECT_EQ(ThMutexCreate(&lock, nullptr), 0);
                        ThMutexAcquire(lock);
                        return lock;
                    },
                    [](void* lock) KZ_NO_THREAD_CHECK { ThMutexRelease(static_cast<ThMutex>(lock)); },
                    [](void* lock) {
                        {
                            kz::ScopedLock scope(static_cast<ThMutex>(lock));
                        }
                        ThMutexDestroy(static_cast<ThMutex>(lock));
                    }};

void Dawdle(int steps)
{
    for (std::atomic<int> step{0}; step < steps; ++step) {
    }
}

void PlayRounds(const Kind& kind, int rounds)
{
    std::atomic<void*> next{nullptr};
    std::thread waiter([&] {
        for (int round = 0; round < rounds; ++round) {
            void* thing = nullptr;
            for (int tries = 0; (thing = next.exchange(nullptr)) == nullptr; ++tries) {
                if (tries > 100) {
                    std::this_thread::yield();
                }
            }
            Dawdle(round % 7);
            kind.waitAndDestroy(thing);
        }
    });
    for (int round = 0; round < rounds; ++round) {
        void* const thing = kind.make();
        while (next.load() != nullptr) {
            std::this_thread::yield();
        }
        next = thing;
        Dawdle(round % 11 * (round % 5 == 0 ? 100 : 1));  // now and then the waiter is asleep by then
        kind.complete(thing);
    }
    waiter.join();
}

// KZ_STRESS_ROUNDS raises the number of rounds.
TEST(OneShot, TheWaiterMayDestroyAtOnce)
{
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    const kztest::ReportCatcher reports;
    const char* const text = std::getenv("KZ_STRESS_ROUNDS");
    const int rounds = text == nullptr ? 30000 : std::atoi(text);
    for (const Kind& kind : {kEvent, kTimedEvent, kLock}) {
        SCOPED_TRACE(kind.name);
        for (const bool spins : {true, false}) {
            kz::AllowSpins(spins);
            PlayRounds(kind, rounds);
            std::vector<std::thread> pairs;  // eight threads
            for (int i = 0; i < 4; ++i) {
                pairs.emplace_back(&PlayRounds, std::cref(kind), rounds / 4);
            }
            for (std::thread& pair : pairs) {
                pair.join();
            }
        }
    }
    kz::AllowSpins(true);
    KZAppInterfaceSet(nullptr);
}

}  // namespace
