#include "zvhandle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <string>

#include "FaultLoop.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "TestHost.h"

namespace {

class ZVHandleTest : public ::testing::Test {
protected:
    std::string Text(const ZVHandle& handle)
    {
        return std::string(reinterpret_cast<char*>(*handle.GetHandle()), DSGetHandleSize(handle.GetHandle()));
    }

    void SetText(ZVHandle& handle, const std::string& text)
    {
        ASSERT_EQ(handle.Resize(text.size()), 0);
        if (!text.empty()) {
            std::memcpy(*handle.GetHandle(), text.data(), text.size());
        }
    }

    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
};

TEST_F(ZVHandleTest, ResizeMakesResizesAndDisposes)
{
    ZVHandle handle;
    EXPECT_EQ(handle.Resize(0), 0);
    EXPECT_EQ(handle.GetHandle(), nullptr);
    EXPECT_EQ(handle.Resize(10), 0);
    const UHandle made = handle.GetHandle();
    EXPECT_EQ(DSGetHandleSize(made), 10u);
    EXPECT_EQ(handle.Resize(20), 0);
    EXPECT_EQ(handle.GetHandle(), made);
    EXPECT_EQ(DSGetHandleSize(made), 20u);
    EXPECT_EQ(handle.Resize(0), 0);
    EXPECT_EQ(handle.GetHandle(), nullptr);
    EXPECT_NE(DSCheckHandle(made), 0);
    EXPECT_EQ(handle.Resize(LONG_MAX), 2);
    EXPECT_EQ(handle.GetHandle(), nullptr);
}

TEST_F(ZVHandleTest, OwnsWhatIsAttached)
{
    const UHandle first = DSNewHandle(4);
    const UHandle second = DSNewHandle(4);
    {
        ZVHandle handle(first);
        handle.AttachHandle(second);
        EXPECT_TRUE(reports.Take(kDbgFatal, "Can't attach to non null ZVHandle."));
        EXPECT_EQ(handle.GetHandle(), second);
        EXPECT_EQ(DSCheckHandle(first), 0);
        EXPECT_EQ(handle.DetachHandle(), second);
        EXPECT_EQ(handle.GetHandle(), nullptr);
        handle.AttachHandle(first);
    }
    EXPECT_NE(DSCheckHandle(first), 0);
    EXPECT_EQ(DSDisposeHandle(second), 0);
}

// Fields of short blocks, good and bad ones, with and without memory. Only a resize of the block that fails is a
// failure, and the block is then as before: the room that a shrink takes aside first may be missing, and nobody is
// told.
TEST_F(ZVHandleTest, ResizeFieldMovesWhatFollowsOrNothing)
{
    using Fail = kztest::FailAllocation;
    static int sFull;
    const MemFullProc old = SetMemFullProc([](unsigned long) { ++sFull; });
    std::mt19937 random(1);
    const auto below = [&random](unsigned long n) { return random() % n; };
    for (int round = 0; round < 20000; ++round) {
        const std::string text = std::string("abcdefghijkl").substr(0, below(13));
        ZVHandle handle;
        SetText(handle, text);
        const unsigned long offset = below(text.size() + 2), oldSize = below(text.size() + 2);
        const unsigned long left = text.size() - std::min<unsigned long>(offset, text.size());
        const unsigned long newSize = below(12) != 0 ? below(16) : below(2) != 0 ? LONG_MAX : ULONG_MAX - below(14);
        const bool isField = !text.empty() && offset <= text.size() && oldSize <= left;
        const bool wraps = newSize > ULONG_MAX - (text.size() - oldSize);
        const int failing = static_cast<int>(below(4));
        const Fail::Span span = below(2) != 0 ? Fail::kOnce : Fail::kForGood;
        const int resize = newSize < oldSize && left > oldSize ? 2 : 1;  // which allocation is that of the block
        const bool fails = newSize > LONG_MAX / 2 || failing == resize || (span == Fail::kForGood && failing == 1);
        const KzErr expected = oldSize == newSize ? 0 : !isField ? 1 : fails ? 2 : 0;
        SCOPED_TRACE(text + " " + std::to_string(offset) + " " + std::to_string(oldSize) + " " +
                     std::to_string(newSize) + " " + std::to_string(failing));
        sFull = 0;
        unsigned char* field = text.empty() ? nullptr : *handle.GetHandle() + offset;
        {
            const Fail fail(failing, failing == 0 ? Fail::kOnce : span);
            ASSERT_EQ(expected, handle.ResizeField(&field, oldSize, newSize));
        }
        ASSERT_EQ(expected == 2 && !wraps, reports.Take(kDbgWarning, "Memory error 2 in DSSetHandleSize"));
        ASSERT_EQ(expected == 2 && newSize <= LONG_MAX, sFull != 0) << "no block is of such a size";
        if (text.empty()) {
            ASSERT_EQ(nullptr, handle.GetHandle());
            continue;
        }
        ASSERT_EQ(*handle.GetHandle() + offset, field);
        std::string now = Text(handle);
        if (expected != 0 || oldSize == newSize) {
            ASSERT_EQ(text, now);
            continue;
        }
        const unsigned long common = std::min(oldSize, newSize);
        ASSERT_EQ(text.size() - oldSize + newSize, now.size());
        ASSERT_EQ(text.substr(offset, common), now.substr(offset, common));
        ASSERT_EQ(std::string(text).erase(offset, oldSize), now.erase(offset, newSize));
    }
    SetMemFullProc(old);
}

TEST_F(ZVHandleTest, ResizeFieldRefusesWhatIsNoField)
{
    ZVHandle handle;
    SetText(handle, "abc");
    EXPECT_EQ(handle.ResizeField(nullptr, 1, 2), 1);
    unsigned char* field = *handle.GetHandle() - 1;
    EXPECT_EQ(handle.ResizeField(&field, 1, 2), 1);
    EXPECT_EQ(Text(handle), "abc");
}

}  // namespace
