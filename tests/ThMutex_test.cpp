#include "ThMutex.h"

#include <gtest/gtest.h>

#include "PlatformMutex.h"
#include "Racing.h"
#include "SlotOf.h"
#include "ThAtomic.h"
#include "ThInternals.h"

namespace {

using ThMutexTest = kztest::ThreadTest;
using ThAtomicTest = kztest::ThreadTest;

TEST_F(ThMutexTest, NullIsNothingToLock)
{
    kztest::Take(nullptr);
    kztest::Take(nullptr);
    kztest::GiveBack(nullptr);
    ThMutexDestroy(nullptr);
    EXPECT_EQ(DestroyPlatformMutex(nullptr), kzErrNone);
}

TEST_F(ThMutexTest, ATakeIsNoCancellationPoint)
{
    const ThMutex mutex = kztest::MakeLock();
    bool taken = false;
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    kztest::Take(mutex);
    EXPECT_EQ(kz::ThMutexCount(mutex), 0);
    std::jthread holder;
    EXPECT_TRUE(kztest::EndsCancelled(
        [&] {
            kztest::Take(mutex);
            taken = true;
            kztest::GiveBack(mutex);
            for (;;) {
                pthread_testcancel();
            }
        },
        [&] {
            // The thread waits for the lock, and gets it only some time after it was cancelled.
            const bool waits = kz::ThMutexCount(mutex) == 1;
            if (waits) {
                holder = std::jthread([mutex] {
                    kztest::Dawdle(100000);
                    kztest::GiveBack(mutex);
                });
            }
            return waits;
        }));
    EXPECT_TRUE(taken);
    EXPECT_EQ(kz::ThMutexCount(mutex), -1);
    holder.join();
    ThMutexDestroy(mutex);
}

// Whatever keeps threads out of one another's way: a lock, or a word that they swap. An increment that is lost, or not
// ordered, shows in a plain counter, or as a race.
struct Exclusion {
    const char* name;
    void (*enter)();
    void (*leave)();
};

ThMutex gMutex = nullptr;
PlatformMutex* gPlatform = nullptr;
uInt32 gWord = 0;
void* gToken = nullptr;
thread_local void* tToken = nullptr;

const Exclusion kExclusions[] = {
    {"lock", [] { kztest::Take(gMutex); }, [] { kztest::GiveBack(gMutex); }},
    {"platform", [] { EXPECT_EQ(gPlatform->Acquire(), 0); }, [] { EXPECT_EQ(gPlatform->Release(), 0); }},
    {"word", [] { kztest::Await([] { return ThSwapIfSame(&gWord, 1, 0) != 0; }); },
     [] { EXPECT_TRUE(ThSwapIfSame(&gWord, 0, 1)); }},
    {"token", [] { kztest::Await([] { return (tToken = ThAtomicSwapPtr(&gToken, nullptr)) != nullptr; }); },
     [] { EXPECT_TRUE(ThSwapIfSamePtr(&gToken, tToken, nullptr)); }},
};

TEST_F(ThMutexTest, OneThreadAtATimeIsInside)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 10000;
    kztest::TestHost host;
    IKZApp* const outer = KZApp();
    KZAppInterfaceSet(&host);
    for (const KzBool isRealTime : {0, 1}) {
        host.isRealTimeTarget = isRealTime;
        const long news = kztest::LiveNewCount();
        gMutex = kztest::MakeLock();
        gPlatform = CreatePlatformMutex();
        ASSERT_NE(gPlatform, nullptr);
        gToken = &gWord;
        for (const Exclusion& each : kExclusions) {
            int counter = 0;
            kztest::Race(kThreads, [&](int) {
                for (int round = 0; round < kRounds; ++round) {
                    each.enter();
                    ++counter;
                    each.leave();
                }
            });
            EXPECT_EQ(counter, kThreads * kRounds) << each.name;
        }
        EXPECT_EQ(kz::ThMutexCount(gMutex), -1);
        ThMutexDestroy(gMutex);
        EXPECT_EQ(DestroyPlatformMutex(gPlatform), kzErrNone);
        EXPECT_EQ(kztest::LiveNewCount(), news);
    }
    KZAppInterfaceSet(outer);
}

TEST_F(ThAtomicTest, SwapsOnlyTheExpectedValue)
{
    uInt32 word = 7;
    EXPECT_FALSE(ThSwapIfSame(&word, 9, 8));
    EXPECT_EQ(word, 7U);
    EXPECT_EQ(ThAtomicSwap(&word, 3, nullptr), 7U);
    EXPECT_EQ(word, 3U);
    int a = 0;
    int b = 0;
    void* pointer = &a;
    EXPECT_FALSE(ThSwapIfSamePtr(&pointer, &b, &b));
    EXPECT_EQ(pointer, &a);
}

// A pair that is written and read under a lock is never torn, and no word is lost that goes round by swaps.
TEST_F(ThAtomicTest, PairsAndWordsUnderALockStayWhole)
{
    const ThMutex lock = kztest::MakeLock();
    uInt32 pair[2] = {0, 0};
    uInt32 word = 0;
    std::atomic<uInt32> taken{0};
    kztest::Race(4, [&](int thread) {
        for (uInt32 round = 1; round <= 5000; ++round) {
            const uInt32 value = round + static_cast<uInt32>(thread);
            uInt32 written[2] = {value, ~value + 1};
            Th8ByteAtomicWrtRd(written, pair, 1, lock);
            uInt32 read[2];
            Th8ByteAtomicWrtRd(read, pair, 0, lock);
            ASSERT_EQ(read[0] + read[1], 0U);
            taken += value - ThAtomicSwap(&word, value, lock);
        }
    });
    EXPECT_EQ(taken, word);
    EXPECT_GE(pair[0], 5000U);
    ThMutexDestroy(lock);
}

TEST(PlatformMutexLayout, SlotsStandInOrder)
{
    EXPECT_EQ(
        kztest::SlotsOf(&PlatformMutex::Acquire, &PlatformMutex::Release, &PlatformMutex::Init, &PlatformMutex::Uninit),
        (std::vector<long>{2, 3, 4, 5}));
}

}  // namespace
