#include "InputBuf.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "TestStrings.h"

namespace {

using kztest::LStrHandle;

// "null" or the bytes; then the error where there is one.
std::string Read(InputBuf& buffer, unsigned long size, unsigned long* gotSize = nullptr, int32 peek = 0)
{
    KzErr err = 12345;
    const void* data = buffer.GetDataPointer(size, err, gotSize, peek);
    std::string result =
        data == nullptr ? "null" : std::string(static_cast<const char*>(data), gotSize != nullptr ? *gotSize : size);
    return err == 0 ? result : result + " error " + std::to_string(err);
}

class InputBufTest : public testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// One access after the other, of both kinds of buffer.
TEST_F(InputBufTest, Accesses)
{
    enum How { kStrict, kStrictPeek, kShort, kShortPeek };
    const struct {
        unsigned long size;
        How how;
        const char* result;
        unsigned long position;
    } rows[] = {
        {4, kStrictPeek, "0123", 0},      {4, kStrict, "0123", 4},
        {0, kShort, "null", 4},           {3, kShort, "456", 7},
        {100, kShortPeek, "789", 7},      {ULONG_MAX, kShort, "789", 10},  // a sum that wraps
        {1, kShort, "null", 10},          {0, kStrict, "null", 10},
        {1, kShortPeek, "null", 10},      {ULONG_MAX - 2, kStrict, "null error 74", 10},
        {1, kShort, "null error 74", 10}, {0, kStrict, "null error 74", 10},
    };
    for (const bool isInMemory : {true, false}) {
        const std::string text = "0123456789";
        LStrHandle source(text);
        std::unique_ptr<InputBuf> buffer(isInMemory ? CreateMemInputBuf(text.data(), text.size())
                                                    : CreateLStrInputBuf(source.handle));
        EXPECT_EQ(source.handle == nullptr, !isInMemory) << "taken over";
        EXPECT_EQ(buffer->GetSize(), 10u);
        for (const auto& row : rows) {
            SCOPED_TRACE(&row - rows);
            unsigned long got = 99;
            EXPECT_EQ(Read(*buffer, row.size, row.how >= kShort ? &got : nullptr, row.how % 2), row.result);
            EXPECT_TRUE(row.how < kShort || got == (row.result[0] == 'n' ? 0 : std::strlen(row.result)));
            EXPECT_EQ(buffer->GetBytesRead(), row.position);
        }
        EXPECT_EQ(buffer->GetSize(), 0u);
        buffer.reset();
        EXPECT_TRUE(reports.Take(
            kDbgWarning, isInMemory ? "MemInputBuf finished with 74 error" : "LStrInputBuf finished with 74 error"));
    }
}

// A failure in the middle moves nothing, and ends all.
TEST_F(InputBufTest, StrictFailureLatches)
{
    {
        LStrHandle source("0123");
        LStrInputBuf string(source.handle);
        MemInputBuf block("0123", 4);
        for (InputBuf* buffer : {static_cast<InputBuf*>(&block), static_cast<InputBuf*>(&string)}) {
            EXPECT_EQ(Read(*buffer, 1), "0");
            EXPECT_EQ(Read(*buffer, 4), "null error 74");
            EXPECT_EQ(Read(*buffer, 1), "null error 74");
            EXPECT_EQ(buffer->GetBytesRead(), 1u);
        }
    }
    EXPECT_EQ(reports.TakeAll().size(), 2u);
}

TEST_F(InputBufTest, NullDataOrSizeIsEmpty)
{
    MemInputBuf noData(nullptr, 5);
    MemInputBuf noSize("x", 0);
    for (MemInputBuf* buffer : {&noData, &noSize}) {
        unsigned long got = 1;
        EXPECT_EQ(buffer->GetSize(), 0u);
        EXPECT_EQ(Read(*buffer, 1, &got), "null");
    }
}

TEST_F(InputBufTest, Ownership)
{
    {
        LStrHandle text("0123");
        LStr** const original = text.handle;
        LStrInputBuf buffer(text.handle);
        text.handle = buffer.ReleaseOwnership();
        EXPECT_EQ(text.handle, original);
        EXPECT_EQ(Read(buffer, 1), "null error 1");
        EXPECT_EQ(buffer.GetSize(), 0u);
        EXPECT_EQ(buffer.ReleaseOwnership(), nullptr);
        LStr** none = nullptr;
        LStrInputBuf noText(none);
        EXPECT_EQ(Read(noText, 0), "null error 1");
    }
    EXPECT_TRUE(reports.Take(kDbgWarning, "LStrInputBuf finished with 1 error"));
    EXPECT_TRUE(reports.Take(kDbgWarning, "LStrInputBuf finished with 1 error"));
}

// A count that the block doesn't hold, as a damaged file may have it; and one that gets less while it is read.
TEST_F(InputBufTest, UnsoundCounts)
{
    for (const auto& [count, size] : {std::pair{INT_MAX, 10ul}, {11, 10ul}, {-1, 0ul}, {9, 9ul}}) {
        LStrHandle text("0123456789");
        LStr** const shared = text.handle;
        (*shared)->cnt = count;
        LStrInputBuf buffer(text.handle);
        EXPECT_EQ(buffer.GetSize(), size);
        unsigned long got = 99;
        Read(buffer, 100, &got);
        EXPECT_EQ(got, size);
        (*shared)->cnt = 1;
        EXPECT_EQ(Read(buffer, 1, &got), size == 0 ? "0" : "null") << "a position behind the end";
    }
}

}  // namespace
