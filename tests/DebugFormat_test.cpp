#include "DebugFormat.h"

#include <gtest/gtest.h>

#include <map>
#include <type_traits>
#include <utility>

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
    } else if constexpr (std::is_same_v<T, unsigned long long>) {
        value = row["value"].UInt();
    } else {
        value = static_cast<T>(row["value"].Int());
    }
    const std::string& call = row["call"].Str();
    if constexpr (!std::is_same_v<T, bool>) {
        if (call == "Num") {
            return ValueText(DbgFmtNum(FormatOf(row), value));
        }
    }
    if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
        if (call == "Hex") {
            return ValueText(DbgFmtHex(FormatOf(row), value));
        }
    }
    if constexpr (Printable<T>) {
        return ValueText(value);
    }
    return "no such call";
}

TEST(DebugFormat, AgreesWithStoredVectors)
{
    constexpr char kBadFormat[] = "__DbgFmtType: Bad Format__";
    const std::map<std::string, std::string (*)(const Json&)> types = {
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
        {"double", TextOf<double>}};
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
    const uInt32 code = kz::FourCharCode("A\x1F\x7F\x42");
    const unsigned char pascal[] = {3, 'a', 0xE9, 'c', 'd'};
    const unsigned char empty[] = {0, 'x'};
    const unsigned char* const noText = nullptr;
    LStr counted = {1, {'x'}};
    LStr* string = &counted;
    LStr negative = {-1, {'x'}};
    char buffer[] = "buffer";
    void (*const noProcedure)() = nullptr;
    const std::pair<std::string, std::string> kRows[] = {
        {ValueText(DbgFmtQuadChar(code)), "A  B"},
        {ValueText(DbgFmtQuadChar(kz::FourCharCode("STR#"))), "STR#"},
        {ValueText(DbgFmtCStr("abc")), "abc"},
        {ValueText(DbgFmtCStr(noText)), ""},
        {ValueText(DbgFmtPStr(pascal)), "a\xE9\x63"},
        {ValueText(DbgFmtPStr(empty)), ""},
        {ValueText(DbgFmtPStr(noText)), ""},
        {ValueText(DbgFmtPtr(uintptr_t{0x7F00BEEF})), "0x000000007f00beef"},
        {ValueText(DbgFmtPtr(nullptr)), "0x0000000000000000"},
        {ValueText(DbgFmtType<long long>(-3)), "-3"},
        {ValueText(DbgFmtType<const char*>("text")), "text"},
        {ValueText(DbgFmtType<DbgFmtQuadChar>(DbgFmtQuadChar(code))), "A  B"},
        {ValueText(static_cast<char*>(buffer)), "buffer"},
        {ValueText(static_cast<const char*>(nullptr)), ""},
        {ValueText(string), "x"},
        {ValueText(&string), "x"},
        {ValueText(static_cast<LStr**>(nullptr)), ""},
        {ValueText(static_cast<LStr*>(nullptr)), ""},
        {ValueText(&negative), ""},
        {ValueText(noProcedure), "(nil)"},
        {ValueText(&SomeFunction).substr(0, 2), "0x"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(row.first, row.second) << "row " << &row - kRows;
    }
}

}  // namespace
