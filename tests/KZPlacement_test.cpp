#include "StaticObject.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string gLog;

class LogDeletor final : public KZPlacementDeletor {
public:
    explicit LogDeletor(char name, bool registersAnother = false) : mName(name), mRegistersAnother(registersAnother) {}
    ~LogDeletor() override
    {
        gLog += mName;
        if (mRegistersAnother) {
            KZPlacementNewRegisterDeletor(new LogDeletor('n'));
        }
    }

private:
    char mName;
    bool mRegistersAnother;
};

struct Placed {
    Placed() { gLog += '+'; }
    ~Placed() { gLog += '-'; }
};

class KZPlacementTest : public ::testing::Test {
protected:
    KZPlacementTest()
    {
        KZPlacementNewRunCleanup();
        gLog.clear();
    }
};

TEST_F(KZPlacementTest, NewConstructsInPlaceAndDeleteDestroys)
{
    EXPECT_EQ(KZPlacementNew<Placed>(nullptr), nullptr);
    EXPECT_EQ(gLog, "");
    alignas(Placed) unsigned char storage[sizeof(Placed)];
    Placed* const object = KZPlacementNew<Placed>(storage);
    EXPECT_EQ(static_cast<void*>(object), storage);
    KZPlacementNewRegisterDeletor(new KZPlacementDelete<Placed>(object));
    EXPECT_EQ(gLog, "+");
    KZPlacementNewRunCleanup();
    KZPlacementNewRunCleanup();
    EXPECT_EQ(gLog, "+-");
}

TEST_F(KZPlacementTest, CleanupRunsNewestFirstAndStartsANewChain)
{
    KZPlacementNewRegisterDeletor(nullptr);
    KZPlacementNewRegisterDeletor(new LogDeletor('a'));
    KZPlacementNewRegisterDeletor(new LogDeletor('b', true));
    KZPlacementNewRegisterDeletor(new LogDeletor('c'));
    KZPlacementNewRunCleanup();
    EXPECT_EQ(gLog, "cba");
    KZPlacementNewRunCleanup();
    EXPECT_EQ(gLog, "cban");
}

constinit kz::StaticObject<Placed> gPlaced;

TEST_F(KZPlacementTest, StaticObjectIsPlacedAgainAfterACleanup)
{
    Placed* const object = gPlaced.Get();
    EXPECT_EQ(gPlaced.Get(), object);
    KZPlacementNewRunCleanup();
    EXPECT_EQ(gLog, "+-");
    EXPECT_EQ(gPlaced.Get(), object);  // the same storage
    KZPlacementNewRunCleanup();
    EXPECT_EQ(gLog, "+-+-");
}

struct Counting {
    Counting() : value(42) { sMade.fetch_add(1); }
    int value;
    static inline std::atomic<int> sMade{0};
};
constinit kz::StaticObject<Counting> gCounting;

TEST_F(KZPlacementTest, RacingThreadsPlaceOneObject)
{
    for (int round = 0; round < 100; ++round) {
        Counting::sMade = 0;
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&ready] {
                ready.fetch_add(1);
                while (ready.load() < 4) {
                    std::this_thread::yield();
                }
                EXPECT_EQ(gCounting.Get()->value, 42);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(Counting::sMade.load(), 1);
        KZPlacementNewRunCleanup();
    }
}

}  // namespace
