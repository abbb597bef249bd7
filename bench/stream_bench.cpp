// Records of five fields, big-endian: read and written field by field, beside what a user would take instead. Arrays
// of numbers whose bytes are reversed in one call, beside a loop.
#include <gio/gio.h>

#include <bit>
#include <boost/endian/conversion.hpp>
#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Measure;

constexpr int kRecords = 4096;
constexpr std::size_t kRecordSize = 4 + 2 + 8 + 1 + 8;
constexpr std::size_t kStreamSize = kRecords * kRecordSize;
constexpr std::size_t kArraySize = 4 << 20;

struct Record {
    std::uint32_t id;
    std::int16_t level;
    double value;
    std::uint8_t kind;
    std::uint64_t stamp;
};

template <typename T>
T Reversed(T value)
{
    if constexpr (sizeof value == 2) {
        return static_cast<T>(__builtin_bswap16(static_cast<std::uint16_t>(value)));
    } else if constexpr (sizeof value == 4) {
        return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
    } else if constexpr (sizeof value == 8) {
        return static_cast<T>(__builtin_bswap64(static_cast<std::uint64_t>(value)));
    } else {
        return value;
    }
}

// Reads and writes as programs do that know their data to be sound.
struct PlainReader {
    const unsigned char* at;
    template <typename T>
    T Get()
    {
        T value;
        std::memcpy(&value, at, sizeof value);
        at += sizeof value;
        return Reversed(value);
    }
};

struct PlainWriter {
    unsigned char* at;
    template <typename T>
    void Put(T value)
    {
        value = Reversed(value);
        std::memcpy(at, &value, sizeof value);
        at += sizeof value;
    }
};

// The same with a test of each field, inlined.
struct CheckedReader {
    const unsigned char* at;
    const unsigned char* end;
    bool hasFailed = false;
    template <typename T>
    T Get()
    {
        if (hasFailed || static_cast<std::size_t>(end - at) < sizeof(T)) {
            hasFailed = true;
            return 0;
        }
        T value;
        std::memcpy(&value, at, sizeof value);
        at += sizeof value;
        return Reversed(value);
    }
};

struct CheckedWriter {
    unsigned char* at;
    unsigned char* end;
    bool hasFailed = false;
    template <typename T>
    void Put(T value)
    {
        if (hasFailed || static_cast<std::size_t>(end - at) < sizeof(T)) {
            hasFailed = true;
            return;
        }
        value = Reversed(value);
        std::memcpy(at, &value, sizeof value);
        at += sizeof value;
    }
};

struct StringReader {
    std::istringstream in;
    template <typename T>
    T Get()
    {
        T value{};
        in.read(reinterpret_cast<char*>(&value), sizeof value);
        return Reversed(value);
    }
};

struct StringWriter {
    std::ostringstream out;
    template <typename T>
    void Put(T value)
    {
        value = Reversed(value);
        out.write(reinterpret_cast<const char*>(&value), sizeof value);
    }
};

template <typename Reader>
Record ReadRecord(Reader& in)
{
    Record record;
    record.id = in.template Get<std::uint32_t>();
    record.level = in.template Get<std::int16_t>();
    record.value = std::bit_cast<double>(in.template Get<std::uint64_t>());
    record.kind = in.template Get<std::uint8_t>();
    record.stamp = in.template Get<std::uint64_t>();
    return record;
}

Record ReadRecord(BinDataReader& in)
{
    Record record;
    record.id = in.ReadU32();
    record.level = in.ReadI16();
    record.value = in.ReadF64();
    record.kind = in.ReadU8();
    record.stamp = in.ReadU64();
    return record;
}

Record ReadRecord(GDataInputStream* in)
{
    Record record;
    record.id = g_data_input_stream_read_uint32(in, nullptr, nullptr);
    record.level = g_data_input_stream_read_int16(in, nullptr, nullptr);
    record.value = std::bit_cast<double>(g_data_input_stream_read_uint64(in, nullptr, nullptr));
    record.kind = g_data_input_stream_read_byte(in, nullptr, nullptr);
    record.stamp = g_data_input_stream_read_uint64(in, nullptr, nullptr);
    return record;
}

template <typename Writer>
void WriteRecord(Writer& out, const Record& record)
{
    out.Put(record.id);
    out.Put(record.level);
    out.Put(std::bit_cast<std::uint64_t>(record.value));
    out.Put(record.kind);
    out.Put(record.stamp);
}

