// The operations of typed reading and writing, by kind: for the harness, and for the tests of stored streams.
#ifndef KZCORE_FUZZ_BINDATAVALUES_H
#define KZCORE_FUZZ_BINDATAVALUES_H

#include <cstring>
#include <string>
#include <vector>

#include "BinDataReader.h"
#include "BinDataWriter.h"

namespace kzfuzz {

enum Kind {
    kI8,
    kU8,
    kBool,
    kI16,
    kU16,
    kI32,
    kU32,
    kI64,
    kU64,
    k4Char,
    kF32,
    kF64,
    kFX,  // the last scalar
    kArray,
    kBytes,
    kSkip,
    kAlign,
    kPStr,
    kPStrAsNarrow,
    kLStr,
    kLStrAsNarrow,
    kNoBytes,
    kSetError,
    kGetError,
    kShortAccess,
    kStrictAccess,
    kKinds
};

// What an operation has read: a number as the host has it, or text.
struct Value {
    Kind kind;
    uInt32 boundary;  // the width of an array's numbers
    std::string bytes;
};

template <typename T>
std::string BytesOf(const T& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

inline std::string ReadNumber(BinDataReader& reader, Kind kind)
{
    switch (kind) {
        case kI8:
            return BytesOf(reader.ReadI8());
        case kU8:
            return BytesOf(reader.ReadU8());
        case kBool:
            return BytesOf(reader.ReadBool());
        case kI16:
            return BytesOf(reader.ReadI16());
        case kU16:
            return BytesOf(reader.ReadU16());
        case kI32:
            return BytesOf(reader.ReadI32());
        case kU32:
            return BytesOf(reader.ReadU32());
        case kI64:
            return BytesOf(reader.ReadI64());
        case kU64:
            return BytesOf(reader.ReadU64());
        case k4Char:
            return BytesOf(reader.Read4Char());
        case kF32:
            return BytesOf(reader.ReadF32());
        case kF64:
            return BytesOf(reader.ReadF64());
        default:
            return BytesOf(reader.ReadFX());
    }
}

template <typename T>
T From(const std::string& bytes)
{
    T value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

inline unsigned long WriteNumber(BinDataWriter& writer, const Value& value)
{
    const std::string& bytes = value.bytes;
    switch (value.kind) {
        case kI8:
            return writer.WriteI8(From<int8>(bytes));
        case kU8:
            return writer.WriteU8(From<uInt8>(bytes));
        case kBool:
            return writer.WriteBool(From<uInt8>(bytes));
        case kI16:
            return writer.WriteI16(From<int16>(bytes));
        case kU16:
            return writer.WriteU16(From<uInt16>(bytes));
        case kI32:
            return writer.WriteI32(From<int32>(bytes));
        case kU32:
            return writer.WriteU32(From<uInt32>(bytes));
        case kI64:
            return writer.WriteI64(From<int64>(bytes));
        case kU64:
            return writer.WriteU64(From<uInt64>(bytes));
        case k4Char:
            return writer.Write4Char(From<uInt32>(bytes));
        case kF32:
            return writer.WriteF32(From<float>(bytes));
        case kF64:
            return writer.WriteF64(From<double>(bytes));
        default:
            return writer.WriteFX(From<floatExt>(bytes));
    }
}

inline unsigned long WriteValue(BinDataWriter& writer, const Value& value)
{
    const std::string& bytes = value.bytes;
    switch (value.kind) {
        case kArray:
            return writer.WriteArray(bytes.data(), bytes.size() / value.boundary, value.boundary);
        case kBytes:
        case kSkip:
            return writer.WriteBytes(bytes.data(), bytes.size());
        case kAlign:
            return writer.Align(value.boundary);
        case kPStrAsNarrow:
            return writer.WritePStrFromNarrow(bytes, value.boundary);
        case kPStr: {
            const std::string string = static_cast<char>(bytes.size()) + bytes;
            return writer.WritePStr(reinterpret_cast<const unsigned char*>(string.data()), value.boundary);
        }
        case kLStrAsNarrow:
            return writer.WriteLStrFromNarrow(bytes);
        case kLStr: {
            std::vector<int32> block(2 + bytes.size() / sizeof(int32));
            auto* const string = reinterpret_cast<LStr*>(block.data());
            string->cnt = static_cast<int32>(bytes.size());
            std::memcpy(block.data() + 1, bytes.data(), bytes.size());
            return writer.WriteLStr(string);
        }
        default:
            return WriteNumber(writer, value);
    }
}

}  // namespace kzfuzz

#endif
