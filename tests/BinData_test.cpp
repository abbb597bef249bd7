// Typed reading and writing of binary streams. Random programs beside a model are those of the fuzz harness bin_data,
// which the tests run too.

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "BinDataReader.h"
#include "BinDataWriter.h"
#include "ByteOrder.h"
#include "FaultLoop.h"
#include "JsonLines.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "SlotOf.h"
#include "TestStrings.h"

namespace {

using kztest::Json;
using kztest::LStrValue;
using kztest::PStrValue;

class BinDataTest : public testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// Buffers of a host, which readers and writers may reach by calls only.
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

floatExt Extended(double value)
{
    const long double wide = value;
    floatExt x;
    std::memcpy(x.bytes, &wide, sizeof x.bytes);
    return x;
}

// ---- Stored streams ----

std::string HexOf(const void* bytes, std::size_t size)
{
    std::string hex;
    for (std::size_t i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<const unsigned char*>(bytes)[i]);
        hex += digits;
    }
    return hex;
}

std::string HexOf(const std::string& bytes)
{
    return HexOf(bytes.data(), bytes.size());
}

// Numbers are written with the first digit first.
template <typename T>
std::string DigitsOf(T value)
{
    char bytes[sizeof value];
    kz::StoreBig(bytes, value);
    return HexOf(bytes, sizeof bytes);
}

const Endianizer* OrderOf(const Json& row)
{
    const std::string& order = row["order"].Str();
    return order == "big" ? BigEndianizer() : order == "little" ? LittleEndianizer() : NativeEndianizer();
}

unsigned long WriteOne(BinDataWriter& writer, const Json& op)
{
    const std::string& kind = op[0].Str();
    const Json& value = op[1];
    const auto number = [&] { return std::bit_cast<double>(std::stoull(value.Str(), nullptr, 16)); };
    const auto second = [&] { return static_cast<uInt32>(op[2].UInt()); };
    if (kind == "I8") return writer.WriteI8(static_cast<int8>(value.Int()));
    if (kind == "U8") return writer.WriteU8(static_cast<uInt8>(value.Int()));
    if (kind == "Bool") return writer.WriteBool(static_cast<uInt8>(value.Int()));
    if (kind == "I16") return writer.WriteI16(static_cast<int16>(value.Int()));
    if (kind == "U16") return writer.WriteU16(static_cast<uInt16>(value.Int()));
    if (kind == "I32") return writer.WriteI32(static_cast<int32>(value.Int()));
    if (kind == "U32") return writer.WriteU32(static_cast<uInt32>(value.Int()));
    if (kind == "I64") return writer.WriteI64(value.Int());
    if (kind == "U64") return writer.WriteU64(value.UInt());
    if (kind == "4Char") return writer.Write4Char(kz::LoadNative<uInt32>(value.Str().data()));
    if (kind == "F32") return writer.WriteF32(static_cast<float>(number()));
    if (kind == "F64") return writer.WriteF64(number());
    if (kind == "FX") return writer.WriteFX(Extended(number()));
    if (kind == "Align") return writer.Align(static_cast<uInt32>(value.UInt()));
    if (kind == "Bytes") return writer.WriteBytes(value.Str().data(), value.Str().size());
    if (kind == "Array") return writer.WriteArray(value.Str().data(), value.Str().size() / second(), second());
    if (kind == "LStrNarrow") return writer.WriteLStrFromNarrow(value.Str());
    if (kind == "PStrNarrow") return writer.WritePStrFromNarrow(value.Str(), second());
    if (kind == "LStr") return writer.WriteLStr(value.IsNull() ? nullptr : LStrValue(value.Str()).Get());
    EXPECT_EQ(kind, "PStr");
    return value.IsNull() ? writer.WritePStr(nullptr, second()) : writer.WritePStr(PStrValue(value.Str()), second());
}

