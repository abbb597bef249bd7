#include "ThAtomic.h"

#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <vector>

#include "ReportCatcher.h"
#include "TestHost.h"

namespace {

TEST(ThAtomic, SwapsOnlyTheExpectedValue)
{
    uInt32 word = 7;
    EXPECT_FALSE(ThSwapIfSame(&word, 9, 8));
    EXPECT_EQ(word, 7U);
    EXPECT_TRUE(ThSwapIfSame(&word, 9, 7));
    EXPECT_EQ(word, 9U);

    int a = 0;
    int b = 0;
    void* pointer = &a;
    EXPECT_FALSE(ThSwapIfSamePtr(&pointer, &b, &b));
    EXPECT_EQ(pointer, &a);
    EXPECT_TRUE(ThSwapIfSamePtr(&pointer, &b, &a));
    EXPECT_EQ(pointer, &b);
    EXPECT_EQ(ThAtomicSwapPtr(&pointer, nullptr), &b);
    EXPECT_EQ(pointer, nullptr);
}

TEST(ThAtomic, LockedOperationsTakeNoLockForNull)
{
    uInt32 word = 1;
    EXPECT_EQ(ThAtomicSwap(&word, 2, nullptr), 1U);
    EXPECT_EQ(word, 2U);

    uInt32 a[3] = {1, 2, 3};
    uInt32 b[3] = {4, 5, 6};
    Th8ByteAtomicWrtRd(a, b, 1, nullptr);
    EXPECT_EQ(b[0], 1U);
    EXPECT_EQ(b[1], 2U);
    EXPECT_EQ(b[2], 6U);
    uInt32 c[3] = {7, 8, 9};
    Th8ByteAtomicWrtRd(a, c, 0, nullptr);
    EXPECT_EQ(a[0], 7U);
    EXPECT_EQ(a[1], 8U);
    EXPECT_EQ(a[2], 3U);
}

// A spin lock made of the two swaps: a lost or unordered swap shows in the plain counter, or as a race.
TEST(ThAtomic, SwapsOrderWhatThreadsDoBetweenThem)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 5000;
    uInt32 lock = 0;
    int token = 0;
    void* shared = &token;
    int counter = 0;
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int round = 0; round < kRounds; ++round) {
                while (!ThSwapIfSame(&lock, 1, 0)) {
                    std::this_thread::yield();
                }
                ++counter;
                EXPECT_TRUE(ThSwapIfSame(&lock, 0, 1));

                void* mine = nullptr;
                while ((mine = ThAtomicSwapPtr(&shared, nullptr)) == nullptr) {
                    std::this_thread::yield();
                }
                ++*static_cast<int*>(mine);
                EXPECT_TRUE(ThSwapIfSamePtr(&shared, mine, nullptr));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
    EXPECT_EQ(token, kThreads * kRounds);
}

TEST(ThAtomic, PairsAreNeverTorn)
{
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    {
        kztest::ReportCatcher reports;
        ThMutex mutex = nullptr;
        ASSERT_EQ(ThMutexCreate(&mutex, "pair"), kzErrNone);
        uInt32 shared[2] = {0, 0};
        std::thread writer([&] {
            for (uInt32 value = 1; value <= 20000; ++value) {
                uInt32 pair[2] = {value, ~value + 1};
                Th8ByteAtomicWrtRd(pair, shared, 1, mutex);
            }
        });
        int torn = 0;
        for (int i = 0; i < 20000; ++i) {
            uInt32 pair[2];
            Th8ByteAtomicWrtRd(pair, shared, 0, mutex);
            torn += pair[0] + pair[1] != 0;
        }
        writer.join();
        EXPECT_EQ(torn, 0);
        ThMutexDestroy(mutex);
    }
    KZAppInterfaceSet(nullptr);
}

}  // namespace
