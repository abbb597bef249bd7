// Binary streams: stored streams through every kind of buffer and order, random programs beside the model of the fuzz
// harness bin_data, and what neither can say.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "BinDataValues.h"
#include "JsonLines.h"
#include "RunningMemory.h"
#include "SlotOf.h"
#include "TestStrings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using namespace kzfuzz;
using kztest::Json;
using kztest::LStrHandle;

class BinDataTest : public kztest::MemoryTest {
protected:
    // What buffers and writers that ended with an error told, in the order of their ends; "full; " of the memory.
    std::string TakeFinished()
    {
        std::string all;
        for (const auto& [level, text] : reports.TakeRows()) {
            EXPECT_EQ(level, kDbgWarning);
            all += text.find("Memory error 2") == 0 ? "full; " : text.substr(0, text.find(" error")) + "; ";
        }
        return all;
    }
};

// Buffers and an order of a host, which readers and writers may reach by calls only.
class HostInput : public MemInputBuf {
public:
    using MemInputBuf::MemInputBuf;
    const void* GetDataPointer(unsigned long size, KzErr& err, unsigned long* gotSize, int32 peek) override
    {
        ++calls;
        return MemInputBuf::GetDataPointer(size, err, gotSize, peek);
    }
    int calls = 0;
};
class HostOutput : public StaticOutputBuf {
public:
    using StaticOutputBuf::StaticOutputBuf;
};
class HostOrder final : public Endianizer {
public:
    explicit HostOrder(const Endianizer* order) : m(*order) {}
    int32 ReadAWord(const void* source) const override { return m.ReadAWord(source); }
    int32 ReadALong(const void* source) const override { return m.ReadALong(source); }
    void Read2ByteVal(const void* source, void* dest) const override { m.Read2ByteVal(source, dest); }
    void Read4ByteVal(const void* source, void* dest) const override { m.Read4ByteVal(source, dest); }
    void Read8ByteVal(const void* source, void* dest) const override { m.Read8ByteVal(source, dest); }
    void ReadExtVal(const void* source, floatExt* dest) const override { m.ReadExtVal(source, dest); }
    void Read16ByteVal(const void* source, void* dest) const override { m.Read16ByteVal(source, dest); }
    void Write2ByteVal(const void* source, void* dest) const override { m.Write2ByteVal(source, dest); }
    void Write4ByteVal(const void* source, void* dest) const override { m.Write4ByteVal(source, dest); }
    void Write8ByteVal(const void* source, void* dest) const override { m.Write8ByteVal(source, dest); }
    void WriteExtVal(const floatExt* source, void* dest) const override { m.WriteExtVal(source, dest); }
    void Write16ByteVal(const void* source, void* dest) const override { m.Write16ByteVal(source, dest); }
    uInt32 SizeOfExt() const override { return m.SizeOfExt(); }
    bool IsSwapping() const override { return m.IsSwapping(); }

private:
    const Endianizer& m;
};

// ---- Stored streams ----

const Endianizer* OrderOf(const Json& row)
{
    const std::string& order = row["order"].Str();
    return order == "big" ? BigEndianizer() : order == "little" ? LittleEndianizer() : NativeEndianizer();
}

Kind KindOf(const Json& op)
{
    constexpr const char* kNames[] = {"I8",    "U8",   "Bool",  "I16",  "U16",        "I32",  "U32",
                                      "I64",   "U64",  "4Char", "F32",  "F64",        "FX",   "Array",
                                      "Bytes", "Skip", "Align", "PStr", "PStrNarrow", "LStr", "LStrNarrow"};
    return static_cast<Kind>(std::find(std::begin(kNames), std::end(kNames), op[0].Str()) - kNames);
}

std::string IntegerOf(Kind kind, const Json& value)
{
    constexpr std::size_t kSizes[] = {1, 1, 1, 2, 2, 4, 4, 8, 8};
    return BytesOf(kind == kU64 ? value.UInt() : static_cast<uInt64>(value.Int())).substr(0, kSizes[kind]);
}

