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

TEST(StringCStr, Vectors)
{
    const auto place = [](const Json& row, char* (*call)(const char*, int32)) {
        const char* const s = row["s"].Str().c_str();
        const char* const found = call(s, static_cast<int32>(row["c"].Int()));
        EXPECT_EQ(found == nullptr ? -1 : found - s, row["result"].Int());
    };
    const auto step = [](const Json& row, int32 (*call)(const char*, int32)) {
        EXPECT_EQ(call(row["bytes"].Hex().data(), static_cast<int32>(row["index"].Int())), row["result"].Int());
    };
    const auto isIn = [](const Json& row) {
        EXPECT_EQ(StrIStr(row["s"].Str().c_str(), row["pattern"].Str().c_str()), row["result"].Int());
    };
    const auto copy = [](const Json& row) {
        char dst[] = "......";
        EXPECT_EQ(StrNCpy(dst, row["s"].Str().c_str(), static_cast<uInt32>(row["n"].UInt())), dst);
        EXPECT_EQ(std::string(dst, 6), row["result"].Str());
    };
    const auto mapCase = [](const Json& row) {
        std::string upper = row["bytes"].Hex(), lower = upper;
        EXPECT_EQ(StrToUpper(upper.data(), static_cast<int32>(upper.size())), 0);
        EXPECT_EQ(upper, row["upper"].Hex());
        EXPECT_EQ(StrToLower(lower.data(), static_cast<int32>(lower.size())), 0);
        EXPECT_EQ(lower, row["lower"].Hex());
    };
    kztest::CheckRows("vectors/short_strings.jsonl", {{"StrIStr", isIn},
                                                      {"StrNCpy", copy},
                                                      {"StrChr", [&](const Json& row) { place(row, &StrChr); }},
                                                      {"StrRChr", [&](const Json& row) { place(row, &StrRChr); }}});
    kztest::CheckRows("vectors/utf8.jsonl", {{"StrNextChar", [&](const Json& row) { step(row, &StrNextChar); }},
                                             {"StrPrevChar", [&](const Json& row) { step(row, &StrPrevChar); }},
                                             {"StrToUpperAndLower", mapCase}});
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
