#include "DebugFormat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <type_traits>

#include "JsonLines.h"
#include "StreamText.h"

namespace {

using kztest::Json;
using kztest::ValueText;

template <typename T>
concept Printable = requires(DebugStream& stream, T value)
{
    ToDebugStream(stream, value);
};
static_assert(Printable<int8> && Printable<uInt8> && !Printable<char> && !Printable<int*>);
static_assert(!Printable<wchar_t> && !Printable<char8_t> && !Printable<char16_t> && !Printable<char32_t>);

const char* FormatOf(const Json& row)
{
    return row["format"].IsNull() ? nullptr : row["format"].Str().c_str();
}

// The text of a row's value, by itself or through its format.
template <typename T>
std::string TextOf(const Json& row)
{
    T value = {};
    if constexpr (std::is_floating_point_v<T>) {
        value = static_cast<T>(row["value"].Double());
    } else {
        const Json& number = row["value"];
        value =
            static_cast<T>(std::is_same_v<T, unsigned long long> ? number.UInt() : static_cast<uInt64>(number.Int()));
    }
    const std::string& call = row["call"].Str();
    if constexpr (!std::is_same_v<T, bool>) {
        if (call == "Num") {
            return ValueText(DbgFmtNum(FormatOf(row), value));
        }
        if constexpr (std::is_integral_v<T>) {
            if (call == "Hex") {
                return ValueText(DbgFmtHex(FormatOf(row), value));
            }
        }
    }
    if constexpr (Printable<T>) {
        return ValueText(value);
    }
    return "no such call";
}

constexpr char kBadFormat[] = "__DbgFmtType: Bad Format__";

TEST(DebugFormat, AgreesWithStoredVectors)
{
    const std::map<std::string, std::function<std::string(const Json&)>> types = {
        {"bool", TextOf<bool>},
        {"char", TextOf<char>},
        {"unsigned char", TextOf<unsigned char>},
        {"short", TextOf<short>},
        {"unsigned short", TextOf<unsigned short>},
        {"int", TextOf<int>},
        {"unsigned int", TextOf<unsigned int>},
        {"long", TextOf<long>},
        {"unsigned long", TextOf<unsigned long>},
        {"long long", TextOf<long long>},
        {"unsigned long long", TextOf<unsigned long long>},
        {"float", TextOf<float>},
        {"double", TextOf<double>},
    };
    for (const Json& row : kztest::ReadJsonLines("vectors/report_values.jsonl")) {
        SCOPED_TRACE(row.Line());
        if (row["call"].Str() != "Verify") {
            EXPECT_EQ(types.at(row["type"].Str())(row), row["text"].Str());
            continue;
        }
        EXPECT_EQ(VerifySingleFormatSpecifier(FormatOf(row)), row["good"].Int() != 0);
        if (row["good"].Int() == 0) {  // never used
            EXPECT_EQ(ValueText(DbgFmtNum(FormatOf(row), 1)), kBadFormat);
            EXPECT_EQ(ValueText(DbgFmtHex(FormatOf(row), 1ull)), kBadFormat);
            EXPECT_EQ(ValueText(DbgFmtNum(FormatOf(row), 1.0)), kBadFormat);
        }
    }
}

int SomeFunction(int value)
{
    return value;
}

TEST(DebugFormat, TextsAddressesAndCodes)
{
    const unsigned char bytes[] = {0x41, 0x1F, 0x7F, 0x42};
    uInt32 code = 0;
    std::memcpy(&code, bytes, sizeof code);
    const unsigned char pascal[] = {3, 'a', 0xE9, 'c', 'd'};
    const unsigned char empty[] = {0, 'x'};
    const unsigned char* const noText = nullptr;
    LStr counted = {1, {'x'}};
    LStr* string = &counted;
    LStr negative = {-1, {'x'}};
    char buffer[] = "buffer";
    void (*const noProcedure)() = nullptr;
    const struct {
        int line;
        std::string actual;
        std::string expected;
    } kRows[] = {
        {__LINE__, ValueText(DbgFmtQuadChar(code)), "A  B"},
        {__LINE__, ValueText(DbgFmtQuadChar(kz::FourCharCode("STR#"))), "STR#"},
        {__LINE__, ValueText(DbgFmtCStr("abc")), "abc"},
        {__LINE__, ValueText(DbgFmtCStr(noText)), ""},
        {__LINE__, ValueText(DbgFmtPStr(pascal)), std::string("a\xE9") + "c"},
        {__LINE__, ValueText(DbgFmtPStr(empty)), ""},
        {__LINE__, ValueText(DbgFmtPStr(noText)), ""},
        {__LINE__, ValueText(DbgFmtPtr(uintptr_t{0x7F00BEEF})), "0x000000007f00beef"},
        {__LINE__, ValueText(DbgFmtPtr(nullptr)), "0x0000000000000000"},
        {__LINE__, ValueText(DbgFmtType<long long>(-3)), "-3"},
        {__LINE__, ValueText(DbgFmtType<const char*>("text")), "text"},
        {__LINE__, ValueText(DbgFmtType<DbgFmtQuadChar>(DbgFmtQuadChar(code))), "A  B"},
        {__LINE__, ValueText(static_cast<char*>(buffer)), "buffer"},
        {__LINE__, ValueText(static_cast<const char*>(nullptr)), ""},
        {__LINE__, ValueText(string), "x"},
        {__LINE__, ValueText(&string), "x"},
        {__LINE__, ValueText(static_cast<LStr**>(nullptr)), ""},
        {__LINE__, ValueText(static_cast<LStr*>(nullptr)), ""},
        {__LINE__, ValueText(&negative), ""},
        {__LINE__, ValueText(noProcedure), "(nil)"},
        {__LINE__, ValueText(&SomeFunction).substr(0, 2), "0x"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(row.actual, row.expected) << "line " << row.line;
    }
}

}  // namespace