void WriteRecord(BinDataWriter& out, const Record& record)
{
    out.WriteU32(record.id);
    out.WriteI16(record.level);
    out.WriteF64(record.value);
    out.WriteU8(record.kind);
    out.WriteU64(record.stamp);
}

void WriteRecord(GDataOutputStream* out, const Record& record)
{
    g_data_output_stream_put_uint32(out, record.id, nullptr, nullptr);
    g_data_output_stream_put_int16(out, record.level, nullptr, nullptr);
    g_data_output_stream_put_uint64(out, std::bit_cast<std::uint64_t>(record.value), nullptr, nullptr);
    g_data_output_stream_put_byte(out, record.kind, nullptr, nullptr);
    g_data_output_stream_put_uint64(out, record.stamp, nullptr, nullptr);
}

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <typename T>
using Owner = std::unique_ptr<T, Unref>;

template <typename Reader>
void ReadAll(Reader&& in)
{
    for (int i = 0; i < kRecords; ++i) {
        Record record = ReadRecord(in);
        benchmark::DoNotOptimize(record);
    }
}

template <typename Writer>
void WriteAll(Writer&& out, const std::vector<Record>& records)
{
    for (const Record& record : records) {
        WriteRecord(out, record);
    }
}

void MeasureReading(const std::string& stream)
{
    static const std::string sStream = stream;
    static const auto* const sBytes = reinterpret_cast<const unsigned char*>(sStream.data());
    Measure("kz read", [] {
        MemInputBuf buffer(sBytes, kStreamSize);
        BinDataReader reader(&buffer, BigEndianizer());
        ReadAll(reader);
        if (reader.GetError() != kzErrNone) {
            std::exit(1);
        }
    });
    Measure("memcpy+bswap read", [] { ReadAll(PlainReader{sBytes}); });
    Measure("inline checked read", [] {
        CheckedReader reader{sBytes, sBytes + kStreamSize};
        ReadAll(reader);
        if (reader.hasFailed) {
            std::exit(1);
        }
    });
    Measure("istringstream read", [] { ReadAll(StringReader{std::istringstream(sStream)}); });
    Measure("GDataInputStream read", [] {
        const Owner<GInputStream> memory(g_memory_input_stream_new_from_data(sBytes, kStreamSize, nullptr));
        const Owner<GDataInputStream> in(g_data_input_stream_new(memory.get()));
        g_data_input_stream_set_byte_order(in.get(), G_DATA_STREAM_BYTE_ORDER_BIG_ENDIAN);
        ReadAll(in.get());
    });
}

void MeasureWriting(const std::vector<Record>& records, const std::string& stream)
{
    static const std::vector<Record> sRecords = records;
    static const std::string sStream = stream;
    static std::vector<unsigned char> sOut(kStreamSize);
    const auto check = [](const void* bytes) {
        if (std::memcmp(bytes, sStream.data(), kStreamSize) != 0) {
            std::exit(1);
        }
    };
    Measure("kz write", [check] {
        HandleOutputBuf buffer(kStreamSize);
        BinDataWriter writer(&buffer, BigEndianizer());
        WriteAll(writer, sRecords);
        check(*buffer.GetHandle(false));
    });
    Measure("kz write fixed", [check] {
        StaticOutputBuf buffer(sOut.data(), kStreamSize);
        BinDataWriter writer(&buffer, BigEndianizer());
        WriteAll(writer, sRecords);
        check(sOut.data());
    });
    Measure("kz measure", [] {
        PreflightOutputBuf buffer;
        BinDataWriter writer(&buffer, BigEndianizer());
        WriteAll(writer, sRecords);
        if (buffer.GetBytesWritten() != kStreamSize) {
            std::exit(1);
        }
    });
    Measure("memcpy+bswap write", [check] {
        WriteAll(PlainWriter{sOut.data()}, sRecords);
        check(sOut.data());
    });
    Measure("inline checked write", [check] {
        WriteAll(CheckedWriter{sOut.data(), sOut.data() + kStreamSize}, sRecords);
        check(sOut.data());
    });
    Measure("ostringstream write", [check] {
        StringWriter writer;
        WriteAll(writer, sRecords);
        check(writer.out.view().data());
    });
    Measure("GDataOutputStream write", [check] {
        const Owner<GOutputStream> memory(g_memory_output_stream_new_resizable());
        const Owner<GDataOutputStream> out(g_data_output_stream_new(memory.get()));
        g_data_output_stream_set_byte_order(out.get(), G_DATA_STREAM_BYTE_ORDER_BIG_ENDIAN);
        WriteAll(out.get(), sRecords);
        check(g_memory_output_stream_get_data(G_MEMORY_OUTPUT_STREAM(memory.get())));
    });
}

