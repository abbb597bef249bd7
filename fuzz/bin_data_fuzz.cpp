// Typed reading of any bytes in each byte order, by a program of operations that the input tells, beside a model of
// what each has to give. What could be read is written through every kind of buffer, measured, and read again equal.
//
// Input: a byte of the order, a byte of the number of operations, two bytes for each, then the block that is read.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "BinDataValues.h"
#include "FuzzLibrary.h"
#include "MemoryChecks.h"
#include "MemoryManager.h"

namespace {

using namespace kzfuzz;

struct Order {
    const Endianizer* endianizer;
    bool isBig;
    bool isNative;
};

// An extended float from its stored form, big-endian.
std::string ExtendedOf(const unsigned char* stored)
{
    std::string x(10, '\0');
    std::uint64_t mantissa = 0;
    for (int i = 2; i < 10; ++i) {
        mantissa = mantissa << 8 | stored[i];
    }
    if ((stored[0] & 0x7F) != 0 || stored[1] != 0) {
        mantissa = mantissa >> 1 | std::uint64_t{1} << 63;
    }
    std::memcpy(x.data(), &mantissa, 8);
    x[8] = static_cast<char>(stored[1]);
    x[9] = static_cast<char>(stored[0]);
    return x;
}

std::size_t SizeOf(Kind kind, const Order& order)
{
    constexpr unsigned char kSizes[] = {1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 4, 8};
    return kind == kFX ? (order.isNative ? 10 : 16) : kSizes[kind];
}

// The number at `wire` as the host has it.
std::string Decoded(Kind kind, const Order& order, const unsigned char* wire)
{
    std::string bytes(reinterpret_cast<const char*>(wire), SizeOf(kind, order));
    if (kind == kFX && !order.isNative) {
        if (!order.isBig) {
            std::reverse(bytes.begin(), bytes.end());
        }
        return ExtendedOf(reinterpret_cast<const unsigned char*>(bytes.data()));
    }
    if (order.isBig && kind != k4Char) {
        std::reverse(bytes.begin(), bytes.end());
    }
    return bytes;
}

// What a buffer with a reader has to do.
class Model {
public:
    Model(const unsigned char* data, std::size_t size) : m_data(data), m_size(size) {}

    // A strict access of the reader.
    const unsigned char* Take(std::size_t size)
    {
        if (m_readerError != kzErrNone) {
            return nullptr;
        }
        const unsigned char* const start = TakeFromBuffer(size);
        m_readerError = m_bufferError;
        return start;
    }

    const unsigned char* TakeFromBuffer(std::size_t size)
    {
        if (m_bufferError == kzErrNone && size > left()) {
            m_bufferError = kzErrCorrupt;
        }
        if (m_bufferError != kzErrNone || size == 0) {
            return nullptr;
        }
        m_position += size;
        return m_data + m_position - size;
    }

    void Latch(KzErr err) { m_readerError = m_readerError == kzErrNone ? err : m_readerError; }
    void Move(std::size_t size) { m_position += size; }

    bool hasFailed() const { return m_readerError != kzErrNone; }
    KzErr readerError() const { return m_readerError; }
    KzErr bufferError() const { return m_bufferError; }
    std::size_t position() const { return m_position; }
    std::size_t left() const { return m_size - m_position; }
    const unsigned char* at() const { return m_data + m_position; }

private:
    const unsigned char* m_data;
    std::size_t m_size;
    std::size_t m_position = 0;
    KzErr m_bufferError = kzErrNone;
    KzErr m_readerError = kzErrNone;
};

std::size_t PaddingOf(std::size_t size, uInt32 boundary)
{
    return boundary == 0 || size % boundary == 0 ? 0 : boundary - size % boundary;
}

constexpr uInt32 kBoundaries[] = {0, 1, 2, 3, 4, 8, 16, 255, 0x80000000, 0xFFFFFFFF};
constexpr uInt32 kGreatestWritten = 255;  // a greater padding is not worth its memory
constexpr int32 kTrustedCount = 0x200000;

// Runs a program over a block, and keeps what it read.
class Run {
public:
    Run(InputBuf* buffer, const Order& order, std::string_view block)
        : m_buffer(*buffer),
          m_order(order),
          m_block(block),
          m_model(reinterpret_cast<const unsigned char*>(block.data()), block.size()),
          m_reader(buffer, order.endianizer)
    {}

