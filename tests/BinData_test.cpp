// Typed reading and writing of binary streams.

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "BinDataReader.h"
#include "BinDataWriter.h"
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

floatExt Extended(double value)
{
    const long double wide = value;
    floatExt x;
    std::memcpy(x.bytes, &wide, sizeof x.bytes);
    return x;
}

double DoubleOf(const Json& bits)
{
    return std::bit_cast<double>(std::stoull(bits.Str(), nullptr, 16));
}

uInt32 FourChar(const std::string& text)
{
    uInt32 value = 0;
    std::memcpy(&value, text.data(), sizeof value);
    return value;
}

unsigned long WriteOne(BinDataWriter& writer, const Json& op)
{
    const std::string& kind = op[0].Str();
    const Json& value = op[1];
    if (kind == "I8") return writer.WriteI8(static_cast<int8>(value.Int()));
    if (kind == "U8") return writer.WriteU8(static_cast<uInt8>(value.Int()));
    if (kind == "I16") return writer.WriteI16(static_cast<int16>(value.Int()));
    if (kind == "U16") return writer.WriteU16(static_cast<uInt16>(value.Int()));
    if (kind == "I32") return writer.WriteI32(static_cast<int32>(value.Int()));
    if (kind == "U32") return writer.WriteU32(static_cast<uInt32>(value.Int()));
    if (kind == "I64") return writer.WriteI64(value.Int());
    if (kind == "U64") return writer.WriteU64(value.UInt());
    if (kind == "4Char") return writer.Write4Char(FourChar(value.Str()));
    if (kind == "F32") return writer.WriteF32(static_cast<float>(DoubleOf(value)));
    if (kind == "F64") return writer.WriteF64(DoubleOf(value));
    if (kind == "FX") return writer.WriteFX(Extended(DoubleOf(value)));
    if (kind == "Align") return writer.Align(static_cast<uInt32>(value.Int()));
    if (kind == "Bytes") return writer.WriteBytes(value.Str().data(), value.Str().size());
    if (kind == "LStr")
        return value.IsNull() ? writer.WriteLStr(nullptr) : writer.WriteLStr(LStrValue(value.Str()).Get());
    EXPECT_EQ(kind, "PStr");
    const auto boundary = static_cast<uInt32>(op[2].Int());
    return value.IsNull() ? writer.WritePStr(nullptr, boundary) : writer.WritePStr(PStrValue(value.Str()), boundary);
}

const Endianizer* OrderOf(const Json& row)
{
    return row["order"].Str() == "big" ? BigEndianizer() : LittleEndianizer();
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
        PreflightOutputBuf preflight;
        std::string exact(expected.size(), 0);
        StaticOutputBuf fixed(exact.data(), exact.size());
        for (OutputBuf* buffer :
             {static_cast<OutputBuf*>(&handle), static_cast<OutputBuf*>(&preflight), static_cast<OutputBuf*>(&fixed)}) {
            BinDataWriter writer(buffer, OrderOf(row));
            const auto& ops = row["ops"].Items();
            for (std::size_t i = 0; i < ops.size(); ++i) {
                EXPECT_EQ(row["results"][i].UInt(), WriteOne(writer, ops[i])) << "operation " << i;
            }
            EXPECT_EQ(writer.GetError(), kzErrNone);
            EXPECT_EQ(buffer->GetBytesWritten(), expected.size());
        }
        const UHandle bytes = handle.GetHandle(false);
        EXPECT_EQ(expected, std::string(reinterpret_cast<char*>(*bytes), DSGetHandleSize(bytes)));
        EXPECT_EQ(expected, exact);
    }
}

std::string HexOf(const void* bytes, std::size_t size)
{
    std::string hex;
    for (std::size_t i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<const unsigned char*>(bytes)[i]);
        hex += digits;
    }
    return hex;
}

