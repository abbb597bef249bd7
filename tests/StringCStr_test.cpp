#include "StringCStr.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <iterator>
#include <random>
#include <string>

#include "FaultLoop.h"
#include "JsonLines.h"
#include "KzErr.h"
#include "PlatformText.h"
#include "ReportCatcher.h"

namespace {

TEST(StringCStr, Copying)
{
    char text[16] = "0123456789";
    EXPECT_EQ(StrCpy(text, text + 3), text);
    EXPECT_STREQ(text, "3456789");
    EXPECT_EQ(StrCat(text, "ab"), 9u);
    EXPECT_STREQ(text, "3456789ab");
    char twice[16] = "abc";
    EXPECT_EQ(StrCat(twice, twice), 6u);
    EXPECT_STREQ(twice, "abcabc");

    struct Case {
        const char* src;
        uInt32 n;
        const char* result;  // the first 6 bytes of a buffer of "......"
    };
    const Case cases[] = {{"ab", 0, "......"}, {"ab", 2, "ab...."}, {"abc", 2, "ab...."}, {"ab", 5, "ab\0\0\0."}};
    for (const Case& c : cases) {
        char dst[] = "......";
        EXPECT_EQ(StrNCpy(dst, c.src, c.n), dst);
        EXPECT_EQ(std::memcmp(dst, c.result, 6), 0) << c.src << " " << c.n;
    }
}

TEST(StringCStr, Searching)
{
    const char* text = "a.b.\xE9";
    EXPECT_EQ(StrRChr(text, '.'), text + 3);
    EXPECT_EQ(StrChr(text, 0xE9), text + 4);
    EXPECT_EQ(StrChr(text, 0x12E), text + 1) << "the low byte counts";
    EXPECT_EQ(StrRChr(text, 'z'), nullptr);
    EXPECT_EQ(StrChr(text, 0), nullptr);
    EXPECT_EQ(StrRChr(text, 0x100), nullptr);

    struct Case {
        const char *s, *pattern;
        KzBool found;
    };
    const Case cases[] = {{"", "", 0},         {" \t", "", 1},   {" \t", "a", 0},       {"my F i\tLE", "file", 1},
                          {"fi le", "i l", 0}, {"aab", "AB", 1}, {"fil e", "filed", 0}, {" ab", "AB", 1}};
    for (const Case& c : cases) {
        EXPECT_EQ(StrIStr(c.s, c.pattern), c.found) << c.s << " / " << c.pattern;
    }
}

TEST(StringCStr, Classes)
{
    const std::string punctuation = "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";
    for (int c = -256; c < 512; ++c) {
        const int byte = c & 0xFF;
        const bool upper = byte >= 'A' && byte <= 'Z';
        const bool lower = byte >= 'a' && byte <= 'z';
        ASSERT_EQ(IsAlpha(c), upper || lower) << c;
        ASSERT_EQ(IsDigit(c), byte >= '0' && byte <= '9') << c;
        ASSERT_EQ(IsPunct(c), byte != 0 && punctuation.find(static_cast<char>(byte)) != std::string::npos) << c;
        ASSERT_EQ(ToLower(c), std::tolower(byte)) << c;  // whatever the locale
        ASSERT_EQ(ToUpper(c), std::toupper(byte)) << c;
        ASSERT_EQ(IsUpper(c), std::tolower(byte) != byte) << c;
        ASSERT_EQ(IsLower(c), std::toupper(byte) != byte) << c;
    }
    EXPECT_TRUE(IsUpper('A') && IsLower('a') && !IsUpper('a') && !IsLower('A') && ToUpper('z') == 'Z');
    EXPECT_EQ(HexChar(-1), 'F');
}

TEST(StringCStr, DecimalPoint)
{
    EXPECT_EQ(StrGetDecimalPoint(), '.');
    StrSetDecimalPoint(0x1FF);
    EXPECT_EQ(StrGetDecimalPoint(), 0xFF);
    StrSetDecimalPoint('.');
}

TEST(StringCStr, CaseOfText)
{
    struct Case {
        std::string text, upper, lower;
    };
    const Case cases[] = {
        {"", "", ""},
        {"@AZ[`az{\x7F", "@AZ[`AZ{\x7F", "@az[`az{\x7F"},
        {std::string("aB\0\u00E9", 5), std::string("AB\0\u00C9", 5), std::string("ab\0\u00E9", 5)},
        {"stra\u00DFe", "STRASSe", "stra\u00DFe"},
        {"\uFB00x", "FF\x80x", "\uFB00x"},  // as many units, the rest of the bytes stays
        {"\u017Fab", "SABb", "\u017Fab"},   // shorter in bytes
        {"\u0130x", "\u0130X", "i\u0307"},  // longer in units
        {"\u023A", "\u023A", "\u023A"},     // the lower one does not fit
        {"\U00010428x", "\U00010400X", "\U00010428x"},
        {"\u00DF\U00010428", "SS?\x90\x90\xA8", "\u00DF\U00010428"},  // half a character
        {"a\xE9z", "A\xE9z", "a\xE9z"},                               // U+FFFD has no room
        {std::string("a\0\xE9z\x80---", 8), "A\uFFFD\uFFFDZ", "a\uFFFD\uFFFDz"},
    };
    for (const Case& c : cases) {
        std::string upper = c.text, lower = c.text;
        EXPECT_EQ(StrToUpper(upper.data(), static_cast<int32>(upper.size())), 0);
        EXPECT_EQ(upper, c.upper);
        EXPECT_EQ(StrToLower(lower.data(), static_cast<int32>(lower.size())), 0);
        EXPECT_EQ(lower, c.lower);
    }
    unsigned char byte[] = "a";
    EXPECT_EQ(StrToUpper(byte, -1), 0);
    EXPECT_EQ(byte[0], 'a');
}

// Any bytes become what the mapping of them as UTF-16 leaves of them.
TEST(StringCStr, CaseOfAnyBytes)
{
    const std::string pieces[] = {"a",
                                  "Z",
                                  "\u00DF",
                                  "\u0130",
                                  "\uFB03",
                                  "\u023A",
                                  "\U00010428",
                                  "\xE9",
                                  "\xF0\x90",
                                  "\xED\xA0\x80",
                                  std::string(1, '\0')};
    std::mt19937 engine(3);
    for (unsigned i = 0; i < kztest::ModelSequences(); ++i) {
        std::string text;
        for (std::size_t n = engine() % 12; text.size() < n;) {
            text += pieces[engine() % (i % 2 == 0 ? 8 : std::size(pieces))];
        }
        auto* const bytes = reinterpret_cast<unsigned char*>(text.data());
        PlatformText model;
        if (model.SetUtf8(bytes, text.size()) != PlatformText::kDone) {
            model.SetEscapedUtf8(bytes, text.size());
        }
        const std::size_t units = model.Length();
        (i % 3 == 0) ? model.Lower() : model.Upper();
        std::string expected = text;
        model.GetUtf8(0, units, reinterpret_cast<unsigned char*>(expected.data()), expected.size());
        const int32 length = static_cast<int32>(text.size());
        EXPECT_EQ(i % 3 == 0 ? StrToLower(bytes, length) : StrToUpper(bytes, length), 0);
        ASSERT_EQ(text, expected);
    }
}

// Only long text needs memory.
TEST(StringCStr, CaseOfTextOutOfMemory)
{
    const std::string letters(249, 'x'), capitals(249, 'X');
    for (const std::size_t before : {0u, 248u, 249u}) {
        const std::string old = letters.substr(0, before) + "stra\u00DFe";
        const std::string mapped = capitals.substr(0, before) + "STRASSe";
        char text[256];
        const int32 length = static_cast<int32>(old.size());
        kztest::FaultLoop([&](const auto& failed) {
            old.copy(text, old.size());
            const KzErr err = StrToUpper(text, length);
            const bool fails = before == 249 && failed();
            EXPECT_EQ(err, fails ? kzErrMemoryFull : kzErrNone);
            EXPECT_EQ(0, std::memcmp(text, fails ? old.data() : mapped.data(), old.size()));
        });
    }
}

TEST(StringCStr, CharacterSteps)
{
    for (const kztest::Json& row : kztest::ReadJsonLines("vectors/utf8.jsonl")) {
        const std::string& op = row["op"].Str();
        if (op == "StrNextChar" || op == "StrPrevChar") {
            const std::string bytes = row["bytes"].Hex();
            const int32 index = static_cast<int32>(row["index"].Int());
            EXPECT_EQ(op == "StrNextChar" ? StrNextChar(bytes.data(), index) : StrPrevChar(bytes.data(), index),
                      row["result"].Int())
                << row.Line();
        }
    }
    EXPECT_EQ(StrNextChar("\xFC", 0), 6);
    EXPECT_EQ(StrNextChar("\xFE", 0), 1);
    EXPECT_EQ(StrNextChar("\xFF", 0), 1);
    EXPECT_EQ(StrPrevChar("a\x80", 2), 1);
    EXPECT_EQ(StrPrevChar("\x80\x80\x80", 3), 2);

    kztest::ReportCatcher reports;
    EXPECT_EQ(StrPrevChar("abc", -1), 0);
    EXPECT_TRUE(reports.Take(kDbgWarning, "Negative index into string in StrPrevChar"));
}

}  // namespace