    void Do(std::string_view program)
    {
        for (; program.size() >= 2; program.remove_prefix(2)) {
            const auto kind = static_cast<Kind>(static_cast<unsigned char>(program[0]) % kKinds);
            const auto argument = static_cast<unsigned char>(program[1]);
            if (kind <= kFX) {
                Number(kind);
            } else if (kind == kArray) {
                Array(argument);
            } else if (kind <= kAlign) {
                Piece(kind, argument);
            } else if (kind <= kLStrAsNarrow) {
                String(kind, kBoundaries[argument % std::size(kBoundaries)]);
            } else {
                Access(kind, argument);
            }
            Require(m_buffer.GetBytesRead() == m_model.position(), "the position is another");
            Require(m_model.position() <= m_block.size(), "the position passed the end");
            Require(m_buffer.GetSize() == (m_model.bufferError() == kzErrNone ? m_block.size() : 0),
                    "the size is another");
        }
        Access(kGetError, 0);
    }

    const std::vector<Value>& values() const { return m_values; }

private:
    void Keep(Kind kind, uInt32 boundary, std::string bytes) { m_values.push_back({kind, boundary, std::move(bytes)}); }

    void Number(Kind kind)
    {
        const std::string got = ReadNumber(m_reader, kind);
        const unsigned char* const wire = m_model.Take(SizeOf(kind, m_order));
        if (wire == nullptr) {
            Require(got == std::string(got.size(), '\0'), "a number that is not there is 0");
            return;
        }
        Require(got == Decoded(kind, m_order, wire), "a number is another");
        Keep(kind, 0, got);
    }

    void Array(unsigned char argument)
    {
        constexpr uInt32 kWidths[] = {1, 2, 4, 8, 16};
        const uInt32 width = kWidths[argument % std::size(kWidths)];
        const std::size_t count = argument / std::size(kWidths);
        const unsigned char* const wire = m_model.Take(count * width);
        std::string expected = wire == nullptr ? std::string(count * width, '\0') : TextAt(wire, count * width);
        for (auto each = expected.begin(); m_order.isBig && each != expected.end(); each += width) {
            std::reverse(each, each + width);
        }
        std::string got(count * width, 'x');
        m_reader.ReadArray(got.data(), count, width);
        Require(got == expected, "an array is another");
        if (!m_model.hasFailed()) {
            Keep(kArray, width, got);
        }
    }

    // Bytes without a meaning.
    void Piece(Kind kind, unsigned char argument)
    {
        const uInt32 boundary = kBoundaries[argument % std::size(kBoundaries)];
        if (kind == kAlign) {
            // With nothing to skip the reader does not ask the buffer, whose own error it thus doesn't see.
            m_reader.Align(boundary);
            if (const std::size_t padding = PaddingOf(m_model.position(), boundary); padding != 0) {
                m_model.Take(padding);
            }
            if (!m_model.hasFailed() && boundary <= kGreatestWritten) {
                Keep(kind, boundary, {});
            }
            return;
        }
        const unsigned long size = argument == 255 ? ~0ul : argument;
        const unsigned char* const wire = m_model.Take(size);
        if (kind == kSkip || size > 255) {
            kind == kSkip ? m_reader.Skip(size) : m_reader.ReadBytes(nullptr, size);
        } else {
            std::string got(size, 'x');
            m_reader.ReadBytes(got.data(), size);
            Require(got == (wire == nullptr ? std::string(size, '\0') : TextAt(wire, size)), "bytes are others");
        }
        if (!m_model.hasFailed()) {
            Keep(kind, 0, TextAt(wire, size));
        }
    }

    static std::string TextAt(const unsigned char* wire, std::size_t size)
    {
        return wire == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(wire), size);
    }

    void String(Kind kind, uInt32 boundary) { kind <= kPStrAsNarrow ? ShortString(kind, boundary) : LongString(kind); }

    void ShortString(Kind kind, uInt32 boundary)
    {
        const unsigned char* const countAt = m_model.Take(1);
        const std::size_t count = countAt == nullptr ? 0 : *countAt;
        const std::string text = TextAt(m_model.Take(count), count);
        m_model.Take(PaddingOf(count + 1, boundary));
        std::string got = "before";
        if (kind == kPStrAsNarrow) {
            m_reader.ReadPStrAsNarrow(&got, boundary);
            Require(got == (m_model.hasFailed() ? "" : text), "a short text is another");
        } else {
            unsigned char block[256];
            m_reader.ReadPStr(block, boundary);
            Require(block[0] == count, "the count of a short string is another");
            got = TextAt(block + 1, count);
            Require(got == (text.empty() ? std::string(count, '\0') : text), "a short string is another");
        }
        if (!m_model.hasFailed() && boundary <= kGreatestWritten) {
            Keep(kind, boundary, text);
        }
    }

