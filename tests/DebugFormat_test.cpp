#include "DebugFormat.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "StreamText.h"

namespace {

using kztest::ValueText;

constexpr char kBadFormat[] = "__DbgFmtType: Bad Format__";

TEST(DebugFormat, AFormatPassesWithExactlyOneCompleteConversion)
{
    for (const char* good : {"%d", "%s", "load %5.1f%% of %%", "%%%d", "%-+ #0'12.34llx", "%--d", "%.f", "%Lf", "%hhi",
                             "%qd", "%ls", "%S", "%p", "%999d"}) {
        EXPECT_TRUE(VerifySingleFormatSpecifier(good)) << good;
    }
    for (const char* bad :
         {"",     "text", "100%%", "%d%d",  "%d %",    "%",    "%ll",  "%5%",  "%y",    "%4-d", "%tqd",
          "%**a", "%*d",  "%.*d",  "%.-3d", "%5.3.1d", "%l5d", "%lhd", "%lll", "%llld", "%hf",  "%llf",
          "%Ld",  "%lp",  "%hs",   "%zc",   "%llc",    "%1$d", "%Id",  "%m",   "%n",    "%b"}) {
        EXPECT_FALSE(VerifySingleFormatSpecifier(bad)) << bad;
    }
    EXPECT_FALSE(VerifySingleFormatSpecifier(nullptr));
}

TEST(DebugFormat, NumbersPrintAtTheirOwnWidthWhateverTheModifier)
{
    const struct {
        int line;
        std::string actual;
        const char* expected;
    } kRows[] = {
        {__LINE__, ValueText(DbgFmtNum("%d", -5)), "-5"},
        {__LINE__, ValueText(DbgFmtNum("%d", LLONG_MIN)), "-9223372036854775808"},
        {__LINE__, ValueText(DbgFmtNum("%hhd", 70'000L)), "70000"},
        {__LINE__, ValueText(DbgFmtNum("%lld", short{-2})), "-2"},
        {__LINE__, ValueText(DbgFmtNum("%u", ULLONG_MAX)), "18446744073709551615"},
        {__LINE__, ValueText(DbgFmtNum("%d", UINT_MAX)), "-1"},
        {__LINE__, ValueText(DbgFmtHex("%llX", -1)), "FFFFFFFF"},
        {__LINE__, ValueText(DbgFmtHex("0x%08lx", uInt16{0xBEEF})), "0x0000beef"},
        {__LINE__, ValueText(DbgFmtNum("<%+6.2f>", 3.14159)), "< +3.14>"},
        {__LINE__, ValueText(DbgFmtNum("%g%%", 0.5f)), "0.5%"},
        {__LINE__, ValueText(DbgFmtNum("%c", 'k')), "k"},
        {__LINE__, ValueText(DbgFmtNum("%000000000000000000000000000000000000003d", 1)), "001"},
        {__LINE__, ValueText(DbgFmtNum("%-+5.d|", 0)), "+    |"},
        {__LINE__, ValueText(DbgFmtNum("%#.3Lx", 10)), kBadFormat},
        {__LINE__, ValueText(DbgFmtNum("%+.3Lf", 0.5)), "+0.500"},
        {__LINE__, ValueText(DbgFmtNum("%255.255d", 1)), "0000000000000000000000000000000"},
        {__LINE__, ValueText(DbgFmtNum("%40d", 1)), "                               "},
        {__LINE__, ValueText(DbgFmtNum("a text of thirty-one characters%d", 1)), "a text of thirty-one characters"},
        {__LINE__, ValueText(DbgFmtNum("a text of thirty characters ..%d!", 12)), "a text of thirty characters ..1"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.actual, row.expected);
    }
}

TEST(DebugFormat, AFormatThatDoesNotFitTheNumberIsNeverUsed)
{
    for (const char* format : {"%s", "%n", "%p", "%f", "%*d", "%.*d", "%d%d", "%", "", "%256d", "%.256d",
                               "%99999999999d", "%4-d", "%tqd", "%C", "%m", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(format != nullptr ? format : "null");
        EXPECT_EQ(ValueText(DbgFmtNum(format, 1)), kBadFormat);
        EXPECT_EQ(ValueText(DbgFmtHex(format, 1ull)), kBadFormat);
    }
    EXPECT_EQ(ValueText(DbgFmtNum("%000000000000000000000000000000000003d", 1)), "001");
    for (const char* format : {"%d", "%x", "%s", "%n", "%*f", "%**a", "%hf", "%.2147483648f", "%999999999e"}) {
        SCOPED_TRACE(format);
        EXPECT_EQ(ValueText(DbgFmtNum(format, 1.0)), kBadFormat);
    }
}

TEST(DebugFormat, TextsAddressesAndCodes)
{
    const unsigned char bytes[] = {0x41, 0x1F, 0x7F, 0x42};
    uInt32 code = 0;
    std::memcpy(&code, bytes, sizeof code);
    const unsigned char pascal[] = {3, 'a', 0xE9, 'c', 'd'};
    const unsigned char empty[] = {0, 'x'};
    const unsigned char* const noText = nullptr;
    const struct {
        int line;
        std::string actual;
        const char* expected;
    } kRows[] = {
        {__LINE__, ValueText(DbgFmtQuadChar(code)), "A  B"},
        {__LINE__, ValueText(DbgFmtQuadChar(kz::FourCharCode("STR#"))), "STR#"},
        {__LINE__, ValueText(DbgFmtCStr("abc")), "abc"},
        {__LINE__, ValueText(DbgFmtCStr(noText)), ""},
        {__LINE__, ValueText(DbgFmtPStr(pascal)),
         "a\xE9"
         "c"},
        {__LINE__, ValueText(DbgFmtPStr(empty)), ""},
        {__LINE__, ValueText(DbgFmtPStr(noText)), ""},
        {__LINE__, ValueText(DbgFmtPtr(uintptr_t{0x7F00BEEF})), "0x000000007f00beef"},
        {__LINE__, ValueText(DbgFmtPtr(nullptr)), "0x0000000000000000"},
        {__LINE__, ValueText(DbgFmtType<long long>(-3)), "-3"},
        {__LINE__, ValueText(DbgFmtType<const char*>("text")), "text"},
        {__LINE__, ValueText(DbgFmtType<DbgFmtQuadChar>(DbgFmtQuadChar(code))), "A  B"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.actual, row.expected);
    }
}

}  // namespace