std::string Lower(std::string text)
{
    for (char& c : text) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

void ReadOne(BinDataReader& reader, const Json& op, const Json& expected)
{
    const std::string& kind = op[0].Str();
    if (kind == "I8") {
        EXPECT_EQ(expected.Int(), reader.ReadI8());
    } else if (kind == "U8") {
        EXPECT_EQ(expected.Int(), reader.ReadU8());
    } else if (kind == "I16") {
        EXPECT_EQ(expected.Int(), reader.ReadI16());
    } else if (kind == "U16") {
        EXPECT_EQ(expected.Int(), reader.ReadU16());
    } else if (kind == "I32") {
        EXPECT_EQ(expected.Int(), reader.ReadI32());
    } else if (kind == "U32") {
        EXPECT_EQ(expected.Int(), reader.ReadU32());
    } else if (kind == "I64") {
        EXPECT_EQ(expected.Int(), reader.ReadI64());
    } else if (kind == "U64") {
        EXPECT_EQ(expected.UInt(), reader.ReadU64());
    } else if (kind == "F32") {
        EXPECT_EQ(std::stoull(expected.Str(), nullptr, 16), std::bit_cast<uInt32>(reader.ReadF32()));
    } else if (kind == "F64") {
        EXPECT_EQ(std::stoull(expected.Str(), nullptr, 16), std::bit_cast<uInt64>(reader.ReadF64()));
    } else if (kind == "4Char") {
        const uInt32 value = reader.Read4Char();
        EXPECT_EQ(expected.Str(), Lower(HexOf(&value, sizeof value)));
    } else if (kind == "Align") {
        reader.Align(static_cast<uInt32>(op[1].Int()));
    } else if (kind == "Skip") {
        reader.Skip(op[1].UInt());
    } else if (kind == "PStr") {
        unsigned char text[256];
        reader.ReadPStr(text, static_cast<uInt32>(op[1].Int()));
        EXPECT_EQ(expected.Str(), Lower(HexOf(text + 1, text[0])));
    } else {
        ASSERT_EQ(kind, "LStr");
        LStr** const text = reader.ReadLStr();
        ASSERT_EQ(expected.IsNull(), text == nullptr);
        if (text != nullptr) {
            EXPECT_EQ(expected.IsString() ? expected.Hex() : std::string(expected["zeros"].UInt(), '\0'),
                      std::string(reinterpret_cast<char*>((*text)->str), static_cast<std::size_t>((*text)->cnt)));
            DSDisposeHandle(text);
        }
    }
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
            MemInputBuf buffer(bytes.data(), bytes.size());
            BinDataReader reader(&buffer, OrderOf(row));
            const auto& ops = row["ops"].Items();
            for (std::size_t i = 0; i < ops.size(); ++i) {
                ReadOne(reader, ops[i], row["values"][i]);
            }
            EXPECT_EQ(row["error"].Int(), reader.GetError());
            EXPECT_EQ(row["position"].UInt(), buffer.GetBytesRead());
        }
        reports.TakeAll();  // of the buffer's error
    }
}