    int32 CountOfLongString()
    {
        const unsigned char* const wire = m_model.Take(4);
        const auto count = wire == nullptr ? 0 : From<int32>(Decoded(kI32, m_order, wire));
        if (count < 0 || (count > kTrustedCount && static_cast<std::size_t>(count) > m_model.left())) {
            m_model.Latch(kzErrBadCount);
        }
        return m_model.hasFailed() ? 0 : count;
    }

    void LongString(Kind kind)
    {
        const auto count = static_cast<std::size_t>(CountOfLongString());
        const std::string text = TextAt(m_model.Take(count), count);
        std::string got = "before";
        if (kind == kLStrAsNarrow) {
            m_reader.ReadLStrAsNarrow(&got);
            Require(got == text, "a long text is another");
        } else {
            LStr** const handle = m_reader.ReadLStr();
            Require((handle == nullptr) == (count == 0), "a long string has a handle unless it is empty");
            if (handle != nullptr) {
                Require(DSGetHandleSize(handle) == count + 4, "the block of a long string has another size");
                Require(static_cast<std::size_t>((*handle)->cnt) == count, "the count of a long string is another");
                Require(TextAt((*handle)->str, count) == (m_model.hasFailed() ? std::string(count, '\0') : text),
                        "a long string is another");
                DSDisposeHandle(handle);
            }
        }
        if (!m_model.hasFailed()) {
            Keep(kind, 0, text);
        }
    }

    // Errors, and the buffer without the reader.
    void Access(Kind kind, unsigned char argument)
    {
        KzErr err = kzErrNone;
        if (kind == kSetError) {
            const KzErr set = argument % 8 == 0 ? KzErr{argument} : KzErr{kzErrNone};
            m_reader.SetError(set);
            m_model.Latch(set);
        } else if (kind == kGetError) {
            m_model.Latch(m_model.bufferError());
            Require(m_reader.GetError() == m_model.readerError(), "the error is another");
        } else if (kind == kNoBytes) {
            Require(m_buffer.GetDataPointer(0, err) == nullptr && err == m_model.bufferError(),
                    "no bytes, but the error");
        } else if (kind == kStrictAccess) {
            const void* const got = m_buffer.GetDataPointer(argument, err);
            Require(got == m_model.TakeFromBuffer(argument), "a strict access gives another place");
            Require(err == m_model.bufferError(), "a strict access gives another error");
        } else {
            ShortAccess(argument);
        }
    }

    void ShortAccess(unsigned char argument)
    {
        const bool isPeek = argument % 2 == 1;
        const std::size_t there = m_model.bufferError() == kzErrNone ? m_model.left() : 0;
        const unsigned long size = argument >= 254 ? ~0ul : argument;  // its sum with a position wraps
        const std::size_t expected = std::min<std::size_t>(size, there);
        for (int i = 0; i < (isPeek ? 2 : 1); ++i) {
            KzErr err = kzErrNone;
            unsigned long got = 99;
            const void* const start = m_buffer.GetDataPointer(size, err, &got, isPeek ? 1 : 0);
            Require(got == expected && err == m_model.bufferError(), "a short access has another size or error");
            Require(start == (expected == 0 ? nullptr : m_model.at()), "a short access gives another place");
        }
        m_model.Move(isPeek ? 0 : expected);
    }

    InputBuf& m_buffer;
    const Order m_order;
    const std::string_view m_block;
    Model m_model;
    BinDataReader m_reader;
    std::vector<Value> m_values;
};

// The sizes that the writes gave; their sum is the position.
std::vector<unsigned long> WriteAll(OutputBuf& buffer, const Order& order, const std::vector<Value>& values)
{
    std::vector<unsigned long> sizes;
    BinDataWriter writer(&buffer, order.endianizer);
    for (const Value& value : values) {
        const unsigned long before = buffer.GetBytesWritten();
        sizes.push_back(WriteValue(writer, value));
        Require(buffer.GetBytesWritten() - before == sizes.back(), "a write takes what it says");
    }
    Require(writer.GetError() == kzErrNone, "there is room for all");
    return sizes;
}

// A buffer that is one byte too short takes what fits, and nothing from then on.
void WriteTooMuch(const std::string& whole, const Order& order, const std::vector<Value>& values)
{
    std::vector<char> room(whole.size() - 1);
    StaticOutputBuf buffer(room.data(), room.size());
    BinDataWriter writer(&buffer, order.endianizer);
    bool hasFailed = false;
    for (const Value& value : values) {
        const unsigned long before = buffer.GetBytesWritten();
        const unsigned long size = WriteValue(writer, value);
        Require(buffer.GetBytesWritten() - before == size, "a write takes what it says");
        hasFailed = hasFailed || writer.GetError() != kzErrNone;
        Require(!hasFailed || size == 0, "nothing is written behind a failure");
    }
    Require(writer.GetError() == kzErrCorrupt, "a full buffer");
    Require(whole.compare(0, buffer.GetBytesWritten(), room.data(), buffer.GetBytesWritten()) == 0,
            "what fits is whole");
}