unsigned long WriteOne(BinDataWriter& writer, const Json& op)
{
    const Kind kind = KindOf(op);
    const Json& value = op[1];
    const uInt32 boundary = static_cast<uInt32>(kind == kAlign ? value.UInt() : op.size() > 2 ? op[2].UInt() : 0);
    if (value.IsNull()) {
        return kind == kLStr ? writer.WriteLStr(nullptr) : writer.WritePStr(nullptr, boundary);
    }
    std::string bytes = value.IsString() ? value.Str() : kind < k4Char ? IntegerOf(kind, value) : "";
    if (kind >= kF32 && kind <= kFX) {
        const double number = std::bit_cast<double>(std::stoull(bytes, nullptr, 16));
        bytes = kind == kF32   ? BytesOf(static_cast<float>(number))
                : kind == kF64 ? BytesOf(number)
                               : BytesOf(static_cast<long double>(number)).substr(0, sizeof(floatExt));
    }
    return WriteValue(writer, {kind, boundary, bytes});
}

void CheckWritten(const Json& row, const Endianizer* order)
{
    const std::string expected = row["bytes"].Hex();
    HandleOutputBuf handle(0);
    LStrOutputBuf string(3ul);
    PreflightOutputBuf preflight;
    std::string exact(expected.size(), 0), byCalls(expected.size(), 0);
    StaticOutputBuf fixed(exact.data(), exact.size());
    HostOutput host(byCalls.data(), byCalls.size());
    for (OutputBuf* buffer : std::initializer_list<OutputBuf*>{&handle, &string, &preflight, &fixed, &host}) {
        BinDataWriter writer(buffer, order);
        for (std::size_t i = 0; i < row["ops"].size(); ++i) {
            EXPECT_EQ(row["results"][i].UInt(), WriteOne(writer, row["ops"][i])) << "operation " << i;
        }
        EXPECT_EQ(writer.GetError(), kzErrNone);
        EXPECT_EQ(buffer->GetBytesWritten(), expected.size());
    }
    const UHandle bytes = handle.GetHandle(false);
    EXPECT_EQ(expected, std::string(reinterpret_cast<char*>(*bytes), DSGetHandleSize(bytes)));
    EXPECT_EQ(expected, kztest::TextOf(*string.GetHandle(false)));
    EXPECT_EQ(expected, exact);
    EXPECT_EQ(expected, byCalls);
}

// What an operation reads: the bytes of a number or text, or "null".
std::string ReadOne(BinDataReader& reader, const Json& op)
{
    const Kind kind = KindOf(op);
    const unsigned long size = op.size() > 1 ? op[1].UInt() : 0;
    const uInt32 boundary = static_cast<uInt32>(size);
    std::string text = "before";
    if (kind <= kFX) {
        text = ReadNumber(reader, kind);
    } else if (kind == kAlign || kind == kSkip) {
        kind == kAlign ? reader.Align(boundary) : reader.Skip(size);
        text = "null";
    } else if (kind == kPStr) {
        unsigned char string[256];
        reader.ReadPStr(string, boundary);
        text.assign(reinterpret_cast<const char*>(string + 1), string[0]);
    } else if (kind == kLStr) {
        LStr** const string = reader.ReadLStr();
        text = string == nullptr ? "null" : kztest::TextOf(*string);
        DSDisposeHandle(string);
    } else if (kind == kPStrAsNarrow) {
        reader.ReadPStrAsNarrow(&text, boundary);
    } else if (kind == kLStrAsNarrow) {
        reader.ReadLStrAsNarrow(&text);
    } else if (kind == kBytes) {
        text.assign(size, '#');
        reader.ReadBytes(text.data(), size);
    } else {
        EXPECT_EQ(kind, kArray);
        text.assign(size * op[2].UInt(), '#');
        reader.ReadArray(text.data(), size, static_cast<uInt32>(op[2].UInt()));
    }
    return text;
}

std::string Expected(const Json& op, const Json& value)
{
    const Kind kind = KindOf(op);
    if (value.IsNull()) {
        return "null";
    }
    if (value.IsString()) {
        const std::string bytes = value.Hex();  // of a float the first digit first
        return kind == kF32 || kind == kF64 ? std::string(bytes.rbegin(), bytes.rend()) : bytes;
    }
    return kind == kLStr ? std::string(value["zeros"].UInt(), '\0') : IntegerOf(kind, value);
}