// A random description of a record: what is written is read back equal, and measured exactly before.
TEST_F(BinDataTest, RandomRecords)
{
    std::mt19937_64 random(4);
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        const Endianizer* const orders[] = {NativeEndianizer(), BigEndianizer(), LittleEndianizer()};
        const Endianizer* const order = orders[round % 3];
        const uInt64 seed = random();
        const auto write = [&](BinDataWriter& writer) {
            std::mt19937_64 draw(seed);
            for (int i = 0; i < 20; ++i) {
                const uInt64 bits = draw();
                const auto boundary = static_cast<uInt32>(draw() % 6);
                std::string text(draw() % 300, '\0');
                for (char& c : text) {
                    c = static_cast<char>(draw());
                }
                switch (bits % 10) {
                    case 0:
                        writer.WriteU8(static_cast<uInt8>(bits));
                        break;
                    case 1:
                        writer.WriteI16(static_cast<int16>(bits));
                        break;
                    case 2:
                        writer.WriteU32(static_cast<uInt32>(bits));
                        break;
                    case 3:
                        writer.WriteI64(static_cast<int64>(bits));
                        break;
                    case 4:
                        writer.WriteFX(Extended(static_cast<double>(bits)));
                        break;
                    case 5:
                        writer.WritePStrFromNarrow(text, boundary);
                        break;
                    case 6:
                        writer.WriteLStrFromNarrow(text);
                        break;
                    case 7:
                        writer.Align(boundary);
                        break;
                    case 8:
                        writer.WriteBytes(text.data(), text.size());
                        break;
                    default:
                        writer.WriteBool(static_cast<uInt8>(bits >> 8));
                        break;
                }
            }
        };
        const auto read = [&](BinDataReader& reader) {
            std::mt19937_64 draw(seed);
            for (int i = 0; i < 20; ++i) {
                const uInt64 bits = draw();
                const auto boundary = static_cast<uInt32>(draw() % 6);
                std::string text(draw() % 300, '\0');
                for (char& c : text) {
                    c = static_cast<char>(draw());
                }
                std::string got;
                switch (bits % 10) {
                    case 0:
                        EXPECT_EQ(static_cast<uInt8>(bits), reader.ReadU8());
                        break;
                    case 1:
                        EXPECT_EQ(static_cast<int16>(bits), reader.ReadI16());
                        break;
                    case 2:
                        EXPECT_EQ(static_cast<uInt32>(bits), reader.ReadU32());
                        break;
                    case 3:
                        EXPECT_EQ(static_cast<int64>(bits), reader.ReadI64());
                        break;
                    case 4: {
                        const floatExt value = Extended(static_cast<double>(bits));
                        const floatExt stored = reader.ReadFX();
                        EXPECT_EQ(0, std::memcmp(value.bytes, stored.bytes, sizeof value.bytes));
                        break;
                    }
                    case 5:
                        reader.ReadPStrAsNarrow(&got, boundary);
                        EXPECT_EQ(text.substr(0, 255), got);
                        break;
                    case 6:
                        reader.ReadLStrAsNarrow(&got);
                        EXPECT_EQ(text, got);
                        break;
                    case 7:
                        reader.Align(boundary);
                        break;
                    case 8:
                        got.resize(text.size());
                        reader.ReadBytes(got.data(), got.size());
                        EXPECT_EQ(text, got);
                        break;
                    default:
                        EXPECT_EQ(static_cast<uInt8>(bits >> 8), reader.ReadBool());
                        break;
                }
            }
        };
        PreflightOutputBuf preflight;
        BinDataWriter measuring(&preflight, order);
        write(measuring);
        const unsigned long size = preflight.GetBytesWritten();
        std::string bytes(size, '#');
        StaticOutputBuf fixed(bytes.data(), size);
        BinDataWriter writer(&fixed, order);
        write(writer);
        ASSERT_EQ(writer.GetError(), kzErrNone) << "exactly enough";
        ASSERT_EQ(fixed.GetBytesWritten(), size);
        MemInputBuf input(bytes.data(), size);
        BinDataReader reader(&input, order);
        read(reader);
        ASSERT_EQ(reader.GetError(), kzErrNone);
        ASSERT_EQ(input.GetBytesRead(), size);
    }
}

TEST_F(BinDataTest, CountsOfStrings)
{
    const struct {
        uInt32 count;
        KzErr error;
        bool isMade;
    } rows[] = {
        {0, kzErrNone, false},
        {3, kzErrNone, true},
        {4, kzErrCorrupt, true},
        {0x200000, kzErrCorrupt, true},
        {0x200001, kzErrBadCount, false},
        {0x7FFFFFFF, kzErrBadCount, false},
        {0x80000000, kzErrBadCount, false},
        {0xFFFFFFFF, kzErrBadCount, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.count);
        char bytes[7];
        BigEndianizer()->Write4ByteVal(&row.count, bytes);
        std::memcpy(bytes + 4, "abc", 3);
        for (const bool isNarrow : {false, true}) {
            MemInputBuf buffer(bytes, sizeof bytes);
            BinDataReader reader(&buffer, BigEndianizer());
            if (isNarrow) {
                std::string text = "before";
                reader.ReadLStrAsNarrow(&text);
                EXPECT_EQ(text, row.count == 3 ? "abc" : "");
            } else {
                LStr** const text = reader.ReadLStr();
                EXPECT_EQ(row.isMade, text != nullptr);
                if (text != nullptr) {
                    EXPECT_EQ(static_cast<uInt32>((*text)->cnt), row.count);
                    EXPECT_EQ((*text)->str[2], row.count == 3 ? 'c' : 0) << "zeros where the bytes are missing";
                    DSDisposeHandle(text);
                }
            }
            EXPECT_EQ(row.error, reader.GetError());
            if (row.error == kzErrBadCount) {
                EXPECT_EQ(buffer.GetBytesRead(), 4u);
            }
        }
        reports.TakeAll();
    }
}

