#include "OutputBuf.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "FaultLoop.h"
#include "InputBuf.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "SlotOf.h"
#include "TestStrings.h"

namespace {

class OutputBufTest : public testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// Writes n bytes; 0, or the error.
KzErr Write(OutputBuf& buffer, unsigned long n, char fill = 'x')
{
    KzErr err = 12345;
    void* const dest = buffer.GetDataPointer(n, err);
    EXPECT_EQ(dest == nullptr, err != kzErrNone || n == 0 || buffer.IsOnlyDeterminingSize());
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
        EXPECT_EQ(buffer.GetBytesWritten(), 10u);
        EXPECT_EQ(Write(buffer, ULONG_MAX - 3), kzErrCorrupt) << "a sum that wraps";
        EXPECT_EQ(Write(buffer, 0), kzErrCorrupt) << "latched";
        EXPECT_EQ(buffer.GetBytesWritten(), 10u);
        StaticOutputBuf nothing(nullptr, 10);
        EXPECT_EQ(Write(nothing, 1), kzErrCorrupt);
    }
    EXPECT_STREQ(bytes, "aaaabbbbbb.");
    EXPECT_TRUE(reports.Take(kDbgWarning, "StaticOutputBuf finished with 74 error"));
    EXPECT_TRUE(reports.Take(kDbgWarning, "StaticOutputBuf finished with 74 error"));
}

TEST_F(OutputBufTest, HandlesHoldWhatWasWritten)
{
    HandleOutputBuf handle(16);
    LStrOutputBuf string(16ul);
    for (OutputBuf* buffer : {static_cast<OutputBuf*>(&handle), static_cast<OutputBuf*>(&string)}) {
        EXPECT_EQ(Write(*buffer, 16, 'a'), 0);
        EXPECT_EQ(Write(*buffer, 4984, 'b'), 0);
    }
    EXPECT_EQ(handle.GetBytesWritten(), 5000u);
    EXPECT_EQ(string.GetBytesWritten(), 5000u);
    EXPECT_EQ(DSGetHandleSize(handle.GetHandle(false)), 5000u);
    LStr** const text = string.GetHandle(false);
    EXPECT_EQ(DSGetHandleSize(text), 5004u);
    EXPECT_EQ((*text)->cnt, 5000);
    EXPECT_EQ((*text)->str[15], 'a');
    EXPECT_EQ((*text)->str[4999], 'b');
    EXPECT_EQ(Write(handle, 1, 'c'), 0) << "the capacity went with the size";
    EXPECT_EQ(Write(string, 1, 'c'), 0);
    UHandle released = handle.GetHandle(true);
    LStr** releasedText = string.GetHandle(true);
    EXPECT_EQ(DSGetHandleSize(released), 5001u);
    EXPECT_EQ((*releasedText)->cnt, 5001);
    EXPECT_EQ((*releasedText)->str[5000], 'c');
    DSDisposeHandle(released);
    DSDisposeHandle(releasedText);
}

TEST_F(OutputBufTest, BlocksGrowByWhatIsNeededAndAMargin)
{
    const UHandle handle = DSNewHandle(4 + 16);
    LStrOutputBuf buffer(reinterpret_cast<LStr**>(handle), 0);
    const struct {
        unsigned long size;
        unsigned long block;
    } rows[] = {{16, 20}, {1, 17 + 4096 + 4}, {4096, 4117}, {10000, 14113 + 4096 + 4}};
    for (const auto& row : rows) {
        EXPECT_EQ(Write(buffer, row.size), 0);
        EXPECT_EQ(DSGetHandleSize(handle), row.block) << row.size;
    }
}

TEST_F(OutputBufTest, ReportsOfReleasedBuffers)
{
    {
        HandleOutputBuf handle(1);
        DSDisposeHandle(handle.GetHandle(true));
        LStrOutputBuf string(1ul);
        DSDisposeHandle(string.GetHandle(true));
    }
    EXPECT_TRUE(reports.TakeAll().empty()) << "a released handle is no failure";
    {
        HandleOutputBuf handle(1);
        DSDisposeHandle(handle.GetHandle(true));
        EXPECT_EQ(handle.GetHandle(true), nullptr);
        EXPECT_EQ(Write(handle, 1), kzErrArgument);
        LStrOutputBuf string(1ul);
        DSDisposeHandle(string.GetHandle(true));
        EXPECT_EQ(Write(string, 1), kzErrArgument);
        EXPECT_EQ(string.GetHandle(false), nullptr);
    }
    EXPECT_TRUE(reports.Take(kDbgWarning, "LStrOutputBuf finished with 1 error"));
    EXPECT_TRUE(reports.Take(kDbgWarning, "HandleOutputBuf finished with 1 error"));
}