void CheckRead(const Json& row, const Endianizer* order)
{
    const std::string bytes = row["bytes"].Hex();
    MemInputBuf plain(bytes.data(), bytes.size());
    HostInput host(bytes.data(), bytes.size());
    for (MemInputBuf* buffer : {&plain, static_cast<MemInputBuf*>(&host)}) {
        BinDataReader reader(buffer, order);
        for (std::size_t i = 0; i < row["ops"].size(); ++i) {
            EXPECT_EQ(Expected(row["ops"][i], row["values"][i]), ReadOne(reader, row["ops"][i])) << "operation " << i;
        }
        EXPECT_TRUE(buffer == &plain || !row.Has("calls") || host.calls == row["calls"].Int()) << host.calls;
        EXPECT_EQ(row["error"].Int(), reader.GetError());
        EXPECT_EQ(row["position"].UInt(), buffer->GetBytesRead());
    }
}

TEST_F(BinDataTest, StoredStreams)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/byte_streams.jsonl")) {
        SCOPED_TRACE(row.Line());
        const HostOrder ofHost(OrderOf(row));
        for (const Endianizer* order : {OrderOf(row), static_cast<const Endianizer*>(&ofHost)}) {
            row["kind"].Str() == "write" ? CheckWritten(row, order) : CheckRead(row, order);
        }
        reports.TakeAll();  // of the buffers' errors
    }
}

// Programs of operations by chance, over blocks by chance; the harness ends the process where its model differs.
TEST_F(BinDataTest, RandomPrograms)
{
    constexpr std::uint8_t kEdges[] = {0, 0, 0, 1, 0x7F, 0x80, 0xFF};
    std::mt19937 random(1);
    for (unsigned n = kztest::ModelSequences(); n > 0; --n) {
        std::vector<std::uint8_t> input(2 + random() % 400);
        for (std::uint8_t& byte : input) {
            byte = random() % 2 == 0 ? kEdges[random() % std::size(kEdges)] : static_cast<std::uint8_t>(random());
        }
        input[1] %= 32;
        LLVMFuzzerTestOneInput(input.data(), input.size());
        reports.TakeAll();
    }
}

// ---- What neither can say ----

// A long string whose bytes are there.
TEST_F(BinDataTest, AStringAboveTheTrustedCount)
{
    const std::string bytes = std::string("\x00\x20\x00\x01", 4) + std::string(0x200001, 'x');
    MemInputBuf buffer(bytes.data(), bytes.size());
    BinDataReader reader(&buffer, BigEndianizer());
    LStr** const text = reader.ReadLStr();
    ASSERT_NE(text, nullptr);
    EXPECT_TRUE(kztest::TextOf(*text) == bytes.substr(4));
    DSDisposeHandle(text);
}

// A writer keeps its error whatever the buffer; each that ends with one tells, but a reader leaves that to its buffer.
TEST_F(BinDataTest, TheFirstErrorEndsAll)
{
    {
        MemInputBuf input("", 0);
        BinDataReader(&input, BigEndianizer()).ReadU8();
        char bytes[4];
        StaticOutputBuf buffer(bytes, 4);
        BinDataWriter writer(&buffer, BigEndianizer());
        EXPECT_EQ(writer.WriteU8(1) + writer.WriteU32(1), 1u);
        EXPECT_EQ(writer.WriteLStr(nullptr), 0u);
        PreflightOutputBuf other;
        EXPECT_EQ(writer.SetBuffer(&other), &buffer);
        EXPECT_EQ(writer.WriteU8(1), 0u) << "the error stays";
        EXPECT_EQ(writer.GetError(), kzErrCorrupt);
        BinDataWriter uncounted(nullptr, BigEndianizer());
        EXPECT_EQ(uncounted.SetBuffer(&other), nullptr);
        EXPECT_EQ(uncounted.WriteArray(bytes, ULONG_MAX / 8 + 1, 16), 0u) << "more bytes than can be counted";
        EXPECT_EQ(uncounted.WriteU16(1), 0u);
        EXPECT_EQ(uncounted.GetError(), kzErrArgument);
        EXPECT_EQ(other.GetBytesWritten(), 0u);
    }
    EXPECT_EQ(TakeFinished(),
              "BinDataWriter finished with 1; BinDataWriter finished with 74; StaticOutputBuf finished with 74; "
              "MemInputBuf finished with 74; ");
}

// ---- Buffers alone ----