// The number as it comes back: the stored form of an extended float has no room for a leading bit that is not set.
std::string Stored(const Value& value, const Order& order)
{
    if (value.kind != kFX || order.isNative) {
        return value.bytes;
    }
    unsigned char stored[16];
    floatExt x = From<floatExt>(value.bytes);
    XToStd(&x, stored);
    StdToX(stored, &x);
    return BytesOf(x);
}

void ReadBack(const std::string& written, const Order& order, const std::vector<Value>& values)
{
    MemInputBuf buffer(written.data(), written.size());
    BinDataReader reader(&buffer, order.endianizer);
    for (const Value& value : values) {
        std::string got = value.bytes;
        if (value.kind <= kFX) {
            got = ReadNumber(reader, value.kind);
        } else if (value.kind == kArray) {
            reader.ReadArray(got.data(), got.size() / value.boundary, value.boundary);
        } else if (value.kind == kAlign) {
            reader.Align(value.boundary);
        } else if (value.kind <= kAlign) {
            reader.ReadBytes(got.data(), got.size());
        } else if (value.kind <= kPStrAsNarrow) {
            reader.ReadPStrAsNarrow(&got, value.boundary);
        } else {
            reader.ReadLStrAsNarrow(&got);
        }
        Require(got == Stored(value, order), "what was written is read equal");
    }
    Require(reader.GetError() == kzErrNone, "all that was written is there");
    Require(buffer.GetBytesRead() == written.size(), "no more was written");
}

void WriteAndReadBack(const Order& order, const std::vector<Value>& values, unsigned long initialSize)
{
    PreflightOutputBuf preflight;
    const std::vector<unsigned long> sizes = WriteAll(preflight, order, values);
    const unsigned long size = preflight.GetBytesWritten();

    std::string whole(size, '#');
    StaticOutputBuf fixed(whole.data(), size);
    Require(WriteAll(fixed, order, values) == sizes, "the measure is exact");
    Require(fixed.GetBytesWritten() == size, "the measure is exact");

    HandleOutputBuf growing(initialSize);
    Require(WriteAll(growing, order, values) == sizes, "a handle takes the same");
    const UHandle handle = growing.GetHandle(false);
    Require(handle != nullptr && DSGetHandleSize(handle) == size, "a handle is cut to what was written");
    Require(size == 0 || std::memcmp(*handle, whole.data(), size) == 0, "a handle holds the same");

    LStrOutputBuf string(nullptr, initialSize);
    Require(WriteAll(string, order, values) == sizes, "a string takes the same");
    LStr** text = string.GetHandle(true);
    Require(text != nullptr && static_cast<unsigned long>((*text)->cnt) == size, "a string counts what was written");
    Require(size == 0 || std::memcmp((*text)->str, whole.data(), size) == 0, "a string holds the same");
    DSDisposeHandle(text);

    ReadBack(whole, order, values);
    if (size > 0) {
        WriteTooMuch(whole, order, values);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    kzfuzz::StartLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) {
        return 0;
    }
    const auto handles = kz::LiveHandleCount();
    const std::string_view input(reinterpret_cast<const char*>(data) + 2, size - 2);
    const std::string_view program = input.substr(0, 2u * data[1]);
    // At its own place on the heap, so that the address sanitizer sees what lies outside.
    const std::string block(input.substr(program.size()));
    const Order orders[] = {
        {BigEndianizer(), true, false}, {LittleEndianizer(), false, false}, {NativeEndianizer(), false, true}};
    const Order& order = orders[data[0] % 3];

    MemInputBuf memory(block.data(), block.size());
    Run run(&memory, order, block);
    run.Do(program);

    auto** handle = reinterpret_cast<LStr**>(DSNewHandle(block.size() + 4));
    Require(handle != nullptr, "no memory for the input");
    (*handle)->cnt = static_cast<int32>(block.size());
    std::memcpy((*handle)->str, block.data(), block.size());
    const std::string_view inHandle(reinterpret_cast<const char*>((*handle)->str), block.size());
    {
        LStrInputBuf string(handle);
        Require(handle == nullptr, "the string is the buffer's");
        Run(&string, order, inHandle).Do(program);
    }
    for (const Order& each : orders) {
        WriteAndReadBack(each, run.values(), data[0] / 3 * 16u);
    }
    Require(kz::LiveHandleCount() == handles, "handles leaked");
    return 0;
}
