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

using kztest::Json;

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
}

TEST(StringCStr, Vectors)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/short_strings.jsonl")) {
        SCOPED_TRACE(row.Line());
        const std::string& s = row["s"].Str();
        if (row["op"].Str() == "StrIStr") {
            EXPECT_EQ(StrIStr(s.c_str(), row["pattern"].Str().c_str()), row["result"].Int());
        } else if (row["op"].Str() == "StrNCpy") {
            char dst[] = "......";
            EXPECT_EQ(StrNCpy(dst, s.c_str(), static_cast<uInt32>(row["n"].UInt())), dst);
            EXPECT_EQ(std::string(dst, 6), row["result"].Str());
        }
    }
    for (const Json& row : kztest::ReadJsonLines("vectors/utf8.jsonl")) {
        SCOPED_TRACE(row.Line());
        const std::string& op = row["op"].Str();
        if (op == "StrNextChar" || op == "StrPrevChar") {
            const std::string bytes = row["bytes"].Hex();
            const int32 index = static_cast<int32>(row["index"].Int());
            EXPECT_EQ(op == "StrNextChar" ? StrNextChar(bytes.data(), index) : StrPrevChar(bytes.data(), index),
                      row["result"].Int());
        } else if (op == "StrToUpperAndLower") {
            std::string upper = row["bytes"].Hex(), lower = upper;
            EXPECT_EQ(StrToUpper(upper.data(), static_cast<int32>(upper.size())), 0);
            EXPECT_EQ(upper, row["upper"].Hex());
            EXPECT_EQ(StrToLower(lower.data(), static_cast<int32>(lower.size())), 0);
            EXPECT_EQ(lower, row["lower"].Hex());
        }
    }
    unsigned char byte[] = "a";
    EXPECT_EQ(StrToUpper(byte, -1), 0);
    EXPECT_EQ(byte[0], 'a');
    kztest::ReportCatcher reports;
    EXPECT_EQ(StrPrevChar("abc", -1), 0);
    EXPECT_TRUE(reports.Take(kDbgWarning, "Negative index into string in StrPrevChar"));
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

// Any bytes become what the mapping of them as UTF-16 leaves of them.
TEST(StringCStr, CaseOfAnyBytes)
{
    const std::string pieces[] = {"a",      "Z",          "\u00DF", "\u0130",   "\uFB03",       "\u023A",
                                  "\u017F", "\U00010428", "\xE9",   "\xF0\x90", "\xED\xA0\x80", std::string(1, 0)};
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

}  // namespace
