#include "InputBuf.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "TestStrings.h"

namespace {

using kztest::LStrHandle;

const std::string kText = "0123456789";

// Both kinds over the same text.
class InputBufKinds : public ::testing::TestWithParam<bool> {
protected:
    static std::unique_ptr<InputBuf> Make(const std::string& text)
    {
        if (GetParam()) {
            return std::unique_ptr<InputBuf>(CreateMemInputBuf(text.data(), text.size()));
        }
        LStrHandle source(text);
        std::unique_ptr<InputBuf> buffer(CreateLStrInputBuf(source.handle));
        EXPECT_EQ(source.handle, nullptr) << "taken over";
        return buffer;
    }

    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// "null" or the bytes; then the error where there is one.
std::string Read(InputBuf& buffer, unsigned long size, unsigned long* gotSize = nullptr, int32 peek = 0)
{
    KzErr err = 12345;
    const void* data = buffer.GetDataPointer(size, err, gotSize, peek);
    std::string result =
        data == nullptr ? "null" : std::string(static_cast<const char*>(data), gotSize != nullptr ? *gotSize : size);
    return err == 0 ? result : result + " error " + std::to_string(err);
}

TEST_P(InputBufKinds, ReadsAndPeeks)
{
    const std::unique_ptr<InputBuf> buffer = Make(kText);
    EXPECT_EQ(buffer->GetSize(), 10u);
    EXPECT_EQ(Read(*buffer, 4, nullptr, 1), "0123");
    EXPECT_EQ(Read(*buffer, 4), "0123");
    EXPECT_EQ(buffer->GetBytesRead(), 4u);
    unsigned long got = 99;
    EXPECT_EQ(Read(*buffer, 0, &got), "null");
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(Read(*buffer, 3, &got), "456");
    EXPECT_EQ(got, 3u);
    EXPECT_EQ(Read(*buffer, 100, &got, 1), "789") << "a short peek";
    EXPECT_EQ(buffer->GetBytesRead(), 7u);
    EXPECT_EQ(Read(*buffer, ~0ul, &got), "789") << "a sum that wraps";
    EXPECT_EQ(Read(*buffer, 1, &got), "null") << "the end is no error";
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(buffer->GetBytesRead(), 10u);
    EXPECT_EQ(Read(*buffer, 0), "null");
}

TEST_P(InputBufKinds, StrictFailureLatches)
{
    std::unique_ptr<InputBuf> buffer = Make(kText);
    EXPECT_EQ(Read(*buffer, 4), "0123");
    EXPECT_EQ(Read(*buffer, ~0ul - 2), "null error 74");
    EXPECT_EQ(buffer->GetBytesRead(), 4u);
    EXPECT_EQ(buffer->GetSize(), 0u);
    unsigned long got = 99;
    EXPECT_EQ(Read(*buffer, 1, &got), "null error 74");
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(Read(*buffer, 0), "null error 74");
    buffer.reset();
    EXPECT_TRUE(reports.Take(
        kDbgWarning, GetParam() ? "MemInputBuf finished with 74 error" : "LStrInputBuf finished with 74 error"));
}

INSTANTIATE_TEST_SUITE_P(Kinds, InputBufKinds, ::testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Mem" : "LStr"; });

TEST(MemInputBuf, NullDataOrSizeIsEmpty)
{
    MemInputBuf noData(nullptr, 5);
    MemInputBuf noSize("x", 0);
    for (MemInputBuf* buffer : {&noData, &noSize}) {
        unsigned long got = 1;
        EXPECT_EQ(buffer->GetSize(), 0u);
        EXPECT_EQ(Read(*buffer, 1, &got), "null");
    }
}

TEST(LStrInputBuf, Ownership)
{
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    {
        LStrHandle text(kText);
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

// A count that the block doesn't hold, as a damaged file may have it.
TEST(LStrInputBuf, UnsoundCounts)
{
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    struct Case {
        int32 count;
        unsigned long size;
    };
    for (const Case& c : {Case{0x7FFFFFFF, 10}, {11, 10}, {-1, 0}, {9, 9}}) {
        LStrHandle text(kText);
        (*text.handle)->cnt = c.count;
        LStrInputBuf buffer(text.handle);
        EXPECT_EQ(buffer.GetSize(), c.size);
        unsigned long got = 99;
        Read(buffer, 100, &got);
        EXPECT_EQ(got, c.size);
    }
}

}  // namespace