// What is left of a buffer, all read at once; "error" where there is one.
std::string Rest(InputBuf& buffer)
{
    KzErr err = 12345;
    unsigned long got = 99;
    const void* const data = buffer.GetDataPointer(ULONG_MAX, err, &got, 0);
    EXPECT_EQ(data == nullptr, got == 0);
    return err != kzErrNone ? "error " + std::to_string(err) : std::string(static_cast<const char*>(data), got);
}

TEST_F(BinDataTest, InputBuffersOfLittle)
{
    LStrHandle one("x"), none, text("0123");
    const struct {
        InputBuf* buffer;
        std::string rest;
    } rows[] = {
        {CreateMemInputBuf(nullptr, 5), ""},
        {CreateMemInputBuf("x", 0), ""},
        {CreateMemInputBuf("xy", 1), "x"},
        {CreateLStrInputBuf(one.handle), "x"},
        {CreateLStrInputBuf(none.handle), "error 1"},
    };
    for (const auto& row : rows) {
        const std::unique_ptr<InputBuf> buffer(row.buffer);
        EXPECT_EQ(buffer->GetSize(), row.rest == "x");
        EXPECT_EQ(Rest(*buffer), row.rest);
    }
    LStr** const original = text.handle;
    {
        LStrInputBuf released(text.handle);
        EXPECT_EQ(text.handle, nullptr) << "taken over";
        text.handle = released.ReleaseOwnership();
        EXPECT_EQ(text.handle, original);
        EXPECT_EQ(Rest(released), "error 1");
        EXPECT_EQ(released.GetSize(), 0u);
        EXPECT_EQ(released.ReleaseOwnership(), nullptr);
    }
    EXPECT_EQ(TakeFinished(), "LStrInputBuf finished with 1; LStrInputBuf finished with 1; ");
}

// A count that the block doesn't hold, as a damaged file may have it; and one that gets less while it is read.
TEST_F(BinDataTest, UnsoundCounts)
{
    for (const auto& [count, size] : {std::pair{INT_MAX, 10ul}, {11, 10ul}, {-1, 0ul}, {9, 9ul}}) {
        LStrHandle text("0123456789");
        LStr** const shared = text.handle;
        (*shared)->cnt = count;
        LStrInputBuf buffer(text.handle);
        EXPECT_EQ(buffer.GetSize(), size);
        EXPECT_EQ(Rest(buffer), std::string("0123456789", size));
        (*shared)->cnt = 1;
        EXPECT_EQ(Rest(buffer), size == 0 ? "0" : "") << "a position behind the end";
    }
}

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

// What the handle of a buffer holds, all of its block; "none" for no handle.
std::string Handed(OutputBuf& buffer, bool release)
{
    auto* const bytes = dynamic_cast<HandleOutputBuf*>(&buffer);
    LStr** const string = bytes == nullptr ? dynamic_cast<LStrOutputBuf&>(buffer).GetHandle(release) : nullptr;
    const UHandle handle = bytes != nullptr ? bytes->GetHandle(release) : reinterpret_cast<UHandle>(string);
    if (handle == nullptr) {
        return "none";
    }
    const std::string block(reinterpret_cast<char*>(*handle), DSGetHandleSize(handle));
    EXPECT_TRUE(string == nullptr || kztest::TextOf(*string).size() + 4 == block.size());
    DSDisposeHandle(release ? handle : nullptr);
    return block.substr(string == nullptr ? 0 : 4);
}

