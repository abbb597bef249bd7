// Each test leaves as much alive as it found: handles, pointers, cookies, path elements, descriptors, locks, events and
// threads.
#include <gtest/gtest.h>

#include "LiveCounts.h"

namespace {

class LiveCountsListener : public testing::EmptyTestEventListener {
public:
    void OnTestStart(const testing::TestInfo& /*test*/) override { mBefore = kztest::CountLive(); }
    void OnTestEnd(const testing::TestInfo& /*test*/) override { EXPECT_EQ(mBefore, kztest::CountLive()); }

private:
    kztest::LiveCounts mBefore{};
};

[[maybe_unused]] const bool gInstalled = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new LiveCountsListener);
    return true;
}();

}  // namespace
