// Each test leaves as much alive as it found: handles, pointers, cookies, path elements, descriptors, locks, events and
// threads.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "LiveCounts.h"

namespace {

class LiveCountsListener : public testing::EmptyTestEventListener {
public:
    void OnTestStart(const testing::TestInfo& /*test*/) override { mBefore = kztest::CountLive(); }
    void OnTestEnd(const testing::TestInfo& /*test*/) override
    {
        // The system lists a thread for a moment after it was joined.
        const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        kztest::LiveCounts after = kztest::CountLive();
        while (after != mBefore && std::chrono::steady_clock::now() < patience) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            after = kztest::CountLive();
        }
        EXPECT_EQ(mBefore, after);
    }

private:
    kztest::LiveCounts mBefore{};
};

[[maybe_unused]] const bool gInstalled = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new LiveCountsListener);
    return true;
}();

}  // namespace