// A long string whose bytes are there.
TEST_F(BinDataTest, AStringAboveTheTrustedCount)
{
    std::string bytes("\x00\x20\x00\x01", 4);
    bytes += std::string(0x200001, 'x');
    MemInputBuf buffer(bytes.data(), bytes.size());
    BinDataReader reader(&buffer, BigEndianizer());
    LStr** const text = reader.ReadLStr();
    ASSERT_NE(text, nullptr);
    EXPECT_EQ((*text)->cnt, 0x200001);
    EXPECT_EQ((*text)->str[0x200000], 'x');
    DSDisposeHandle(text);
}

TEST_F(BinDataTest, TheFirstErrorEndsAll)
{
    {
        MemInputBuf buffer("abcdef", 6);
        BinDataReader reader(&buffer, BigEndianizer());
        EXPECT_EQ(reader.ReadI64(), 0);
        EXPECT_EQ(buffer.GetBytesRead(), 0u);
        EXPECT_EQ(reader.ReadU8(), 0);
        char block[4] = "xyz";
        reader.ReadBytes(block, 3);
        EXPECT_EQ(std::string(block, 3), std::string(3, '\0'));
        reader.ReadBytes(nullptr, 3);
        const floatExt zero = reader.ReadFX();
        EXPECT_EQ(0, std::memcmp(&zero, &EZero, sizeof zero));
        EXPECT_EQ(reader.ReadLStr(), nullptr);
        reader.SetError(99);
        EXPECT_EQ(reader.GetError(), kzErrCorrupt);
    }
    EXPECT_TRUE(reports.Take(kDbgWarning, "MemInputBuf finished with 74 error")) << "the reader itself is silent";
    {
        MemInputBuf buffer("abcdef", 6);
        BinDataReader reader(&buffer, BigEndianizer());
        reader.SetError(99);
        EXPECT_EQ(reader.ReadU8(), 0);
        EXPECT_EQ(reader.GetError(), 99);
        EXPECT_EQ(buffer.GetBytesRead(), 0u);
    }
    char bytes[4];
    {
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
    }
    EXPECT_TRUE(reports.Take(kDbgWarning, "BinDataWriter finished with 74 error"));
    EXPECT_TRUE(reports.Take(kDbgWarning, "StaticOutputBuf finished with 74 error"));
}

TEST_F(BinDataTest, Arrays)
{
    const uInt32 numbers[] = {0x01020304, 0x05060708, 0x090A0B0C};
    unsigned char bytes[16];
    StaticOutputBuf output(bytes, sizeof bytes);
    BinDataWriter writer(&output, BigEndianizer());
    EXPECT_EQ(writer.WriteArray(numbers, 0, 4), 0u);
    EXPECT_EQ(writer.WriteArray(numbers, 3, 4), 12u);
    EXPECT_EQ(HexOf(bytes, 12), "0102030405060708090A0B0C");
    PreflightOutputBuf preflight;
    EXPECT_EQ(writer.SetBuffer(&preflight), &output);
    EXPECT_EQ(writer.WriteArray(numbers, 3, 4), 12u);
    EXPECT_EQ(writer.WriteU16(1), 2u);
    EXPECT_EQ(preflight.GetBytesWritten(), 14u);
    {
        MemInputBuf input(bytes, 12);
        BinDataReader reader(&input, BigEndianizer());
        uInt16 read[8] = {};
        reader.ReadArray(read, 2, 2);
        EXPECT_EQ(read[1], 0x0304);
        reader.ReadArray(read, 5, 2);
        EXPECT_EQ(read[0], 0) << "cleared";
        EXPECT_EQ(input.GetBytesRead(), 4u);
        EXPECT_EQ(reader.GetError(), kzErrCorrupt);
    }
    EXPECT_TRUE(reports.Take(kDbgWarning, "MemInputBuf finished with 74 error"));
    MemInputBuf input(bytes, 12);
    BinDataReader reader(&input, BigEndianizer());
    reader.ReadArray(nullptr, ~0ul / 8 + 1, 16);
    EXPECT_EQ(reader.GetError(), kzErrCorrupt) << "more bytes than can be counted";
}

