#include "NumberText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "JsonLines.h"
#include "ReportCatcher.h"

namespace {

using kztest::Json;

int TypeOf(const std::string& name)
{
    constexpr const char* kNames[] = {"", "iB", "iW", "iL", "iQ", "uB", "uW", "uL", "uQ"};
    return static_cast<int>(std::find(std::begin(kNames), std::end(kNames), name) - std::begin(kNames));
}

struct StringReader : NumberTextReader {
    unsigned char Peek() override { return static_cast<unsigned char>(text.at(place)); }
    void Advance() override { ++place; }
    void Seek(int32 by) override { place += static_cast<std::size_t>(by); }

    std::string text;
    std::size_t place = 0;
};

struct Parsed {
    uInt64 value;
    std::size_t consumed;
    bool operator==(const Parsed&) const = default;
};

// Through the call on memory; the one on a reader must agree.
Parsed Parse(bool wide, const std::string& text, int type, int base, bool noSign = false)
{
    const std::vector<unsigned char> bytes(text.begin(), text.end());  // no byte behind the last
    const unsigned char* cursor = bytes.data();
    const auto length = static_cast<int32>(text.size());
    const uInt64 value =
        wide ? StringToNum64(&cursor, length, type, base, noSign) : StringToNum32(&cursor, length, type, base, noSign);
    const Parsed parsed{value, static_cast<std::size_t>(cursor - bytes.data())};
    StringReader reader;
    reader.text = text;
    const uInt64 read =
        wide ? StringToNumQ(&reader, length, type, base, noSign) : StringToNumL(&reader, length, type, base, noSign);
    EXPECT_EQ(parsed, (Parsed{read, reader.place})) << text;
    return parsed;
}

template <typename T>
constexpr int kTypeOf = sizeof(T) == 4        ? (std::is_signed_v<T> ? kNumI32 : kNumU32)
                        : std::is_signed_v<T> ? kNumI64
                                              : kNumU64;

// Writes a number by value, and out of memory without alignment among bytes that are not its own: into so many bytes,
// to this text. A number that does not fit the first form tells by `ok`, the second by these reports.
template <typename T>
void ExpectWritten(T value, int32 size, int32 base, const std::string& text, const kztest::ReportRows& rows = {})
{
    const int32 length = static_cast<int32>(text.size());
    for (const bool byValue : {true, false}) {
        std::vector<char> buffer(static_cast<std::size_t>(size), '#');  // no byte behind the last
        kztest::ReportCatcher reports;
        if (byValue) {
            bool ok = !rows.empty();
            ASSERT_EQ(length, NumToStr(value, buffer.data(), size, base, &ok));
            ASSERT_EQ(rows.empty(), ok);
        } else {
            unsigned char stored[1 + 2 * sizeof value];
            std::memset(stored, 0xA5, sizeof stored);
            std::memcpy(stored + 1, &value, sizeof value);
            ASSERT_EQ(length, NumToIntString(stored + 1, buffer.data(), size, base, std::is_signed_v<T>, kTypeOf<T>));
            ASSERT_EQ(reports.TakeRows(), rows);
        }
        ASSERT_EQ(text, buffer.data());
        ASSERT_TRUE(length + 1 == size || buffer.back() == '#');
    }
}

template <typename T>
void CheckWriting(const Json& row)
{
    const T value = std::is_signed_v<T> ? static_cast<T>(row["value"].Int()) : static_cast<T>(row["value"].UInt());
    kztest::ReportRows rows;
    for (std::size_t i = 0; row["ok"].Int() == 0 && i < row["reports"].size(); ++i) {
        rows.emplace_back(kDbgWarning, row["reports"][i].Str());
    }
    ExpectWritten(value, static_cast<int32>(row["size"].Int()), static_cast<int32>(row["base"].Int()),
                  row["text"].Str(), rows);
}

void CheckReading(const Json& row)
{
    const Parsed parsed = Parse(row["op"].Str() == "StringToNum64", row["text"].Str(), TypeOf(row["type"].Str()),
                                static_cast<int>(row["base"].Int()), row["noSign"].Int() != 0);
    const std::string bits = row["bits"].Str();
    const uInt64 mask = bits.size() == 16 ? ~uInt64{0} : (uInt64{1} << (4 * bits.size())) - 1;
    EXPECT_EQ(std::stoull(bits, nullptr, 16), parsed.value & mask);
    EXPECT_EQ(static_cast<std::size_t>(row["consumed"].Int()), parsed.consumed);
}

TEST(NumberText, Vectors)
{
    const auto checkWriting = [](const Json& row) {
        const int type = TypeOf(row["type"].Str());
        (type == kNumI32   ? CheckWriting<int>
         : type == kNumU32 ? CheckWriting<unsigned>
         : type == kNumI64 ? CheckWriting<long long>
                           : CheckWriting<unsigned long long>)(row);
    };
    kztest::CheckRows("vectors/number_text.jsonl",
                      {{"NumToStr", checkWriting}, {"StringToNum32", &CheckReading}, {"StringToNum64", &CheckReading}});
}

TEST(NumberText, NothingToReadOrToWriteTo)
{
    const unsigned char* cursor = nullptr;
    EXPECT_EQ(0u, StringToNum32(&cursor, 0, kNumI32, 10, 0));
    EXPECT_EQ(0u, StringToNum32(&cursor, -1, kNumI32, 10, 0));
    bool ok = true;
    EXPECT_EQ(0, NumToStr(5, nullptr, 0, 10, &ok));
    EXPECT_FALSE(ok);
    // Types of fewer than 32 bits stand in 32 bits too.
    const unsigned char minusOne[] = {0xFF, 0xFF, 0xFF, 0xFF, 0};
    char buffer[16];
    EXPECT_EQ(10, NumToIntString(minusOne, buffer, sizeof buffer, 10, 0, kNumU8));
    EXPECT_STREQ("4294967295", buffer);
}

TEST(NumberText, TypesHaveSizesAndClasses)
{
    constexpr int kTypes[][2] = {{0, 64}, {1, 0}, {2, 0}, {4, 0},  {8, 0}, {1, 1},  {2, 1},  {4, 1},
                                 {8, 1},  {4, 2}, {8, 2}, {10, 2}, {8, 3}, {16, 3}, {20, 3}, {0, 64}};
    for (int type = -1; type <= 15; ++type) {
        const auto& [size, numClass] = kTypes[std::max(type, 0)];
        EXPECT_EQ(NumSize(type), size) << type;
        EXPECT_EQ(NumClass(type), numClass) << type;
    }
}

template <typename T>
void ExpectStandardText(T value)
{
    for (const int base : {2, 8, 10, 16}) {
        char text[80];
        char* end = base == 10 ? std::to_chars(text, text + sizeof text, value).ptr
                               : std::to_chars(text, text + sizeof text, std::make_unsigned_t<T>(value), base).ptr;
        std::transform(text, end, text, [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
        const std::string expected(text, end);
        const int32 most = MaxBuffSizeForBase<T>(base) + 2;
        ASSERT_NO_FATAL_FAILURE(ExpectWritten(value, most, base, expected));
        const auto read = static_cast<T>(Parse(sizeof(T) == 8, expected, kTypeOf<T>, base).value);
        ASSERT_EQ(value, read) << expected << " in base " << base;
    }
}

TEST(NumberText, WritesAsTheStandardDoesAndReadsItAgain)
{
    std::vector<uInt64> values = {uInt64{1} << 31, uInt64{1} << 63};
    for (uInt64 power = 1, i = 0; i < 20; ++i, power *= 10) {
        values.insert(values.end(), {power - 1, power, power + 1});
    }
    std::mt19937_64 engine(3);
    for (int round = 0; round < 3000; ++round) {
        values.push_back(engine() >> engine() % 64);
    }
    for (const uInt64 value : values) {
        for (const uInt64 each : {value, 0 - value}) {
            ExpectStandardText(static_cast<int>(each));
            ExpectStandardText(static_cast<unsigned int>(each));
            ExpectStandardText(static_cast<long long>(each));
            ExpectStandardText(static_cast<unsigned long long>(each));
        }
    }
}

}  // namespace