TEST_F(BinDataTest, WrittenStreams)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/byte_streams.jsonl")) {
        if (row["kind"].Str() != "write") {
            continue;
        }
        SCOPED_TRACE(row.Line());
        const std::string expected = row["bytes"].Hex();
        HandleOutputBuf handle(0);
        LStrOutputBuf string(3ul);
        PreflightOutputBuf preflight;
        std::string exact(expected.size(), 0), byCalls(expected.size(), 0);
        StaticOutputBuf fixed(exact.data(), exact.size());
        HostOutput host(byCalls.data(), byCalls.size());
        for (OutputBuf* buffer : std::initializer_list<OutputBuf*>{&handle, &string, &preflight, &fixed, &host}) {
            BinDataWriter writer(buffer, OrderOf(row));
            const auto& ops = row["ops"].Items();
            for (std::size_t i = 0; i < ops.size(); ++i) {
                EXPECT_EQ(row["results"][i].UInt(), WriteOne(writer, ops[i])) << "operation " << i;
            }
            EXPECT_EQ(writer.GetError(), kzErrNone);
            EXPECT_EQ(buffer->GetBytesWritten(), expected.size());
        }
        const UHandle bytes = handle.GetHandle(false);
        EXPECT_EQ(HexOf(expected), HexOf(*bytes, DSGetHandleSize(bytes)));
        EXPECT_EQ(HexOf(expected), HexOf(kztest::TextOf(*string.GetHandle(false))));
        EXPECT_EQ(HexOf(expected), HexOf(exact));
        EXPECT_EQ(HexOf(expected), HexOf(byCalls));
    }
}

// What an operation reads: a number as text, bytes in hexadecimal digits, or "null".
std::string ReadOne(BinDataReader& reader, const Json& op)
{
    const std::string& kind = op[0].Str();
    const auto argument = [&](int i) { return op[i].UInt(); };
    if (kind == "I8") return std::to_string(reader.ReadI8());
    if (kind == "U8") return std::to_string(reader.ReadU8());
    if (kind == "Bool") return std::to_string(reader.ReadBool());
    if (kind == "I16") return std::to_string(reader.ReadI16());
    if (kind == "U16") return std::to_string(reader.ReadU16());
    if (kind == "I32") return std::to_string(reader.ReadI32());
    if (kind == "U32") return std::to_string(reader.ReadU32());
    if (kind == "I64") return std::to_string(reader.ReadI64());
    if (kind == "U64") return std::to_string(reader.ReadU64());
    if (kind == "F32") return DigitsOf(std::bit_cast<uInt32>(reader.ReadF32()));
    if (kind == "F64") return DigitsOf(std::bit_cast<uInt64>(reader.ReadF64()));
    if (kind == "FX") return HexOf(reader.ReadFX().bytes, sizeof(floatExt));
    if (kind == "Align" || kind == "Skip") {
        kind == "Align" ? reader.Align(static_cast<uInt32>(argument(1))) : reader.Skip(argument(1));
        return "null";
    }
    if (kind == "4Char") {
        const uInt32 value = reader.Read4Char();
        return HexOf(&value, sizeof value);
    }
    if (kind == "PStr") {
        unsigned char text[256];
        reader.ReadPStr(text, static_cast<uInt32>(argument(1)));
        return HexOf(text + 1, text[0]);
    }
    if (kind == "LStr") {
        LStr** const string = reader.ReadLStr();
        const std::string text = string == nullptr ? "null" : HexOf(kztest::TextOf(*string));
        DSDisposeHandle(string);
        return text;
    }
    std::string text = "before";
    if (kind == "PStrNarrow") {
        reader.ReadPStrAsNarrow(&text, static_cast<uInt32>(argument(1)));
    } else if (kind == "LStrNarrow") {
        reader.ReadLStrAsNarrow(&text);
    } else if (kind == "Bytes") {
        text.assign(argument(1), '#');
        reader.ReadBytes(text.data(), text.size());
    } else {
        EXPECT_EQ(kind, "Array");
        text.assign(argument(1) * argument(2), '#');
        reader.ReadArray(text.data(), argument(1), static_cast<uInt32>(argument(2)));
    }
    return HexOf(text);
}

