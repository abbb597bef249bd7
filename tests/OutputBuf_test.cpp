#include "OutputBuf.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "FaultLoop.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "SlotOf.h"
#include "TestStrings.h"

namespace {

class OutputBufTest : public testing::Test {
protected:
    // Of buffers that ended with an error, in the order of their ends.
    std::string TakeFinished()
    {
        std::string all;
        for (const auto& report : reports.TakeAll()) {
            const std::size_t end = report.text.find(" error");
            if (report.text.find(" finished with ") != std::string::npos) {
                EXPECT_EQ(report.level, kDbgWarning);
                all += report.text.substr(0, end) + "; ";
            }
        }
        return all;
    }

    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// Writes n bytes; 0, or the error.
KzErr Write(OutputBuf& buffer, unsigned long n, char fill = 'x')
{
    KzErr err = 12345;
    const unsigned long before = buffer.GetBytesWritten();
    void* const dest = buffer.GetDataPointer(n, err);
    EXPECT_EQ(dest == nullptr, err != kzErrNone || n == 0 || buffer.IsOnlyDeterminingSize());
    EXPECT_EQ(buffer.GetBytesWritten(), err == kzErrNone ? before + n : before);
    if (dest != nullptr) {
        std::memset(dest, fill, n);
    }
    return err;
}

TEST_F(OutputBufTest, StaticBuffersEndAtTheirSize)
{
    char bytes[12] = "...........";
    {
        StaticOutputBuf buffer(bytes, 10);
        EXPECT_EQ(Write(buffer, 0), 0);
        EXPECT_EQ(Write(buffer, 4, 'a'), 0);
        EXPECT_EQ(Write(buffer, 6, 'b'), 0);
        EXPECT_EQ(Write(buffer, 0), 0) << "at the end";
        EXPECT_EQ(Write(buffer, ULONG_MAX - 3), kzErrCorrupt) << "a sum that wraps";
        EXPECT_EQ(Write(buffer, 0), kzErrCorrupt) << "latched";
        StaticOutputBuf nothing(nullptr, 10);
        EXPECT_EQ(Write(nothing, 1), kzErrCorrupt);
    }
    EXPECT_STREQ(bytes, "aaaabbbbbb.");
    EXPECT_EQ(TakeFinished(), "StaticOutputBuf finished with 74; StaticOutputBuf finished with 74; ");
}

TEST_F(OutputBufTest, HandlesHoldWhatWasWritten)
{
    HandleOutputBuf handle(16);
    LStrOutputBuf string(16ul);
    for (OutputBuf* buffer : {static_cast<OutputBuf*>(&handle), static_cast<OutputBuf*>(&string)}) {
        EXPECT_EQ(Write(*buffer, 16, 'a'), 0);
        EXPECT_EQ(Write(*buffer, 4984, 'b'), 0);
    }
    std::string expected = std::string(16, 'a') + std::string(4984, 'b');
    for (const bool release : {false, true}) {
        UHandle bytes = handle.GetHandle(release);
        LStr** text = string.GetHandle(release);
        EXPECT_TRUE(std::string(reinterpret_cast<char*>(*bytes), DSGetHandleSize(bytes)) == expected);
        EXPECT_TRUE(kztest::TextOf(*text) == expected);
        EXPECT_EQ(DSGetHandleSize(text), expected.size() + 4);
        if (release) {
            DSDisposeHandle(bytes);
            DSDisposeHandle(text);
        } else {
            EXPECT_EQ(Write(handle, 1, 'c'), 0) << "the capacity went with the size";
            EXPECT_EQ(Write(string, 1, 'c'), 0);
            expected += 'c';
        }
    }
}

// A released handle is no failure until something is asked of it.
TEST_F(OutputBufTest, ReleasedBuffers)
{
    for (const bool isAsked : {false, true}) {
        {
            HandleOutputBuf handle(1), other(1);
            LStrOutputBuf string(1ul), text(1ul);
            DSDisposeHandle(handle.GetHandle(true));
            DSDisposeHandle(other.GetHandle(true));
            DSDisposeHandle(string.GetHandle(true));
            DSDisposeHandle(text.GetHandle(true));
            EXPECT_EQ(Write(other, 0) + Write(text, 0), 0);
            if (isAsked) {
                EXPECT_EQ(handle.GetHandle(true), nullptr);
                EXPECT_EQ(string.GetHandle(false), nullptr);
                EXPECT_EQ(Write(handle, 1), kzErrArgument);
                EXPECT_EQ(Write(string, 0), kzErrArgument);
                EXPECT_EQ(Write(other, 1), kzErrArgument);
                EXPECT_EQ(Write(text, 1), kzErrArgument);
            }
        }
        EXPECT_EQ(TakeFinished(), !isAsked ? ""
                                           : "LStrOutputBuf finished with 1; LStrOutputBuf finished with 1; "
                                             "HandleOutputBuf finished with 1; HandleOutputBuf finished with 1; ");
    }
}

// A string starts with the room of the block that it is given, or with that asked for; behind it the block grows by
// what is needed and 4,096 bytes. A block of -1 is no handle.
TEST_F(OutputBufTest, RoomOfStrings)
{
    const struct {
        int block;
        unsigned long initialSize, room;
    } rows[] = {{104, 0, 100}, {104, 10, 10}, {104, 200, 200}, {20, 0, 16}, {4, 0, 0},
                {3, 0, 0},     {0, 0, 0},     {-1, 0, 4096},   {-1, 7, 7},  {-1, 1, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.block << ", " << row.initialSize);
        const UHandle given = row.block < 0 ? nullptr : DSNewHandle(static_cast<unsigned long>(row.block));
        LStrOutputBuf buffer(reinterpret_cast<LStr**>(given), row.initialSize);
        EXPECT_EQ(Write(buffer, row.room, 'a'), 0);
        unsigned long size = given == nullptr ? 0 : DSGetHandleSize(given), written = row.room;
        EXPECT_TRUE(given == nullptr || row.room == 0 || size == row.room + 4);
        for (const unsigned long more : {1ul, 4096ul, 10000ul}) {
            EXPECT_EQ(Write(buffer, more, 'b'), 0);
            written += more;
            size = more == 4096 ? size : written + 4096 + 4;
            EXPECT_TRUE(given == nullptr || DSGetHandleSize(given) == size) << more;
        }
        EXPECT_EQ(kztest::TextOf(*buffer.GetHandle(false)), std::string(row.room, 'a') + std::string(14097, 'b'));
    }
    // A buffer that has just the room asked for needs no memory for it.
    LStrOutputBuf made(nullptr, 0), sized(nullptr, 7);
    const kztest::FailAllocation fail(1);
    EXPECT_EQ(Write(made, 4096) + Write(sized, 7), 0);
    EXPECT_FALSE(kztest::FailAllocation::Happened());
}

// Sizes whose sum with what is written wraps, or that a count can't tell, are refused before memory is asked for; the
// next smaller ones meet a memory that is full.
TEST_F(OutputBufTest, SizesThatAreTooLarge)
{
    constexpr unsigned long kWritten = 8, kMargin = 4096, kText = INT_MAX;
    const struct {
        unsigned long size;
        bool isString, isAsked;
    } rows[] = {
        {ULONG_MAX, false, false},
        {ULONG_MAX - kWritten, false, false},
        {ULONG_MAX - kWritten - kMargin + 1, false, false},
        {ULONG_MAX - kWritten - kMargin, false, true},
        {ULONG_MAX, true, false},
        {kText - kWritten + 1, true, false},
        {kText - kWritten, true, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        {
            const std::unique_ptr<OutputBuf> buffer(row.isString ? CreateLStrOutputBuf(kWritten)
                                                                 : CreateHandleOutputBuf(kWritten));
            EXPECT_EQ(Write(*buffer, kWritten), 0);
            const kztest::FailAllocation fail(1, kztest::FailAllocation::kForGood);
            EXPECT_EQ(Write(*buffer, row.size), kzErrMemoryFull);
            EXPECT_EQ(Write(*buffer, 0), kzErrMemoryFull);
        }
        EXPECT_EQ(reports.Take(kDbgWarning, "Memory error 2 in DSSetHandleSize"), row.isAsked);
        EXPECT_EQ(TakeFinished(),
                  row.isString ? "LStrOutputBuf finished with 2; " : "HandleOutputBuf finished with 2; ");
    }
    {
        HandleOutputBuf handle(ULONG_MAX - 2);
        LStrOutputBuf string(ULONG_MAX - 2), given(reinterpret_cast<LStr**>(DSNewHandle(8)), ULONG_MAX - 2);
        EXPECT_EQ(Write(handle, 1), kzErrMemoryFull);
        EXPECT_EQ(Write(string, 1), kzErrMemoryFull);
        EXPECT_EQ(Write(given, 1), kzErrMemoryFull);
        EXPECT_EQ(handle.GetHandle(true), nullptr);
        EXPECT_EQ(string.GetHandle(true), nullptr);
    }
    EXPECT_EQ(TakeFinished(),
              "LStrOutputBuf finished with 2; LStrOutputBuf finished with 2; HandleOutputBuf finished with 2; ");
}

TEST_F(OutputBufTest, PreflightOnlyCounts)
{
    const std::unique_ptr<OutputBuf> buffer(CreatePreflightOutputBuf());
    EXPECT_EQ(Write(*buffer, 10) + Write(*buffer, 0) + Write(*buffer, 1ul << 40), 0);
    EXPECT_EQ(buffer->GetBytesWritten(), (1ul << 40) + 10);
    EXPECT_TRUE(buffer->IsOnlyDeterminingSize());
    char byte;
    const std::unique_ptr<OutputBuf> fixed(CreateStaticOutputBuf(&byte, 1));
    EXPECT_FALSE(fixed->IsOnlyDeterminingSize());
    EXPECT_EQ(Write(*fixed, 1), 0);
}

TEST_F(OutputBufTest, OutOfMemory)
{
    for (const bool isString : {false, true}) {
        kztest::FaultLoop(
            [&](auto failed) {
                const std::unique_ptr<OutputBuf> buffer(isString ? CreateLStrOutputBuf(8) : CreateHandleOutputBuf(8));
                KzErr err = kzErrNone;
                for (int i = 0; i < 3; ++i) {
                    const KzErr latched = err;
                    err = Write(*buffer, 5000);
                    EXPECT_TRUE(latched == kzErrNone || err == latched);
                }
                EXPECT_EQ(failed(), err == kzErrMemoryFull);
            },
            kztest::FailAllocation::kBlocks);
    }
    reports.TakeAll();
}

TEST(OutputBufLayout, SlotsStandInOrder)
{
    EXPECT_EQ(
        kztest::SlotsOf(&OutputBuf::GetDataPointer, &OutputBuf::GetBytesWritten, &OutputBuf::IsOnlyDeterminingSize),
        (std::vector<long>{2, 3, 4}));
}

}  // namespace