// Bytes in the order of pairs: neither the shared objects nor just their kinds.
class PairOrder final : public Endianizer {
public:
    int32 ReadAWord(const void* source) const override { return LittleEndianizer()->ReadAWord(source); }
    int32 ReadALong(const void* source) const override { return static_cast<int32>(Swapped<uInt32>(source)); }
    void Read2ByteVal(const void* source, void* dest) const override { std::memcpy(dest, source, 2); }
    void Read4ByteVal(const void* source, void* dest) const override { Store(dest, Swapped<uInt32>(source)); }
    void Read8ByteVal(const void* source, void* dest) const override { Store(dest, Swapped<uInt64>(source)); }
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
        T value;
        std::memcpy(&value, source, sizeof value);
        return static_cast<T>(value << (sizeof value * 4) | value >> (sizeof value * 4));
    }
    template <typename T>
    static void Store(void* dest, T value)
    {
        std::memcpy(dest, &value, sizeof value);
    }
};

class CountingBuf : public MemInputBuf {
public:
    using MemInputBuf::MemInputBuf;
    const void* GetDataPointer(unsigned long size, KzErr& err, unsigned long* gotSize, int32 peek) override
    {
        ++calls;
        return MemInputBuf::GetDataPointer(size, err, gotSize, peek);
    }
    int calls = 0;
};

// A PStr is a count and a rest: two calls, or one where there is no rest. What fails comes as far as it goes.
TEST_F(BinDataTest, CallsOfPStrs)
{
    const struct {
        std::string bytes;
        uInt32 boundary;
        int calls;
        std::string text;
        KzErr error;
        unsigned long position;
    } rows[] = {
        {std::string("\3abc", 4), 4, 2, "abc", kzErrNone, 4},
        {std::string("\4abcd\0\0\0", 8), 4, 2, "abcd", kzErrNone, 8},
        {std::string("\0", 1), 1, 1, "", kzErrNone, 1},
        {std::string("\0\0", 2), 2, 2, "", kzErrNone, 2},
        {std::string("\2ab", 3), 4, 3, "ab", kzErrCorrupt, 3},
        {std::string("\3ab", 3), 1, 2, std::string(3, '\0'), kzErrCorrupt, 1},
    };
    for (const auto& row : rows) {
        for (const bool isAtHand : {false, true}) {
            SCOPED_TRACE(row.bytes);
            CountingBuf counting(row.bytes.data(), row.bytes.size());
            MemInputBuf plain(row.bytes.data(), row.bytes.size());
            BinDataReader reader(isAtHand ? &plain : &counting, BigEndianizer());
            unsigned char text[256];
            reader.ReadPStr(text, row.boundary);
            EXPECT_EQ(std::string(reinterpret_cast<char*>(text + 1), text[0]), row.text);
            EXPECT_EQ((isAtHand ? plain : counting).GetBytesRead(), row.position);
            EXPECT_EQ(counting.calls, isAtHand ? 0 : row.calls);
            EXPECT_EQ(reader.GetError(), row.error);
        }
        reports.TakeAll();
    }
}

// A reader that has nothing to skip does not see an error of the buffer's own.
TEST_F(BinDataTest, AlignmentWithNothingToDo)
{
    CountingBuf buffer("abcdef", 6);
    BinDataReader reader(&buffer, BigEndianizer());
    reader.Skip(4);
    reader.Align(4);
    EXPECT_EQ(buffer.calls, 1);
    reader.Align(3);
    EXPECT_EQ(buffer.GetBytesRead(), 6u);
    EXPECT_EQ(buffer.calls, 2);
}

// Buffers and orders that a host has made are asked for each scalar.
TEST_F(BinDataTest, KindsOfTheHost)
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
    EXPECT_EQ(HexOf(bytes, sizeof bytes),
              "2211221144334433221188776655803F0000"
              "0000F03F00000000");
    CountingBuf input(bytes, sizeof bytes);
    BinDataReader reader(&input, &order);
    EXPECT_EQ(reader.ReadU16(), 0x1122);
    EXPECT_EQ(reader.ReadI32(), 0x11223344);
    EXPECT_EQ(reader.ReadU64(), 0x1122334455667788u);
    EXPECT_EQ(reader.ReadF32(), 1.0f);
    EXPECT_EQ(reader.ReadF64(), 1.0);
    EXPECT_EQ(input.calls, 5);
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