std::string Expected(const Json& op, const Json& value)
{
    std::string text = "null";
    if (value.IsString()) {
        text = HexOf(value.Hex());
    } else if (!value.IsNull() && op[0].Str() == "LStr") {
        text = std::string(2 * value["zeros"].UInt(), '0');
    } else if (!value.IsNull()) {
        text = op[0].Str() == "U64" ? std::to_string(value.UInt()) : std::to_string(value.Int());
    }
    return text;
}

TEST_F(BinDataTest, ReadStreams)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/byte_streams.jsonl")) {
        if (row["kind"].Str() != "read") {
            continue;
        }
        SCOPED_TRACE(row.Line());
        const std::string bytes = row["bytes"].Hex();
        {
            MemInputBuf plain(bytes.data(), bytes.size());
            HostInput host(bytes.data(), bytes.size());
            for (MemInputBuf* buffer : {&plain, static_cast<MemInputBuf*>(&host)}) {
                BinDataReader reader(buffer, OrderOf(row));
                const auto& ops = row["ops"].Items();
                for (std::size_t i = 0; i < ops.size(); ++i) {
                    EXPECT_EQ(Expected(ops[i], row["values"][i]), ReadOne(reader, ops[i])) << "operation " << i;
                }
                EXPECT_EQ(row["error"].Int(), reader.GetError());
                EXPECT_EQ(row["position"].UInt(), buffer->GetBytesRead());
            }
        }
        reports.TakeAll();  // of the buffer's error
    }
}

// ---- What rows can't say ----

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

