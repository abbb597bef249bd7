#include "zvhandle.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <string>

#include "FaultLoop.h"
#include "ReportCatcher.h"
#include "TestHost.h"

namespace {

class ZVHandleTest : public testing::Test {
protected:
    ~ZVHandleTest() override { EXPECT_STREQ(nullptr, kz::MemoryFault()); }

    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
};

TEST_F(ZVHandleTest, OwnsWhatItMakesOrIsAttached)
{
    const UHandle first = DSNewHandle(4);
    const UHandle second = DSNewHandle(4);
    {
        ZVHandle handle(first);
        handle.AttachHandle(second);
        EXPECT_TRUE(reports.Take(kDbgFatal, "Can't attach to non null ZVHandle."));
        EXPECT_EQ(0, DSCheckHandle(first));
        EXPECT_EQ(second, handle.DetachHandle());
        for (const unsigned long size : {0ul, 10ul, 20ul, 0ul}) {
            EXPECT_EQ(0, handle.Resize(size));
            EXPECT_EQ(size, handle.GetHandle() == nullptr ? 0 : DSGetHandleSize(handle.GetHandle()));
        }
        EXPECT_EQ(2, handle.Resize(LONG_MAX));
        EXPECT_EQ(nullptr, handle.GetHandle());
        handle.AttachHandle(first);
        EXPECT_EQ(0, handle.Resize(8));
        EXPECT_EQ(first, handle.GetHandle());
    }
    EXPECT_EQ(3, DSCheckHandle(first));
    EXPECT_EQ(0, DSDisposeHandle(second));
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
        ASSERT_EQ(0, handle.Resize(text.size()));
        std::copy(text.begin(), text.end(), text.empty() ? nullptr : *handle.GetHandle());
        const unsigned long offset = below(text.size() + 3) - 1, oldSize = below(text.size() + 2);
        const unsigned long left = text.size() - std::min<unsigned long>(offset, text.size());
        const unsigned long newSize = below(12) != 0 ? below(16) : below(2) != 0 ? LONG_MAX : ULONG_MAX - below(14);
        const bool isNull = below(50) == 0;
        const bool isField = !isNull && !text.empty() && offset <= text.size() && oldSize <= left;
        const bool wraps = newSize > ULONG_MAX - (text.size() - oldSize);
        const int failing = static_cast<int>(below(4));
        const Fail::Span span = failing == 0 || below(2) != 0 ? Fail::kOnce : Fail::kForGood;
        const int resize = newSize < oldSize && left > oldSize ? 2 : 1;  // which allocation is that of the block
        const bool fails = newSize > LONG_MAX / 2 || failing == resize || (span == Fail::kForGood && failing == 1);
        const KzErr expected = oldSize == newSize ? 0 : !isField ? 1 : fails ? 2 : 0;
        SCOPED_TRACE(testing::Message() << text << " " << offset << " " << oldSize << " " << newSize << " " << failing);
        sFull = 0;
        unsigned char* field = text.empty() ? nullptr : *handle.GetHandle() + offset;
        {
            const Fail fail(failing, span);
            ASSERT_EQ(expected, handle.ResizeField(isNull ? nullptr : &field, oldSize, newSize));
        }
        ASSERT_EQ(expected == 2 && !wraps, reports.Take(kDbgWarning, "Memory error 2 in DSSetHandleSize"));
        ASSERT_EQ(expected == 2 && newSize <= LONG_MAX, sFull != 0) << "no block is of such a size";
        if (text.empty()) {
            ASSERT_EQ(nullptr, handle.GetHandle());
            continue;
        }
        const char* const now = reinterpret_cast<char*>(*handle.GetHandle());
        ASSERT_EQ(*handle.GetHandle() + offset, field);
        std::string model = text;
        if (expected == 0 && oldSize != newSize) {
            const unsigned long common = std::min(oldSize, newSize);
            const std::string any = newSize > oldSize ? std::string(now + offset + common, newSize - common) : "";
            model.replace(offset + common, oldSize - common, any);
        }
        ASSERT_EQ(model, std::string(now, DSGetHandleSize(handle.GetHandle())));
    }
    SetMemFullProc(old);
}

}  // namespace
