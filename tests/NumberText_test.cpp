#include "NumberText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "JsonLines.h"
#include "ReportCatcher.h"

namespace {

using kztest::Json;
using kztest::ReportCatcher;

int TypeOf(const std::string& name)
{
    constexpr const char* kNames[] = {"", "iB", "iW", "iL", "iQ", "uB", "uW", "uL", "uQ"};
    return static_cast<int>(std::find(std::begin(kNames), std::end(kNames), name) - std::begin(kNames));
}

bool IsWide(int type)
{
    return type == kNumI64 || type == kNumU64;
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

TEST(NumberText, AgreesWithStoredVectors)
{
    int rows = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/number_text.jsonl")) {
        SCOPED_TRACE(row.Line());
        const std::string op = row["op"].Str();
        if (op == "NumToStr") {
            const int type = TypeOf(row["type"].Str());
            std::vector<char> buffer(static_cast<std::size_t>(row["size"].Int()));
            const auto size = static_cast<int32>(buffer.size());
            const auto base = static_cast<int32>(row["base"].Int());
            bool ok = false;
            const int32 length =
                type == kNumI32   ? NumToStr(static_cast<int>(row["value"].Int()), buffer.data(), size, base, &ok)
                : type == kNumU32 ? NumToStr(static_cast<unsigned>(row["value"].UInt()), buffer.data(), size, base, &ok)
                : type == kNumI64 ? NumToStr(row["value"].Int(), buffer.data(), size, base, &ok)
                                  : NumToStr(row["value"].UInt(), buffer.data(), size, base, &ok);
            EXPECT_EQ(row["text"].Str(), std::string(buffer.data(), static_cast<std::size_t>(length)));
            EXPECT_EQ(row["ok"].Int() != 0, ok);
            ++rows;
        } else if (op == "StringToNum32" || op == "StringToNum64") {
            const Parsed parsed = Parse(op == "StringToNum64", row["text"].Str(), TypeOf(row["type"].Str()),
                                        static_cast<int>(row["base"].Int()), row["noSign"].Int() != 0);
            const std::string bits = row["bits"].Str();
            const uInt64 mask = bits.size() == 16 ? ~uInt64{0} : (uInt64{1} << (4 * bits.size())) - 1;
            EXPECT_EQ(std::stoull(bits, nullptr, 16), parsed.value & mask);
            EXPECT_EQ(static_cast<std::size_t>(row["consumed"].Int()), parsed.consumed);
            ++rows;
        }
    }
    EXPECT_EQ(69, rows);
}

TEST(NumberText, ReadsSpacesSignsAndDigits)
{
    constexpr auto kMinus = [](uInt64 n) { return static_cast<uInt64>(static_cast<uInt32>(0 - n)); };
    const struct {
        const char* text;
        int type;
        int base;
        bool noSign;
        uInt64 value;
        std::size_t consumed;
    } rows[] = {
        {"  -12", kNumI32, 10, false, kMinus(12), 5},
        {"+12x", kNumI32, 10, false, 12, 3},
        {"\t12", kNumI32, 10, false, 0, 0},
        {"", kNumI32, 10, false, 0, 0},
        {"  ", kNumI32, 10, false, 0, 0},
        {" -", kNumI32, 10, false, 0, 0},
        {"--1", kNumI32, 10, false, 0, 0},
        {"-x", kNumI32, 16, false, 0, 0},
        {"abc", kNumI32, 10, false, 0, 0},
        {"12", kNumI32, 2, false, 1, 1},
        {"8", kNumI32, 8, false, 0, 0},
        {"gG", kNumI32, 17, false, 16 * 17 + 16, 2},
        {"zZ", kNumI32, 36, false, 35 * 36 + 35, 2},
        {"0x1", kNumI32, 16, false, 0, 1},
        {" 12", kNumI32, 10, true, 12, 3},
        {"-12", kNumI32, 10, true, 0, 0},
        {"+12", kNumI32, 10, true, 0, 0},
        {"1-2", kNumI32, 10, true, 1, 1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ((Parsed{row.value, row.consumed}), Parse(false, row.text, row.type, row.base, row.noSign))
            << row.text << " in base " << row.base;
    }
    const unsigned char* cursor = nullptr;
    EXPECT_EQ(0u, StringToNum32(&cursor, 0, kNumI32, 10, 0));
    EXPECT_EQ(0u, StringToNum32(&cursor, -1, kNumI32, 10, 0));
}

TEST(NumberText, HoldsValuesToTheTypesRange)
{
    const struct {
        const char* text;
        int type;
        int base;
        uInt64 bits;  // as many as the work type has
    } rows[] = {
        {"127", kNumI8, 10, 127},
        {"128", kNumI8, 10, 127},
        {"-128", kNumI8, 10, 0xFFFFFF80},
        {"-200", kNumI8, 10, 0xFFFFFF80},
        {"-99999999999", kNumI8, 10, 0xFFFFFF80},
        {"40000", kNumI16, 10, 32767},
        {"-40000", kNumI16, 10, 0xFFFF8000},
        {"300", kNumU8, 10, 255},
        {"-5", kNumU8, 10, 0},
        {"-0", kNumU8, 10, 0},
        {"99999999999", kNumU16, 10, 65535},
        {"-99999999999", kNumU16, 10, 65535},
        {"-5", kNumU32, 10, 0xFFFFFFFB},
        {"2147483647", kNumI32, 10, 0x7FFFFFFF},
        {"2147483648", kNumI32, 10, 0x7FFFFFFF},
        {"-2147483648", kNumI32, 10, 0x80000000},
        {"-2147483649", kNumI32, 10, 0x80000000},
        {"4294967295", kNumU32, 10, 0xFFFFFFFF},
        {"4294967296", kNumU32, 10, 0xFFFFFFFF},
        {"ff", kNumU8, 16, 255},
        {"FF", kNumI8, 16, 255},
        {"100", kNumI8, 16, 127},
        {"100", kNumU8, 16, 255},
        {"1F", kNumI16, 16, 31},
        {"-1F", kNumI16, 16, 0xFFFFFFE1},
        {"FFFFFFFF", kNumI32, 16, 0xFFFFFFFF},
        {"100000000", kNumI32, 16, 0xFFFFFFFF},
        {"9223372036854775807", kNumI64, 10, 0x7FFFFFFFFFFFFFFF},
        {"9223372036854775808", kNumI64, 10, 0x7FFFFFFFFFFFFFFF},
        {"-9223372036854775808", kNumI64, 10, 0x8000000000000000},
        {"-9223372036854775809", kNumI64, 10, 0x8000000000000000},
        {"18446744073709551615", kNumU64, 10, 0xFFFFFFFFFFFFFFFF},
        {"18446744073709551616", kNumU64, 10, 0xFFFFFFFFFFFFFFFF},
        {"-1", kNumU64, 10, 0xFFFFFFFFFFFFFFFF},
        {"1FFFFFFFFFFFFFFFF", kNumI64, 16, 0xFFFFFFFFFFFFFFFF},
    };
    for (const auto& row : rows) {
        const Parsed expected{row.bits, std::strlen(row.text)};
        EXPECT_EQ(expected, Parse(true, row.text, row.type, row.base)) << row.text;
        if (!IsWide(row.type)) {
            EXPECT_EQ(expected, Parse(false, row.text, row.type, row.base)) << row.text;
        }
    }
    EXPECT_EQ(0x7FFFFFFFu, Parse(false, "99999999999", kNumI64, 10).value) << "32 bits hold no more";
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
    std::mt19937_64 engine(3);
    for (int round = 0; round < 3000; ++round) {
        const uInt64 value = engine() >> engine() % 64;
        for (const uInt64 each : {value, 0 - value}) {
            ExpectStandardText(static_cast<int>(each));
            ExpectStandardText(static_cast<unsigned int>(each));
            ExpectStandardText(static_cast<long long>(each));
            ExpectStandardText(static_cast<unsigned long long>(each));
        }
    }
    for (unsigned long long power = 1, i = 0; i < 20; ++i, power *= 10) {
        for (const unsigned long long each : {power - 1, power, power + 1}) {
            ExpectStandardText(each);
            ExpectStandardText(static_cast<unsigned int>(each));
        }
    }
    ExpectStandardText(std::numeric_limits<int>::min());
    ExpectStandardText(std::numeric_limits<long long>::min());
}

TEST(NumberText, SmallBuffersKeepTheLowDigits)
{
    const struct {
        int value;
        int32 size;
        int32 base;
        const char* text;
        const char* reports;
    } rows[] = {
        {12345, 3, 10, "45", "incomplete "},
        {12345, 6, 10, "12345", ""},
        {-345, 4, 10, "345", "sign "},
        {-345, 5, 10, "-345", ""},
        {-12345, 3, 10, "45", "incomplete sign "},
        {-1, 9, 16, "FFFFFFFF", ""},
        {-1, 5, 16, "FFFF", "incomplete "},
        {1, 2, 2, "1", ""},
        {0x155, 4, 2, "101", "incomplete "},
        {5, 9, 7, "", "incomplete "},
        {5, 1, 10, "", "size "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.value << " into " << row.size);
        std::vector<char> buffer(static_cast<std::size_t>(row.size), '#');
        bool ok = true;
        EXPECT_EQ(std::strlen(row.text), NumToStr(row.value, buffer.data(), row.size, row.base, &ok));
        EXPECT_STREQ(row.text, buffer.data());
        EXPECT_EQ(row.reports[0] == 0, ok);

        ReportCatcher reports;
        std::fill(buffer.begin(), buffer.end(), '#');
        EXPECT_EQ(std::strlen(row.text), NumToIntString(&row.value, buffer.data(), row.size, row.base, 1, kNumI32));
        EXPECT_STREQ(row.text, buffer.data());
        std::string told;
        told += reports.Take(2,
                             "Incomplete conversion in NumToStr: buffer provided was not large enough to represent "
                             "the number in base " +
                                 std::to_string(row.base) + ".")
                    ? "incomplete "
                    : "";
        told += reports.Take(2, "Unable to include sign in NumToStr: buffer too small.") ? "sign " : "";
        told += reports.Take(2, "NumToStr requires at least 2 bytes in the input buffer.") ? "size " : "";
        EXPECT_EQ(row.reports, told);
    }
    bool ok = true;
    EXPECT_EQ(0, NumToStr(5, nullptr, 0, 10, &ok));
    EXPECT_FALSE(ok);
}

TEST(NumberText, NumbersInMemoryGoByTheirType)
{
    const unsigned char bytes[] = {'#', 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF};
    const struct {
        bool isSigned;
        int type;
        const char* text;
    } rows[] = {
        {true, kNumI64, "-4294967297"}, {false, kNumU64, "18446744069414584319"},
        {true, kNumI32, "-1"},          {false, kNumI32, "4294967295"},
        {false, kNumU8, "4294967295"},
    };
    for (const auto& row : rows) {
        char buffer[32];
        EXPECT_EQ(std::strlen(row.text), NumToIntString(bytes + 1, buffer, sizeof buffer, 10, row.isSigned, row.type));
        EXPECT_STREQ(row.text, buffer);
    }
}

}  // namespace