// Steps are sizes to write, or "look" and "take" at the handle, or "full": there is no memory from here on. A released
// handle is no failure until something is asked of it; a look ends the room behind what is written. Sizes whose sum
// with what is written wraps, or that a count can't tell, are refused before memory is asked for.
TEST_F(BinDataTest, OutputBuffersStepByStep)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/output_buffers.jsonl")) {
        SCOPED_TRACE(row.Line());
        const std::string& kind = row["kind"].Str();
        const unsigned long room = row["room"].UInt();
        std::string written, block(10, '.'), expected;
        KzErr error = kzErrNone;
        {
            const std::unique_ptr<OutputBuf> buffer(
                kind == "PreflightOutputBuf" ? CreatePreflightOutputBuf()
                : kind == "HandleOutputBuf"  ? CreateHandleOutputBuf(room)
                : kind == "LStrOutputBuf"    ? CreateLStrOutputBuf(room)
                                             : CreateStaticOutputBuf(room == 0 ? nullptr : block.data(), 10));
            std::optional<kztest::FailAllocation> fail;
            for (std::size_t i = 0; i < row["steps"].size(); ++i) {
                const Json& step = row["steps"][i];
                const char fill = static_cast<char>('a' + i);
                error = static_cast<KzErr>(row["errors"][i].Int());
                if (!step.IsString()) {
                    EXPECT_EQ(Write(*buffer, step.UInt(), fill), error) << "step " << i;
                    written += error == 0 && !buffer->IsOnlyDeterminingSize() ? std::string(step.UInt(), fill) : "";
                } else if (step.Str() == "full") {
                    fail.emplace(1, kztest::FailAllocation::kForGood);
                    expected = "full; ";
                } else {
                    EXPECT_EQ(Handed(*buffer, step.Str() == "take"), error == 0 ? written : "none");
                }
            }
        }
        EXPECT_TRUE(kind != "StaticOutputBuf" || room == 0 || block == written);
        expected += error == 0 ? "" : kind + " finished with " + std::to_string(error) + "; ";
        EXPECT_EQ(TakeFinished(), expected);
    }
}

// A string starts with the room of the block that it is given, or with that asked for; behind it the block grows by
// what is needed and 4,096 bytes. A block of -1 is no handle.
TEST_F(BinDataTest, RoomOfStrings)
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
    {
        LStrOutputBuf given(reinterpret_cast<LStr**>(DSNewHandle(8)), ULONG_MAX - 2);
        EXPECT_EQ(Write(given, 1), kzErrMemoryFull);
    }
    EXPECT_EQ(TakeFinished(), "LStrOutputBuf finished with 2; ");
}

TEST_F(BinDataTest, OutOfMemory)
{
    kztest::FaultLoop(
        [&](auto failed) {
            MemInputBuf input("\0\0\0\5hello", 9);
            BinDataReader reader(&input, BigEndianizer());
            LStr** const text = reader.ReadLStr();
            EXPECT_EQ(reader.GetError(), text == nullptr ? kzErrMemoryFull : kzErrNone);
            DSDisposeHandle(text);
            bool anyFailed = text == nullptr;
            for (const bool isString : {false, true}) {
                const std::unique_ptr<OutputBuf> buffer(isString ? CreateLStrOutputBuf(8) : CreateHandleOutputBuf(8));
                KzErr err = kzErrNone;
                for (int i = 0; i < 3; ++i) {
                    const KzErr latched = err;
                    err = Write(*buffer, 5000);
                    EXPECT_TRUE(latched == kzErrNone || err == latched);
                }
                anyFailed = anyFailed || err == kzErrMemoryFull;
            }
            EXPECT_EQ(failed(), anyFailed);
        },
        kztest::FailAllocation::kBlocks);
    reports.TakeAll();
}

TEST(BinDataLayout, SlotsStandInOrder)
{
    EXPECT_EQ(kztest::SlotsOf(&BinDataReader::Align, &BinDataReader::GetBuffer, &BinDataReader::GetError,
                              &BinDataReader::ReadI8, &BinDataReader::ReadU64, &BinDataReader::Read4Char,
                              &BinDataReader::ReadBool, &BinDataReader::ReadPStr, &BinDataReader::ReadLStrAsNarrow,
                              &BinDataReader::ReadLStr, &BinDataReader::ReadBytes, &BinDataReader::Skip),
              (std::vector<long>{0, 1, 2, 3, 10, 11, 15, 16, 18, 19, 20, 21}));
    EXPECT_EQ(kztest::SlotsOf(&BinDataWriter::GetError, &BinDataWriter::GetBuffer, &BinDataWriter::SetBuffer,
                              &BinDataWriter::Align, &BinDataWriter::WriteI8, &BinDataWriter::WriteU64,
                              &BinDataWriter::WriteBool, &BinDataWriter::WritePStr, &BinDataWriter::WriteLStrFromNarrow,
                              &BinDataWriter::WriteLStr, &BinDataWriter::WriteBytes),
              (std::vector<long>{0, 1, 2, 3, 4, 11, 16, 17, 19, 20, 21}));
    EXPECT_EQ(
        kztest::SlotsOf(&OutputBuf::GetDataPointer, &OutputBuf::GetBytesWritten, &OutputBuf::IsOnlyDeterminingSize),
        (std::vector<long>{2, 3, 4}));
}

}  // namespace
