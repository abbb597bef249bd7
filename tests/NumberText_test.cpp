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

// A reader of a string that counts how far it stands.
class StringReader : public NumberTextReader {
public:
    explicit StringReader(const std::string& text) : mText(text) {}
    unsigned char Peek() override { return static_cast<unsigned char>(mText.at(place)); }
    void Advance() override { ++place; }
    void Seek(int32 by) override { place += static_cast<std::size_t>(by); }

    std::size_t place = 0;

private:
    const std::string mText;
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
    StringReader reader(text);
    const uInt64 read =
        wide ? StringToNumQ(&reader, length, type, base, noSign) : StringToNumL(&reader, length, type, base, noSign);
    EXPECT_EQ(parsed, (Parsed{read, reader.place})) << text;
    return parsed;
}

// A row's number by value, and out of memory without alignment among bytes that are not its own, which must agree. The
// second form reports what the first one's `ok` tells.
template <typename T>
void ExpectRow(const Json& row, T value, int type)
{
    const auto size = static_cast<int32>(row["size"].Int());
    const auto base = static_cast<int32>(row["base"].Int());
    const int32 length = static_cast<int32>(row["text"].Str().size());
    for (const bool byValue : {true, false}) {
        std::vector<char> buffer(static_cast<std::size_t>(size), '#');  // no byte behind the last
        bool ok = row["ok"].Int() == 0;
        if (byValue) {
            EXPECT_EQ(length, NumToStr(value, buffer.data(), size, base, &ok));
            EXPECT_EQ(row["ok"].Int() != 0, ok);
        } else {
            kztest::ReportCatcher reports;
            unsigned char stored[1 + 2 * sizeof value];
            std::memset(stored, 0xA5, sizeof stored);
            std::memcpy(stored + 1, &value, sizeof value);
            EXPECT_EQ(length, NumToIntString(stored + 1, buffer.data(), size, base, std::is_signed_v<T>, type));
            if (row.Has("reports")) {
                for (const Json& report : row["reports"].Items()) {
                    EXPECT_TRUE(reports.Take(2, report.Str()));
                }
            }
        }
        EXPECT_EQ(row["text"].Str(), buffer.data());
    }
}

TEST(NumberText, AgreesWithStoredVectors)
{
    int rows = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/number_text.jsonl")) {
        SCOPED_TRACE(row.Line());
        const std::string op = row["op"].Str();
        const int type = row.Has("type") ? TypeOf(row["type"].Str()) : 0;
        if (op == "NumToStr") {
            const bool isSigned = type == kNumI32 || type == kNumI64;
            const long long value = isSigned ? row["value"].Int() : static_cast<long long>(row["value"].UInt());
            type == kNumI32   ? ExpectRow(row, static_cast<int>(value), type)
            : type == kNumU32 ? ExpectRow(row, static_cast<unsigned>(value), type)
            : type == kNumI64 ? ExpectRow(row, value, type)
                              : ExpectRow(row, static_cast<unsigned long long>(value), type);
            ++rows;
        } else if (op == "StringToNum32" || op == "StringToNum64") {
            const Parsed parsed = Parse(op == "StringToNum64", row["text"].Str(), type,
                                        static_cast<int>(row["base"].Int()), row["noSign"].Int() != 0);
            const std::string bits = row["bits"].Str();
            const uInt64 mask = bits.size() == 16 ? ~uInt64{0} : (uInt64{1} << (4 * bits.size())) - 1;
            EXPECT_EQ(std::stoull(bits, nullptr, 16), parsed.value & mask);
            EXPECT_EQ(static_cast<std::size_t>(row["consumed"].Int()), parsed.consumed);
            ++rows;
        }
    }
    EXPECT_EQ(161, rows);
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
std::string Written(T value, int base)
{
    char buffer[80];
    std::memset(buffer, '#', sizeof buffer);
    bool ok = false;
    const int32 length = NumToStr(value, buffer, sizeof buffer, base, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(0, buffer[length]);
    EXPECT_EQ('#', buffer[length + 1]);
    EXPECT_LE(length, MaxBuffSizeForBase<T>(base) + 1);
    return std::string(buffer, static_cast<std::size_t>(length));
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
        ASSERT_EQ(expected, Written(value, base));
        const int type = sizeof(T) == 4        ? std::is_signed_v<T> ? kNumI32 : kNumU32
                         : std::is_signed_v<T> ? kNumI64
                                               : kNumU64;
        const auto read = static_cast<T>(Parse(sizeof(T) == 8, expected, type, base).value);
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