// How many bytes go in before the block moves for the first time.
unsigned long Room(LStrOutputBuf& buffer, UHandle handle)
{
    const unsigned long size = DSGetHandleSize(handle);
    unsigned long room = 0;
    while (DSGetHandleSize(handle) == size) {
        EXPECT_EQ(Write(buffer, 1), 0);
        ++room;
    }
    return room - 1;
}

TEST_F(OutputBufTest, StringsStartInAGivenHandle)
{
    const struct {
        unsigned long handleSize;
        unsigned long initialSize;
        unsigned long room;
    } rows[] = {{104, 0, 100}, {104, 10, 10}, {104, 200, 200}, {4, 0, 0}, {3, 0, 0}, {0, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.handleSize << ", " << row.initialSize);
        const UHandle handle = DSNewHandle(row.handleSize);
        LStrOutputBuf buffer(reinterpret_cast<LStr**>(handle), row.initialSize);
        EXPECT_EQ(buffer.GetBytesWritten(), 0u);
        EXPECT_EQ(Room(buffer, handle), row.room);
    }
    LStrOutputBuf made(nullptr, 0);
    EXPECT_EQ(Write(made, 4096), 0);
    LStr** const text = made.GetHandle(false);
    EXPECT_EQ(DSGetHandleSize(text), 4100u);
    LStrOutputBuf sized(nullptr, 7);
    EXPECT_EQ(DSGetHandleSize(sized.GetHandle(false)), 4u);
}

TEST_F(OutputBufTest, SizesThatAreTooLarge)
{
    {
        HandleOutputBuf handle(ULONG_MAX - 2);
        LStrOutputBuf string(ULONG_MAX - 2);
        LStrOutputBuf given(reinterpret_cast<LStr**>(DSNewHandle(8)), ULONG_MAX - 2);
        HandleOutputBuf grown(8);
        LStrOutputBuf text(8ul);
        EXPECT_EQ(Write(handle, 1), kzErrMemoryFull);
        EXPECT_EQ(Write(string, 1), kzErrMemoryFull);
        EXPECT_EQ(Write(given, 1), kzErrMemoryFull);
        EXPECT_EQ(Write(grown, ULONG_MAX - 4100), kzErrMemoryFull);
        EXPECT_EQ(Write(text, 1ul << 31), kzErrMemoryFull) << "more than a count can tell";
        EXPECT_EQ(handle.GetHandle(true), nullptr);
    }
    int finished = 0;
    for (const auto& report : reports.TakeAll()) {
        finished += report.text.find("finished with 2 error") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(finished, 5);
}

TEST_F(OutputBufTest, PreflightOnlyCounts)
{
    PreflightOutputBuf buffer;
    EXPECT_TRUE(buffer.IsOnlyDeterminingSize());
    EXPECT_EQ(Write(buffer, 10), 0);
    EXPECT_EQ(Write(buffer, 0), 0);
    EXPECT_EQ(Write(buffer, 1ul << 40), 0);
    EXPECT_EQ(buffer.GetBytesWritten(), (1ul << 40) + 10);
    char byte;
    for (const auto& other :
         {std::unique_ptr<OutputBuf>(CreateStaticOutputBuf(&byte, 1)),
          std::unique_ptr<OutputBuf>(CreateHandleOutputBuf(1)), std::unique_ptr<OutputBuf>(CreateLStrOutputBuf(1))}) {
        EXPECT_FALSE(other->IsOnlyDeterminingSize());
    }
    EXPECT_TRUE(std::unique_ptr<OutputBuf>(CreatePreflightOutputBuf())->IsOnlyDeterminingSize());
}

TEST_F(OutputBufTest, OutOfMemory)
{
    kztest::FaultLoop(
        [this](auto failed) {
            {
                const std::unique_ptr<OutputBuf> buffer(CreateLStrOutputBuf(8));
                KzErr err = kzErrNone;
                unsigned long written = 0;
                for (int i = 0; i < 3; ++i) {
                    const KzErr latched = err;
                    if (void* const dest = buffer->GetDataPointer(5000, err)) {
                        std::memset(dest, 'x', 5000);
                        written += 5000;
                    }
                    EXPECT_TRUE(latched == kzErrNone || err == latched);
                }
                EXPECT_EQ(failed(), err == kzErrMemoryFull);
                EXPECT_EQ(buffer->GetBytesWritten(), written);
            }
            reports.TakeAll();
        },
        kztest::FailAllocation::kBlocks);
}

TEST(OutputBufLayout, SlotsStandInOrder)
{
    EXPECT_EQ(
        kztest::SlotsOf(&OutputBuf::GetDataPointer, &OutputBuf::GetBytesWritten, &OutputBuf::IsOnlyDeterminingSize),
        (std::vector<long>{2, 3, 4}));
}

}  // namespace
