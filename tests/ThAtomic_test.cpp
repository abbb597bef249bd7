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
    int a = 0;
    int b = 0;
    void* pointer = &a;
    EXPECT_FALSE(ThSwapIfSamePtr(&pointer, &b, &b));
    EXPECT_EQ(pointer, &a);
}

// Two spin locks made of the swaps: a lost or unordered swap shows in a plain counter, or as a race. Meanwhile a pair
// is written under a lock, and never read torn.
TEST(ThAtomic, OrdersWhatThreadsDo)
{
    constexpr int kThreads = 4;
    constexpr uInt32 kRounds = 5000;
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    kztest::ReportCatcher reports;
    ThMutex mutex = nullptr;
    ASSERT_EQ(ThMutexCreate(&mutex, "pair"), kzErrNone);
    uInt32 lock = 0;
    uInt32 counter = 0;
    uInt32 token = 0;
    void* shared = &token;
    uInt32 pair[2] = {0, 0};
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (uInt32 round = 1; round <= kRounds; ++round) {
                while (!ThSwapIfSame(&lock, 1, 0)) {
                    std::this_thread::yield();
                }
                ++counter;
                EXPECT_TRUE(ThSwapIfSame(&lock, 0, 1));

                void* mine = nullptr;
                while ((mine = ThAtomicSwapPtr(&shared, nullptr)) == nullptr) {
                    std::this_thread::yield();
                }
                ++*static_cast<uInt32*>(mine);
                EXPECT_TRUE(ThSwapIfSamePtr(&shared, mine, nullptr));

                uInt32 written[2] = {round, ~round + 1};
                Th8ByteAtomicWrtRd(written, pair, 1, mutex);
                uInt32 read[2];
                Th8ByteAtomicWrtRd(read, pair, 0, mutex);
                EXPECT_EQ(read[0] + read[1], 0U);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
    EXPECT_EQ(token, kThreads * kRounds);
    EXPECT_EQ(pair[0], kRounds);
    EXPECT_EQ(ThAtomicSwap(&token, 2, mutex), kThreads * kRounds);
    EXPECT_EQ(ThAtomicSwap(&token, 3, nullptr), 2U);
    ThMutexDestroy(mutex);
    KZAppInterfaceSet(nullptr);
}

}  // namespace