TEST_F(BinDataTest, TheFirstErrorEndsAll)
{
    {
        MemInputBuf buffer("abcdef", 6);
        BinDataReader reader(&buffer, BigEndianizer());
        reader.SetError(kzErrNone);
        EXPECT_EQ(reader.ReadU8(), 'a');
        reader.SetError(99);
        reader.SetError(98);
        EXPECT_EQ(reader.ReadU8(), 0);
        reader.ReadBytes(nullptr, 3);
        EXPECT_EQ(reader.GetError(), 99);
        EXPECT_EQ(buffer.GetBytesRead(), 1u);
        KzErr err = kzErrNone;
        BinDataReader other(&buffer, BigEndianizer());
        static_cast<InputBuf&>(buffer).GetDataPointer(9, err);
        EXPECT_EQ(other.ReadU8(), 0) << "an error of the buffer's own";
        EXPECT_EQ(BinDataReader(&buffer, BigEndianizer()).GetError(), kzErrCorrupt) << "the first thing asked";
    }
    EXPECT_TRUE(reports.Take(kDbgWarning, "MemInputBuf finished with 74 error")) << "the reader itself is silent";
    {
        char bytes[4];
        StaticOutputBuf buffer(bytes, 4);
        BinDataWriter writer(&buffer, BigEndianizer());
        EXPECT_EQ(writer.WriteU8(1), 1u);
        EXPECT_EQ(writer.WriteU32(1), 0u);
        EXPECT_EQ(writer.WriteU8(1), 0u) << "it would fit";
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
    EXPECT_TRUE(reports.Take(kDbgWarning, "BinDataWriter finished with 74 error"));
    EXPECT_TRUE(reports.Take(kDbgWarning, "BinDataWriter finished with 1 error"));
    EXPECT_TRUE(reports.Take(kDbgWarning, "StaticOutputBuf finished with 74 error"));
}

// Bytes in the order of pairs: neither the shared objects nor just their kinds.
class PairOrder final : public Endianizer {
public:
    int32 ReadAWord(const void* source) const override { return LittleEndianizer()->ReadAWord(source); }
    int32 ReadALong(const void* source) const override { return static_cast<int32>(Swapped<uInt32>(source)); }
    void Read2ByteVal(const void* source, void* dest) const override { std::memcpy(dest, source, 2); }
    void Read4ByteVal(const void* source, void* dest) const override { kz::StoreNative(dest, Swapped<uInt32>(source)); }
    void Read8ByteVal(const void* source, void* dest) const override { kz::StoreNative(dest, Swapped<uInt64>(source)); }
    void ReadExtVal(const void* source, floatExt* dest) const override { std::memcpy(dest, source, sizeof *dest); }
    void Read16ByteVal(const void* source, void* dest) const override { std::memcpy(dest, source, 16); }
    void Write2ByteVal(const void* source, void* dest) const override { std::memcpy(dest, source, 2); }
    void Write4ByteVal(const void* source, void* dest) const override { Read4ByteVal(source, dest); }
    void Write8ByteVal(const void* source, void* dest) const override { Read8ByteVal(source, dest); }
    void WriteExtVal(const floatExt* source, void* dest) const override { std::memcpy(dest, source, sizeof *source); }
    void Write16ByteVal(const void* source, void* dest) const override { std::memcpy(dest, source, 16); }
    uInt32 SizeOfExt() const override { return sizeof(floatExt); }
    bool IsSwapping() const override { return false; }

private:
    template <typename T>
    static T Swapped(const void* source)
    {
        const T value = kz::LoadNative<T>(source);
        return static_cast<T>(value << (sizeof value * 4) | value >> (sizeof value * 4));
    }
};

// An order that a host has made is asked for each scalar, also where the buffer is plain.
TEST_F(BinDataTest, AnOrderOfTheHost)
{
    const PairOrder order;
    unsigned char bytes[26];
    StaticOutputBuf output(bytes, sizeof bytes);
    BinDataWriter writer(&output, &order);
    writer.WriteU16(0x1122);
    writer.WriteI32(0x11223344);
    writer.WriteU64(0x1122334455667788);
    writer.WriteF32(1.0f);
    writer.WriteF64(1.0);
    EXPECT_EQ(writer.GetError(), kzErrNone);
    EXPECT_EQ(HexOf(bytes, sizeof bytes), "2211221144334433221188776655803f00000000f03f00000000");
    MemInputBuf input(bytes, sizeof bytes);
    BinDataReader reader(&input, &order);
    EXPECT_EQ(reader.ReadU16(), 0x1122);
    EXPECT_EQ(reader.ReadI32(), 0x11223344);
    EXPECT_EQ(reader.ReadU64(), 0x1122334455667788u);
    EXPECT_EQ(reader.ReadF32(), 1.0f);
    EXPECT_EQ(reader.ReadF64(), 1.0);
}

// A PStr is a count and a rest: two calls, or one where there is no rest, and three where the padding is not there.
TEST_F(BinDataTest, CallsOfTheBuffer)
{
    const struct {
        std::string bytes;
        uInt32 boundary;
        int calls;
    } rows[] = {
        {std::string("\3abc", 4), 4, 2}, {std::string("\4abcd\0\0\0", 8), 4, 2}, {std::string("\0", 1), 1, 1},
        {std::string("\0\0", 2), 2, 2},  {std::string("\2ab", 3), 4, 3},         {std::string("\3ab", 3), 1, 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        HostInput buffer(row.bytes.data(), row.bytes.size());
        unsigned char text[256];
        BinDataReader(&buffer, BigEndianizer()).ReadPStr(text, row.boundary);
        EXPECT_EQ(buffer.calls, row.calls);
    }
    reports.TakeAll();
    HostInput buffer("abcdef", 6);
    BinDataReader reader(&buffer, BigEndianizer());
    reader.Skip(4);
    reader.Align(4);
    EXPECT_EQ(buffer.calls, 1) << "with nothing to skip a reader does not see an error of the buffer's own";
    EXPECT_EQ(reader.ReadU16(), 0x6566);
    EXPECT_EQ(buffer.calls, 2);
}

TEST_F(BinDataTest, OutOfMemory)
{
    const std::string bytes("\0\0\0\5hello", 9);
    kztest::FaultLoop([&](auto failed) {
        MemInputBuf buffer(bytes.data(), bytes.size());
        BinDataReader reader(&buffer, BigEndianizer());
        LStr** const text = reader.ReadLStr();
        EXPECT_EQ(failed(), text == nullptr);
        EXPECT_EQ(reader.GetError(), text == nullptr ? kzErrMemoryFull : kzErrNone);
        DSDisposeHandle(text);
    });
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
}

}  // namespace