void MeasureArrays()
{
    static std::vector<std::uint32_t> sFrom(kArraySize / sizeof(std::uint32_t), 0x01020304);
    static std::vector<std::uint32_t> sTo(sFrom.size());
    Measure("kz swap in place", [] {
        BigEndianizer()->ReadArray(sFrom.data(), sFrom.data(), sFrom.size(), sizeof sFrom[0]);
        benchmark::ClobberMemory();
    });
    Measure("loop swap in place", [] {
        for (std::uint32_t& number : sFrom) {
            number = __builtin_bswap32(number);
        }
        benchmark::ClobberMemory();
    });
    Measure("boost swap in place", [] {
        for (std::uint32_t& number : sFrom) {
            boost::endian::endian_reverse_inplace(number);
        }
        benchmark::ClobberMemory();
    });
    // A few, from cache, and all, which the memory's speed bounds.
    for (const std::size_t count : {std::size_t{kRecords}, sFrom.size()}) {
        const std::string array = count == kRecords ? " array" : " 4 MB";
        Measure(("kz read" + array).c_str(), [count] {
            MemInputBuf buffer(sFrom.data(), count * sizeof sFrom[0]);
            BinDataReader reader(&buffer, BigEndianizer());
            reader.ReadArray(sTo.data(), count, sizeof sTo[0]);
            benchmark::ClobberMemory();
        });
        Measure(("kz write" + array).c_str(), [count] {
            StaticOutputBuf buffer(sTo.data(), count * sizeof sTo[0]);
            BinDataWriter writer(&buffer, BigEndianizer());
            writer.WriteArray(sFrom.data(), count, sizeof sFrom[0]);
            benchmark::ClobberMemory();
        });
    }
    Measure("loop copy array", [] {
        PlainReader reader{reinterpret_cast<const unsigned char*>(sFrom.data())};
        for (int i = 0; i < kRecords; ++i) {
            sTo[static_cast<std::size_t>(i)] = reader.Get<std::uint32_t>();
        }
        benchmark::ClobberMemory();
    });
    Measure("memcpy 4 MB", [] {
        std::memcpy(sTo.data(), sFrom.data(), kArraySize);
        benchmark::ClobberMemory();
    });
}

}  // namespace

int main(int argc, char** argv)
{
    const kzbench::RunningProgram program;
    std::vector<Record> records;
    for (int i = 0; i < kRecords; ++i) {
        const auto n = static_cast<std::uint64_t>(i) * 0x9E3779B97F4A7C15;
        records.push_back({static_cast<std::uint32_t>(n), static_cast<std::int16_t>(n >> 7), static_cast<double>(i) / 3,
                           static_cast<std::uint8_t>(n >> 11), n});
    }
    std::string stream(kStreamSize, '\0');
    WriteAll(PlainWriter{reinterpret_cast<unsigned char*>(stream.data())}, records);
    MeasureReading(stream);
    MeasureWriting(records, stream);
    MeasureArrays();
    const std::vector<kzbench::Row> rows = {
        AtMost("stream, 4,096 records read", "kz read", 6, "inline checked read"),
        Faster("stream, 4,096 records read", "kz read", 3, "istringstream read"),
        Faster("stream, 4,096 records read", "kz read", 35, "GDataInputStream read"),
        AtMost("stream, 4,096 records written", "kz write", 10, "inline checked write"),
        Faster("stream, 4,096 records written", "kz write", 3, "ostringstream write"),
        Faster("stream, 4,096 records written", "kz write", 20, "GDataOutputStream write"),
        Faster("stream, 4,096 records in fixed memory", "kz write fixed", 3, "ostringstream write"),
        AtMost("stream, 4,096 records measured", "kz measure", 1, "kz write"),
        Faster("array, 4 MB swapped", "kz swap in place", 3, "loop swap in place"),
        Faster("array, 4 MB swapped", "kz swap in place", 3, "boost swap in place"),
        Faster("array, 4,096 numbers read", "kz read array", 3, "loop copy array"),
        Faster("array, 4,096 numbers written", "kz write array", 3, "loop copy array"),
        AtMost("array, 4 MB read", "kz read 4 MB", 1.2, "memcpy 4 MB"),
        AtMost("array, 4 MB written", "kz write 4 MB", 1.2, "memcpy 4 MB"),
    };
    return kzbench::RunWithGoals(argc, argv, rows);
}
