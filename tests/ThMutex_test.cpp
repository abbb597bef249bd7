#include "ThMutex.h"

#include <gtest/gtest.h>

#include "PlatformMutex.h"
#include "Racing.h"
#include "ThAtomic.h"
#include "ThInternals.h"

namespace {

using ThMutexTest = kztest::ThreadTest;

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
    for (const KzBool isRealTime : {0, 1}) {
        Host().isRealTimeTarget = isRealTime;
        const long news = kztest::LiveNewCount();
        gMutex = kztest::MakeLock();
        gPlatform = CreatePlatformMutex();
        ASSERT_NE(gPlatform, nullptr);
        gToken = &gWord;
        for (const Exclusion& each : kExclusions) {
            int counter = 0;
            kztest::Race(4, [&](int) {
                for (int round = 0; round < 10000; ++round) {
                    each.enter();
                    ++counter;
                    each.leave();
                }
            });
            EXPECT_EQ(counter, 40000) << each.name;
        }
        EXPECT_EQ(kz::ThMutexCount(gMutex), -1);
        ThMutexDestroy(gMutex);
        EXPECT_EQ(DestroyPlatformMutex(gPlatform), kzErrNone);
        EXPECT_EQ(kztest::LiveNewCount(), news);
    }
    gMutex = nullptr;  // which is nothing to lock
    kExclusions[0].enter();
    kExclusions[0].enter();
    kExclusions[0].leave();
    kztest::FaultLoop([](auto failed) {
        PlatformMutex* const made = CreatePlatformMutex();
        EXPECT_EQ(made == nullptr, failed());
        EXPECT_EQ(DestroyPlatformMutex(made), kzErrNone);  // null too
    });
}

// A pair that is written and read under a lock is never torn, and no word is lost that goes round by swaps.
TEST_F(ThMutexTest, PairsAndWordsStayWhole)
{
    gMutex = kztest::MakeLock();
    uInt32 pair[2] = {0, 0};
    uInt32 word = 0;
    std::atomic<uInt32> taken{0};
    kztest::Race(4, [&](int thread) {
        for (uInt32 round = 1; round <= 5000; ++round) {
            const uInt32 value = round + static_cast<uInt32>(thread);
            uInt32 copy[2] = {value, ~value + 1};
            Th8ByteAtomicWrtRd(copy, pair, 1, gMutex);
            Th8ByteAtomicWrtRd(copy, pair, 0, gMutex);
            ASSERT_EQ(copy[0] + copy[1], 0U);
            taken += value - ThAtomicSwap(&word, value, gMutex);
        }
    });
    EXPECT_EQ(taken, word);
    EXPECT_GE(pair[0], 5000U);
    ThMutexDestroy(gMutex);

    void* pointer = &word;
    EXPECT_FALSE(ThSwapIfSame(&word, word + 2, word + 1) || ThSwapIfSamePtr(&pointer, &pair, &pair));
    EXPECT_TRUE(taken == word && pointer == &word) << "only the expected value is swapped";
    EXPECT_EQ(ThAtomicSwap(&word, 3, nullptr), taken);
}

}  // namespace
