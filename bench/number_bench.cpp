// Integers as text and back, beside the standard library's fastest and its oldest ways.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Row;

constexpr std::size_t kCount = 1024;

// Numbers of each length in bits alike, of both signs.
std::vector<long long> gNumbers;

std::vector<long long> MakeNumbers()
{
    std::mt19937_64 engine(4);
    std::vector<long long> numbers(kCount);
    for (long long& number : numbers) {
        number = static_cast<long long>(engine() >> (engine() % 63 + 1));
        number = engine() % 2 == 0 ? number : -number;
    }
    return numbers;
}

template <typename Write>
void MeasureWrite(const std::string& name, Write write)
{
    benchmark::RegisterBenchmark(name.c_str(), [write](benchmark::State& state) {
        char buffer[80];
        std::size_t next = 0;
        for (auto _ : state) {
            write(gNumbers[next++ % kCount], buffer);
            benchmark::DoNotOptimize(buffer[0]);
            benchmark::ClobberMemory();
        }
    });
}

template <typename Read>
void MeasureRead(const std::string& name, int base, Read read)
{
    benchmark::RegisterBenchmark(name.c_str(), [read, base](benchmark::State& state) {
        std::vector<std::string> texts;
        for (const long long number : gNumbers) {
            char text[80];
            texts.emplace_back(
                text, std::to_chars(text, text + sizeof text, base == 10 ? number : std::llabs(number), base).ptr);
        }
        std::size_t next = 0;
        for (auto _ : state) {
            const std::string& text = texts[next++ % kCount];
            benchmark::DoNotOptimize(read(text));
        }
    });
}

void MeasureBase(int base)
{
    const std::string suffix = "/" + std::to_string(base);
    MeasureWrite("NumToStr" + suffix,
                 [base](long long number, char* out) { NumToStr(number, out, 80, base, nullptr); });
    MeasureWrite("to_chars" + suffix, [base](long long number, char* out) {
        *(base == 10 ? std::to_chars(out, out + 80, number)
                     : std::to_chars(out, out + 80, static_cast<unsigned long long>(number), base))
             .ptr = 0;
    });
    MeasureRead("StringToNum64" + suffix, base, [base](const std::string& text) {
        const auto* cursor = reinterpret_cast<const unsigned char*>(text.data());
        return StringToNum64(&cursor, static_cast<int32>(text.size()), kNumI64, base, 0);
    });
    MeasureRead("from_chars" + suffix, base, [base](const std::string& text) {
        long long number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number, base);
        return number;
    });
    MeasureRead("strtoll" + suffix, base,
                [base](const std::string& text) { return std::strtoll(text.c_str(), nullptr, base); });
}

}  // namespace

int main(int argc, char** argv)
{
    const kzbench::RunningProgram program;
    gNumbers = MakeNumbers();
    for (const int base : {10, 16, 8, 2}) {
        MeasureBase(base);
    }
    MeasureWrite("snprintf/10", [](long long number, char* out) { std::snprintf(out, 80, "%lld", number); });
    const std::vector<Row> rows = {
        AtMost("int64 to text, base 10", "NumToStr/10", 1.2, "to_chars/10"),
        AtMost("int64 to text, base 16", "NumToStr/16", 1.2, "to_chars/16"),
        AtMost("int64 to text, base 8", "NumToStr/8", 1.2, "to_chars/8"),
        Faster("int64 to text, base 2", "NumToStr/2", 2, "to_chars/2"),
        AtMost("text to int64, base 10", "StringToNum64/10", 1.2, "from_chars/10"),
        AtMost("text to int64, base 16", "StringToNum64/16", 1.2, "from_chars/16"),
        AtMost("text to int64, base 2", "StringToNum64/2", 1.2, "from_chars/2"),
        Faster("text to int64, base 10", "StringToNum64/10", 1.5, "strtoll/10"),
        Faster("text to int64, base 16", "StringToNum64/16", 1.5, "strtoll/16"),
        Faster("text to int64, base 2", "StringToNum64/2", 1.5, "strtoll/2"),
    };
    return kzbench::RunWithGoals(argc, argv, rows);
}
