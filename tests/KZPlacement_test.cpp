#include "StaticObject.h"

#include <gtest/gtest.h>

#include "Racing.h"

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

struct Counting {
    Counting() : value(42) { sMade.fetch_add(1); }
    int value;
    static inline std::atomic<int> sMade{0};
};
constinit kz::StaticObject<Placed> gPlaced;
constinit kz::StaticObject<Counting> gCounting;

TEST(KZPlacement, ACleanupRunsNewestFirstAndOnce)
{
    KZPlacementNewRunCleanup();
    gLog.clear();
    EXPECT_EQ(KZPlacementNew<Placed>(nullptr), nullptr);
    alignas(Placed) unsigned char storage[sizeof(Placed)];
    Placed* const object = KZPlacementNew<Placed>(storage);
    EXPECT_EQ(static_cast<void*>(object), storage);
    KZPlacementNewRegisterDeletor(new KZPlacementDelete<Placed>(object));
    KZPlacementNewRegisterDeletor(nullptr);
    KZPlacementNewRegisterDeletor(new LogDeletor('a'));
    KZPlacementNewRegisterDeletor(new LogDeletor('b', true));
    Placed* const placed = gPlaced.Get();
    EXPECT_EQ(gPlaced.Get(), placed);
    KZPlacementNewRegisterDeletor(new LogDeletor('c'));
    EXPECT_EQ(gLog, "++");
    // What is registered by a cleanup, and what is placed again after it, waits for the next one.
    for (const char* log : {"c-ba-", "-n", "-", "-"}) {
        gLog.clear();
        KZPlacementNewRunCleanup();
        EXPECT_EQ(gLog, log);
        EXPECT_EQ(gPlaced.Get(), placed);  // the same storage
    }
    KZPlacementNewRunCleanup();
}

TEST(KZPlacement, RacingThreadsPlaceOneObject)
{
    for (int round = 0; round < 100; ++round) {
        Counting::sMade = 0;
        kztest::Race(4, [](int) { EXPECT_EQ(gCounting.Get()->value, 42); });
        EXPECT_EQ(Counting::sMade.load(), 1);
        KZPlacementNewRunCleanup();
    }
}

}  // namespace
