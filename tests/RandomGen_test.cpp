#include "RandomGen.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <thread>
#include <vector>

#include "PlatformClock.h"
#include "PlatformUuid.h"
#include "ReportCatcher.h"
#include "TestHost.h"
#include "ZVGuid.h"

namespace {

class RandomGenTest : public testing::Test {
protected:
    RandomGenTest() { KZAppInterfaceSet(&mHost); }
    ~RandomGenTest() override
    {
        UninitRandomGen();
        KZAppInterfaceSet(nullptr);
    }

    kztest::ReportCatcher reports;
    kztest::TestHost mHost;
};

// The same streams, by whole numbers and a division.
struct Reference {
    explicit Reference(uInt32 seed) : s1(seed), s2(seed * 8191 & 0x3FFF), s3(s2 * 8191 & 0x3FFF) {}

    double Next()
    {
        s1 = s1 * 171 % 30269;
        s2 = s2 * 172 % 30307;
        s3 = s3 * 170 % 30323;
        return std::fmod(s1 / 30269.0 + s2 / 30307.0 + s3 / 30323.0, 1.0);
    }

    uInt32 s1, s2, s3;
};

TEST_F(RandomGenTest, SequenceFollowsTheSeed)
{
    for (const uInt32 milliseconds : {5u, 0x3FFFu, 0x4000u * 7}) {
        static uInt64 sTicks;
        sTicks = uInt64{milliseconds} * 1'000'000;
        kz::SetTickSource([] { return sTicks; });
        EXPECT_EQ(InitRandomGen(), 0);
        kz::SetTickSource(nullptr);
        Reference reference((milliseconds & 0x3FFF) == 0 ? 1234 : milliseconds & 0x3FFF);
        for (int i = 0; i < 20000; ++i) {
            double value = -1;
            RandomGen(&value);
            ASSERT_NEAR(value, reference.Next(), 1e-12);
            ASSERT_GE(value, 0.0);
            ASSERT_LT(value, 1.0);
        }
        uInt32 state[3];
        const auto seed = static_cast<uInt32>(30000 * reference.Next());
        EXPECT_EQ(RandomGenInitState(state), Reference(seed).s2);
        EXPECT_EQ(state[0], seed);
        EXPECT_EQ(state[2], Reference(seed).s3);
    }
}

TEST_F(RandomGenTest, ThreadsOfAnUnseededGeneratorShareOneSequence)
{
    std::vector<std::vector<double>> drawn(8);
    {
        std::vector<std::jthread> threads;
        for (auto& values : drawn) {
            threads.emplace_back([&values] {
                for (int i = 0; i < 5000; ++i) {
                    RandomGen(&values.emplace_back());
                }
            });
        }
    }
    std::set<double> all;
    for (const auto& values : drawn) {
        all.insert(values.begin(), values.end());
    }
    EXPECT_EQ(all.size(), 8u * 5000) << "a number drawn twice: two threads worked from one state";
}

TEST_F(RandomGenTest, GuidsWithoutASystemSource)
{
    kz::SetUuidSource([](uInt8(&)[16]) { return false; });
    ZVGuidType a, b;
    ZVGuidCreate(&a);
    ZVGuidCreate(&b);
    kz::SetUuidSource(nullptr);
    EXPECT_FALSE(ZVGuidsEqual(&a, &b));
    EXPECT_FALSE(ZVGuidsEqual(&a, NullZVGuid()));
}

}  // namespace
