#include "zvhandle.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "FaultLoop.h"
#include "MemoryManager.h"
#include "support/ReportCatcher.h"
#include "support/TestHost.h"

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
        std::memcpy(*handle.GetHandle(), text.data(), text.size());
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

TEST_F(ZVHandleTest, ResizeFieldMovesWhatFollows)
{
    const struct {
        unsigned long offset;
        unsigned long oldSize;
        unsigned long newSize;
        std::string kept;  // what stands around the field afterwards, without the field
    } cases[] = {
        {3, 2, 5, "abcfgh"},   {3, 4, 1, "abch"},  {0, 8, 3, ""},           {0, 2, 0, "cdefgh"},
        {8, 0, 6, "abcdefgh"}, {5, 3, 9, "abcde"}, {0, 0, 300, "abcdefgh"}, {4, 2, 2, "abcdgh"},
    };
    for (const auto& test : cases) {
        ZVHandle handle;
        SetText(handle, "abcdefgh");
        unsigned char* field = *handle.GetHandle() + test.offset;
        ASSERT_EQ(handle.ResizeField(&field, test.oldSize, test.newSize), 0);
        EXPECT_EQ(field, *handle.GetHandle() + test.offset);
        std::string text = Text(handle);
        EXPECT_EQ(text.size(), 8 - test.oldSize + test.newSize);
        const unsigned long common = test.oldSize < test.newSize ? test.oldSize : test.newSize;
        EXPECT_EQ(text.substr(test.offset, common), std::string("abcdefgh").substr(test.offset, common));
        EXPECT_EQ(text.erase(test.offset, test.newSize), test.kept);
    }
}

// Only a resize of the block that fails is a failure, and the block is then as before, whether the tail is longer or
// shorter than what goes. The room that a shrink takes aside may be missing, and nobody is told.
TEST_F(ZVHandleTest, ResizeFieldWithoutMemory)
{
    using Fail = kztest::FailAllocation;
    const struct {
        unsigned long offset, oldSize, newSize;
        const char* text;
    } cases[] = {{0, 2, 1, "acdefgh"}, {1, 6, 0, "ah"}, {2, 4, 2, "abcdgh"}, {4, 3, 1, "abcdeh"}};
    const struct {
        int n;
        Fail::Span span;
        KzErr err;
    } failures[] = {
        {1, Fail::kOnce, kzErrNone}, {2, Fail::kOnce, kzErrMemoryFull}, {1, Fail::kForGood, kzErrMemoryFull}};
    static int calls;
    const MemFullProc old = SetMemFullProc([](unsigned long) { ++calls; });
    for (const auto& test : cases) {
        for (const auto& failure : failures) {
            ZVHandle handle;
            SetText(handle, "abcdefgh");
            unsigned char* field = *handle.GetHandle() + test.offset;
            calls = 0;
            {
                const Fail fail(failure.n, failure.span);
                EXPECT_EQ(handle.ResizeField(&field, test.oldSize, test.newSize), failure.err);
            }
            EXPECT_EQ(Text(handle), failure.err == kzErrNone ? test.text : "abcdefgh");
            EXPECT_EQ(calls != 0, failure.err != kzErrNone);
            EXPECT_EQ(field, *handle.GetHandle() + test.offset);
        }
    }
    SetMemFullProc(old);
    reports.TakeAll();
}

TEST_F(ZVHandleTest, ResizeFieldRefusals)
{
    ZVHandle handle;
    unsigned char* field = nullptr;
    EXPECT_EQ(handle.ResizeField(&field, 3, 3), 0);
    EXPECT_EQ(handle.ResizeField(&field, 3, 4), 1);
    SetText(handle, "abcdefgh");
    EXPECT_EQ(handle.ResizeField(nullptr, 1, 2), 1);
    field = *handle.GetHandle() + 4;
    EXPECT_EQ(handle.ResizeField(&field, 5, 6), 1);
    EXPECT_EQ(handle.ResizeField(&field, 2, ULONG_MAX - 3), 2);
    EXPECT_EQ(handle.ResizeField(&field, 2, LONG_MAX), 2);
    EXPECT_TRUE(reports.Take(kDbgWarning, "DSSetHandleSize"));
    EXPECT_EQ(field, *handle.GetHandle() + 4);
    EXPECT_EQ(Text(handle), "abcdefgh");
}

}  // namespace
