// INI objects: look-ups, values, edits, and what they do without memory.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <clocale>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "FaultLoop.h"
#include "IniFile.h"
#include "IniModel.h"
#include "IniTesting.h"

namespace {

using kztest::FailAllocation;
using kztest::FaultLoop;
using kztest::IniOwner;
using kztest::Items;
using kztest::LinesOf;
using kztest::NewIni;
using kztest::ReadText;
using kztest::Sections;
using kztest::SectionsOf;

int gNewLocales = 0;

IniOwner Reading(const std::string& text, int readOptions = kIniReadStripDoubleQuotes, int sorted = 0)
{
    IniOwner ini = NewIni(sorted);
    IniSetReadOptions(ini.get(), readOptions);
    EXPECT_EQ(1, ReadText(ini.get(), text));
    return ini;
}

std::string Value(IniFile* ini, const char* section, const char* tag)
{
    const char* value = nullptr;
    return IniGetPointerToString(ini, section, tag, &value) == 1 ? value : "(none)";
}

std::string RawValue(IniFile* ini, const char* section, const char* tag)
{
    const char* value = nullptr;
    return IniGetPointerToRawString(ini, section, tag, &value) == 1 ? value : "(none)";
}

TEST(IniFile, NamesAreFoundWhateverTheirCaseAndSpace)
{
    std::string text = "[ Main ]\nKey = 1\n";
    for (int i = 0; i < 40; ++i) {  // long enough for an index
        text += "other" + std::to_string(i) + "=x\n";
    }
    for (const int sorted : {0, 1}) {
        const IniOwner ini = Reading(text, kIniReadStripDoubleQuotes, sorted);
        for (const char* tag : {"Key", "KEY", " key\t", "keY "}) {
            EXPECT_EQ("1", RawValue(ini.get(), "MAIN ", tag)) << tag;
        }
        for (const char* tag : {"Ke", "Keys", "", "K ey"}) {
            EXPECT_EQ("(none)", RawValue(ini.get(), "Main", tag)) << tag;
        }
        EXPECT_EQ(0, IniSetCaseAndWhitespaceSensitiveChecking(ini.get(), 5));
        EXPECT_EQ("1", RawValue(ini.get(), "Main", "Key"));
        for (const char* tag : {"KEY", " Key", "Key "}) {
            EXPECT_EQ("(none)", RawValue(ini.get(), "Main", tag)) << tag;
        }
        EXPECT_EQ(0, IniSectionExists(ini.get(), "main"));
        EXPECT_EQ(5, IniSetCaseAndWhitespaceSensitiveChecking(ini.get(), 0));
        EXPECT_EQ(1, IniItemExists(ini.get(), "main", "OTHER39"));
    }
}

TEST(IniFile, LinesAreThoseOfTheText)
{
    const IniOwner ini = Reading("; c\r\n[a]\r\nx=1\r\n\r\njunk\r\n[b]\r\ny Line1=2\r\ny Line2=3\r\n[a]\r\nz=4\r\n");
    EXPECT_EQ(9, IniLineOfSection(ini.get(), "a")) << "the last one of its name";
    EXPECT_EQ(6, IniLineOfSection(ini.get(), "b"));
    EXPECT_EQ(-1, IniLineOfSection(ini.get(), "c"));
    EXPECT_EQ(-1, IniLineOfLastAccess(ini.get()));
    EXPECT_EQ(7, IniLineOfItem(ini.get(), "b", "y"));
    EXPECT_EQ(7, IniLineOfLastAccess(ini.get()));
    EXPECT_EQ(-1, IniLineOfItem(ini.get(), "b", "none"));
    EXPECT_EQ(7, IniLineOfLastAccess(ini.get())) << "of the last item found";
    EXPECT_EQ(4, IniLineOfFirstUnrecognizedLine(ini.get()));
    IniPutInt(ini.get(), "b", "new", 1);
    EXPECT_EQ(-1, IniLineOfItem(ini.get(), "b", "new"));
    ASSERT_EQ(1, ReadText(ini.get(), "[a]\n"));
    EXPECT_EQ(-1, IniLineOfFirstUnrecognizedLine(ini.get()));
}

TEST(IniFile, ItemsAreCountedFromOne)
{
    const IniOwner ini = Reading("[a]\nx=1\n[b]\ny=2\nz=3\n");
    const char* out = "untouched";
    EXPECT_EQ(2, IniNumberOfSections(ini.get()));
    EXPECT_EQ(2, IniNumberOfItems(ini.get(), "b"));
    EXPECT_EQ(0, IniNumberOfItems(ini.get(), "c"));
    for (const int n : {0, 3, -1}) {
        EXPECT_EQ(0, IniNthSectionName(ini.get(), n, &out));
        EXPECT_EQ(0, IniNthItemName(ini.get(), "b", n, &out));
        EXPECT_EQ(0, IniNthItemPointerToString(ini.get(), "b", n, &out));
    }
    EXPECT_EQ(0, IniNthItemName(ini.get(), "c", 1, &out));
    EXPECT_STREQ("untouched", out);
}

TEST(IniFile, EachByteSurvivesEscapes)
{
    const IniOwner ini = NewIni();
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    for (const auto& value : {all, std::string("\t tabs \t"), std::string("\\"), std::string("\"q\"")}) {
        ASSERT_EQ(1, IniPutString(ini.get(), "s", "t", value.c_str()));
        EXPECT_EQ(value, Value(ini.get(), "s", "t"));
        const IniOwner again = NewIni();
        ASSERT_EQ(1, ReadText(again.get(), kztest::TextOf(LinesOf(ini.get()))));
        EXPECT_EQ(value, Value(again.get(), "s", "t"));
    }
    IniPutString(ini.get(), "s", "t", "a\tb\nc\"d\\e\x01\x7F\r\xE9");
    EXPECT_EQ("a\\tb\\nc\\\"d\\\\e\\x01\\x7f\\x0d\xE9", RawValue(ini.get(), "s", "t"));
}

TEST(IniFile, ValuesAreUnescaped)
{
    const std::array<std::pair<const char*, const char*>, 10> rows = {{
        {"a\\\\b", "a\\b"},
        {"a\\nb\\t", "a\nb\t"},
        {"\\x41\\x4a\\x4A", "AJJ"},
        {"\\x4", "x4"},
        {"\\xg1\\x1g", "xg1x1g"},
        {"a\\", "a"},
        {"\\\\\\", "\\"},
        {"\\\"\"", "\"\""},
        {"\\q\\r", "qr"},
        {"\\x41\\x00rest", "A"},
    }};
    const IniOwner ini = NewIni();
    for (const auto& [raw, expected] : rows) {
        ASSERT_EQ(1, IniPutRawString(ini.get(), "s", "t", raw));
        EXPECT_EQ(expected, Value(ini.get(), "s", "t")) << raw;
        char* copy = nullptr;
        ASSERT_EQ(1, IniGetStringCopy(ini.get(), "s", "t", &copy));
        EXPECT_STREQ(expected, copy);
        std::free(copy);
    }
}

TEST(IniFile, CopiesInBuffersEndInTime)
{
    const IniOwner ini = Reading("[s]\nt=\"ab\\ncd\"\n");
    char buffer[8];
    const auto read = [&](std::size_t size, bool isRaw) {
        std::memset(buffer, '#', sizeof buffer);
        const auto get = isRaw ? &IniGetRawStringIntoBuffer : &IniGetStringIntoBuffer;
        EXPECT_EQ(1, get(ini.get(), "s", "t", buffer, size));
        EXPECT_EQ('#', buffer[std::min(size, sizeof buffer - 1)]) << "nothing behind the buffer";
        return std::string(buffer, strnlen(buffer, size));
    };
    EXPECT_EQ("ab\ncd", read(7, false));
    EXPECT_EQ("ab\ncd", read(6, false));
    EXPECT_EQ("ab\nc", read(5, false));
    EXPECT_EQ("", read(1, false));
    EXPECT_EQ("", read(0, false));
    EXPECT_EQ("ab\\ncd", read(7, true));
    EXPECT_EQ("ab\\n", read(5, true));
    buffer[0] = '#';
    EXPECT_EQ(0, IniGetStringIntoBuffer(ini.get(), "s", "none", buffer, sizeof buffer));
    EXPECT_EQ(0, buffer[0]) << "emptied all the same";
}

TEST(IniFile, PointersStayGoodAcrossOtherCalls)
{
    const IniOwner ini = Reading("[s]\nlong=\"" + std::string(5000, 'x') + "\"\nshort=y\n");
    const char* first = nullptr;
    ASSERT_EQ(1, IniGetPointerToString(ini.get(), "s", "long", &first));
    char* copy = nullptr;
    char buffer[4];
    ASSERT_EQ(1, IniGetStringCopy(ini.get(), "s", "short", &copy));
    ASSERT_EQ(1, IniGetStringIntoBuffer(ini.get(), "s", "short", buffer, sizeof buffer));
    EXPECT_EQ(std::string(5000, 'x'), first);
    std::free(copy);
    EXPECT_EQ("y", Value(ini.get(), "s", "short"));
}

TEST(IniFile, NumbersAtTheirLimits)
{
    const struct {
        const char* text;
        int intResult;
        int intValue;
        int uintResult;
        unsigned int uintValue;
    } rows[] = {
        {"2147483647", 1, INT_MAX, 1, INT_MAX},
        {"2147483648", kIniErrInt, 0, 1, 2147483648u},
        {"-2147483648", 1, INT_MIN, kIniErrUInt, 0},
        {"-2147483649", kIniErrInt, 0, kIniErrUInt, 0},
        {"4294967295", kIniErrInt, 0, 1, UINT_MAX},
        {"4294967296", kIniErrInt, 0, kIniErrUInt, 0},
        {"99999999999999999999", kIniErrInt, 0, kIniErrUInt, 0},
        {"-0", 1, 0, kIniErrUInt, 0},
        {"+7", 1, 7, 1, 7},
        {"007", 1, 7, 1, 7},
        {"+-7", kIniErrInt, 0, kIniErrUInt, 0},
        {"+", kIniErrInt, 0, kIniErrUInt, 0},
        {"7 7", kIniErrInt, 0, kIniErrUInt, 0},
        {"0x7", kIniErrInt, 0, kIniErrUInt, 0},
        {"\" 7\t\"", 1, 7, 1, 7},
        {"\"  \"", 0, 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const IniOwner ini = Reading(std::string("[s]\nt=") + row.text + "\n");
        int number = 0;
        unsigned int bits = 0;
        EXPECT_EQ(row.intResult, IniGetInt(ini.get(), "s", "t", &number));
        EXPECT_EQ(row.intValue, number);
        EXPECT_EQ(row.uintResult, IniGetUInt(ini.get(), "s", "t", &bits));
        EXPECT_EQ(row.uintValue, bits);
    }
}

TEST(IniFile, DoublesAreReadWhole)
{
    const struct {
        const char* text;
        int result;
        double value;
    } rows[] = {
        {"1.5", 1, 1.5},
        {"-1e3", 1, -1000},
        {"+Inf", 1, HUGE_VAL},
        {"\" inf \"", 1, HUGE_VAL},
        {"-INF", 1, -HUGE_VAL},
        {"1e999", kIniErrDouble, 0},
        {"1e-999", kIniErrDouble, 0},
        {"1,5", kIniErrDouble, 0},
        {"\"1.5 \"", kIniErrDouble, 0},
        {"x", kIniErrDouble, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const IniOwner ini = Reading(std::string("[s]\nt=") + row.text + "\n");
        double value = 0;
        errno = 77;
        EXPECT_EQ(row.result, IniGetDouble(ini.get(), "s", "t", &value));
        EXPECT_EQ(row.value, value);
        EXPECT_EQ(77, errno);
    }
    const IniOwner ini = NewIni();
    IniPutDouble(ini.get(), "s", "t", HUGE_VAL);
    EXPECT_EQ("inf", RawValue(ini.get(), "s", "t"));
    IniPutDouble(ini.get(), "s", "t", 0.1);
    EXPECT_EQ("1.00000000000000e-01", RawValue(ini.get(), "s", "t"));
}

TEST(IniFile, NumbersDoNotFollowTheLocale)
{
    const std::string before = std::setlocale(LC_ALL, nullptr);
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
        GTEST_SKIP() << "no such locale here";
    }
    const IniOwner ini = NewIni();
    IniPutDouble(ini.get(), "s", "t", 1.5);
    double value = 0;
    EXPECT_EQ(1, IniGetDouble(ini.get(), "s", "t", &value));
    std::setlocale(LC_ALL, before.c_str());
    EXPECT_EQ("1.50000000000000e+00", RawValue(ini.get(), "s", "t"));
    EXPECT_EQ(1.5, value);
}

TEST(IniFile, NumbersNeedOneLocaleObjectForAll)
{
    const IniOwner ini = NewIni();
    double value = 0;
    IniPutDouble(ini.get(), "s", "t", 1.5);
    const int before = gNewLocales;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(1, IniPutDouble(ini.get(), "s", "t", i));
        EXPECT_EQ(1, IniGetDouble(ini.get(), "s", "t", &value));
    }
    EXPECT_EQ(before, gNewLocales);
}

TEST(IniFile, TextThatCouldNotBeReadBackIsRefused)
{
    const IniOwner ini = Reading("[s]\nt=old\n");
    for (const char* section : {"", "  ", "a\nb", "a\rb", "a]b", "(null)", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(kIniErrName, IniPutInt(ini.get(), section, "t", 1));
        EXPECT_EQ(kIniErrName, IniRenameSection(ini.get(), "s", section));
        EXPECT_EQ(0, IniRenameSection(ini.get(), "none", section)) << "whatever the new name";
    }
    for (const char* tag : {"", "\t", "a\nb", "a\rb", "a=b", "=", ";a", " [a", "a Line1", "b Line0001",
                            static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(kIniErrName, IniPutInt(ini.get(), "s", tag, 1));
    }
    EXPECT_EQ(1, IniPutInt(ini.get(), "s", "a:b", 1));
    IniSetReadOptions(ini.get(), kIniReadColonAndNull);
    EXPECT_EQ(kIniErrName, IniPutInt(ini.get(), "s", "c:d", 1));
    for (const char* value : {"a\nb", "a\rb", "\n"}) {
        EXPECT_EQ(kIniErrName, IniPutRawString(ini.get(), "s", "t", value));
        EXPECT_EQ(kIniErrName, IniPutStringWithOptions(ini.get(), "new", "t", value, 0, 0));
        EXPECT_EQ(1, IniPutStringWithOptions(ini.get(), "s", "u", value, 0, 1));
    }
    EXPECT_EQ("old", RawValue(ini.get(), "s", "t"));
    EXPECT_EQ(0, IniSectionExists(ini.get(), "new"));
    EXPECT_EQ(1, IniPutRawString(ini.get(), " s ", " t ", nullptr));
    EXPECT_EQ("", RawValue(ini.get(), "s", "t"));
    EXPECT_EQ(1, IniNumberOfSections(ini.get()));
    for (const int breakChar : {128, 255, -1}) {
        EXPECT_EQ(kIniErrInt, IniSetWriteOptions(ini.get(), 5, breakChar, 0));
    }
    EXPECT_EQ(1, LinesOf(ini.get()).size() > 1) << "nothing was set";
}

TEST(IniFile, CommentsOfWhatIsRemovedGoToWhatFollows)
{
    const std::string text = ";s\n[s]\n;a\na=1\n;b\nb=2\n;t\n[t]\n;c\nc=3\n;end\n";
    const struct {
        int line;
        std::vector<std::pair<const char*, const char*>> removals;  // section, and item or null
        const char* expected;
    } rows[] = {
        {__LINE__, {{"s", "a"}}, ";s\n[s]\n;a\n;b\nb=2\n;t\n[t]\n;c\nc=3\n;end\n"},
        {__LINE__, {{"s", "b"}}, ";s\n[s]\n;a\na=1\n;b\n;t\n[t]\n;c\nc=3\n;end\n"},
        {__LINE__, {{"t", "c"}}, ";s\n[s]\n;a\na=1\n;b\nb=2\n;t\n[t]\n;c\n;end\n"},
        {__LINE__, {{"s", nullptr}}, ";s\n;a\n;b\n;t\n[t]\n;c\nc=3\n;end\n"},
        {__LINE__, {{"t", nullptr}}, ";s\n[s]\n;a\na=1\n;b\nb=2\n;t\n;c\n;end\n"},
        {__LINE__, {{"t", nullptr}, {"s", nullptr}}, ";s\n;a\n;b\n;t\n;c\n;end\n"},
        {__LINE__, {{"s", "a"}, {"s", "b"}}, ";s\n[s]\n;a\n;b\n;t\n[t]\n;c\nc=3\n;end\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const IniOwner ini = Reading(text, kIniReadKeepComments);
        IniSetWriteOptions(ini.get(), -1, 0, kIniWriteComments);
        EXPECT_EQ(text, kztest::TextOf(LinesOf(ini.get())));
        for (const auto& [section, tag] : row.removals) {
            EXPECT_EQ(1,
                      tag == nullptr ? IniRemoveSection(ini.get(), section) : IniRemoveItem(ini.get(), section, tag));
        }
        EXPECT_EQ(row.expected, kztest::TextOf(LinesOf(ini.get())));
    }
    const IniOwner ini = Reading(text);
    EXPECT_EQ(0, IniRemoveItem(ini.get(), "s", "c"));
    EXPECT_EQ(0, IniRemoveItem(ini.get(), "none", "a"));
    EXPECT_EQ(0, IniRemoveSection(ini.get(), "none"));
    EXPECT_EQ(0, IniRenameSection(ini.get(), "none", "new"));
    EXPECT_EQ(0, IniSortSection(ini.get(), "none"));
}

TEST(IniFile, ARenamedSectionStaysWhereItIs)
{
    const IniOwner ini = Reading("[b]\nx=1\n[a]\n[c]\n", kIniReadStripDoubleQuotes, 1);
    EXPECT_EQ(1, IniRenameSection(ini.get(), "a", " z "));
    const Sections expected = {{"z", {}}, {"b", {{"x", "1"}}}, {"c", {}}};
    EXPECT_EQ(expected, SectionsOf(ini.get()));
    EXPECT_EQ(1, IniItemExists(ini.get(), "b", "x"));
    EXPECT_EQ(0, IniSectionExists(ini.get(), "a"));
    IniSortSectionList(ini.get());
    const Sections sorted = {{"b", {{"x", "1"}}}, {"c", {}}, {"z", {}}};
    EXPECT_EQ(sorted, SectionsOf(ini.get()));
}

TEST(IniFile, NoObject)
{
    IniDispose(nullptr);
    int number = 0;
    double real = 0;
    const char* text = nullptr;
    char buffer[2] = "x";
    EXPECT_EQ(kIniErrFile, IniSetDuplicateChecking(nullptr, 1));
    EXPECT_EQ(kIniErrFile, IniSetWriteOptions(nullptr, 1, 0, 0));
    EXPECT_EQ(kIniErrFile, IniSectionExists(nullptr, "s"));
    EXPECT_EQ(kIniErrFile, IniNumberOfItems(nullptr, "s"));
    EXPECT_EQ(kIniErrFile, IniGetInt(nullptr, "s", "t", &number));
    EXPECT_EQ(kIniErrFile, IniGetDouble(nullptr, "s", "t", &real));
    EXPECT_EQ(kIniErrFile, IniGetPointerToString(nullptr, "s", "t", &text));
    EXPECT_EQ(kIniErrFile, IniGetStringIntoBuffer(nullptr, "s", "t", buffer, 2));
    EXPECT_EQ(kIniErrFile, IniPutInt(nullptr, "s", "t", 1));
    EXPECT_EQ(kIniErrFile, IniRemoveSection(nullptr, "s"));
    EXPECT_EQ(kIniErrFile, IniSort(nullptr));
    EXPECT_EQ(kIniErrFile, IniRead(nullptr, nullptr, nullptr));
    EXPECT_EQ(kIniErrFile, IniWrite(nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, IniLineOfItem(nullptr, "s", "t"));
    EXPECT_EQ(kIniErrFile, IniGetInt(NewIni().get(), "s", "t", nullptr));
}

TEST(IniFile, OutOfMemoryWhileReading)
{
    std::string text = ";one\n[s]\n;two\nlong Line1=" + std::string(300, 'x') + "\nlong Line2=y\n";
    for (int i = 0; i < 20; ++i) {
        text += "t" + std::to_string(i) + "=v\n";
    }
    text += "[u]\nv=w\nv=x\n;three\n";
    FaultLoop(
        [&](auto failed) {
            const IniOwner ini = NewIni();
            if (ini == nullptr) {
                EXPECT_TRUE(failed());
                return;
            }
            IniSetReadOptions(ini.get(), kIniReadKeepComments);
            const int result = ReadText(ini.get(), text);
            EXPECT_EQ(result == 1 ? 1 : kIniErrMemory, result);
            int count = 0;
            const int sections = IniNumberOfSections(ini.get());
            const char* name = nullptr;
            for (int i = 1; i <= sections; ++i) {
                EXPECT_EQ(1, IniNthSectionName(ini.get(), i, &name));
                count += IniNumberOfItems(ini.get(), name);
            }
            EXPECT_LE(count, 23);
            EXPECT_STREQ(nullptr, qkini::Fault(ini.get()));
            if (result == 1) {
                EXPECT_EQ(22, count) << "also without an index";
                EXPECT_EQ(1, IniItemExists(ini.get(), "s", "t19"));
            }
        },
        FailAllocation::kBlocks);
}

TEST(IniFile, OutOfMemoryWhileEditing)
{
    const std::string text = ";s\n[s]\n;a\na=1\n;b\nb=2\n;t\n[t]\nc=3\n";
    FaultLoop(
        [&](auto failed) {
            const IniOwner ini = NewIni();
            if (ini == nullptr) {
                return;
            }
            IniSetReadOptions(ini.get(), kIniReadKeepComments);
            if (ReadText(ini.get(), text) != 1) {
                return;
            }
            const auto expect = [&](int result, bool isUnchanged) {
                EXPECT_EQ(result == 1 ? 1 : kIniErrMemory, result);
                EXPECT_TRUE(result == 1 || (failed() && isUnchanged));
            };
            const auto has = [&](const char* section, const char* tag) {
                return IniItemExists(ini.get(), section, tag) == 1;
            };
            int result = IniPutString(ini.get(), "s", "a", "new\n");
            expect(result, RawValue(ini.get(), "s", "a") == "1");
            result = IniPutString(ini.get(), "new", "x", "y");
            expect(result, IniSectionExists(ini.get(), "new") == 0);
            result = IniPutString(ini.get(), "s", "x", "y");
            expect(result, !has("s", "x"));
            result = IniRemoveItem(ini.get(), "s", "b");
            expect(result, has("s", "b"));
            result = IniRenameSection(ini.get(), "t", "u");
            expect(result, has("t", "c"));
            result = IniRemoveSection(ini.get(), "s");
            expect(result, has("s", "a"));
            char* copy = nullptr;
            result = IniGetStringCopy(ini.get(), "u", "c", &copy);
            EXPECT_TRUE(result == 1 || copy == nullptr);
            std::free(copy);
            const char* const cutBySearch = "xxxxxxxxxxxxxx\" \"\"a";
            expect(IniPutStringWithOptions(ini.get(), "u", "v", cutBySearch, 0, 0), !has("u", "v"));
            IniSetWriteOptions(ini.get(), 17, 0, 0);
            const auto ignore = [](void*, const char*) { return 1; };
            expect(IniWrite(ini.get(), ignore, nullptr), true);
            EXPECT_STREQ(nullptr, qkini::Fault(ini.get()));
        },
        FailAllocation::kBlocks);
}

TEST(IniFile, DuplicatesStandBesideEachOtherUnlessTheyAreChecked)
{
    const IniOwner ini = NewIni();
    EXPECT_EQ(1, IniSetDuplicateChecking(ini.get(), 0));
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(1, IniPutInt(ini.get(), "s", i % 2 == 0 ? "even" : "odd", i));
    }
    EXPECT_EQ(30, IniNumberOfItems(ini.get(), "s"));
    for (int i = 0; i < 30; i += 2) {
        EXPECT_EQ(std::to_string(i), RawValue(ini.get(), "s", "even")) << "the first one left";
        EXPECT_EQ("1", RawValue(ini.get(), "s", "odd"));
        ASSERT_EQ(1, IniRemoveItem(ini.get(), "s", "even"));
    }
    EXPECT_EQ(0, IniItemExists(ini.get(), "s", "even"));
    EXPECT_EQ(0, IniSetDuplicateChecking(ini.get(), 1));
    EXPECT_EQ(15, IniNumberOfItems(ini.get(), "s"));
}

}  // namespace

// In the place of the C library's own, which it calls.
extern "C" locale_t newlocale(int mask, const char* name, locale_t base) noexcept
{
    ++gNewLocales;
    using NewLocale = locale_t (*)(int, const char*, locale_t);
    return reinterpret_cast<NewLocale>(dlsym(RTLD_NEXT, "newlocale"))(mask, name, base);
}
