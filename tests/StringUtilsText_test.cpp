// Hashes, the tables of case, and the operations on whole texts. Each of these runs on narrow text and on the same text
// made wide.
#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <string>
#include <vector>

#include "JsonLines.h"
#include "StringUtils.h"

namespace {

using kztest::Json;
using SU = StringUtils;
using Texts = std::vector<std::string>;

std::wstring Wide(const std::string& text)
{
    std::wstring wide;
    for (const char c : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
    }
    return wide;
}

// What each operation makes of a text, and whether that is what the row says; `as` makes a text of one kind.
template <typename Text>
void CheckRow(const Json& row, Text (*as)(const std::string&))
{
    const std::string& op = row["op"].Str();
    const auto part = [&](const char* name) { return as(row[name].Str()); };
    if (op == "CaseInsensitiveCompare") {
        EXPECT_EQ(SU::CaseInsensitiveCompare(part("a"), part("b")), row["result"].Int());
        EXPECT_EQ(SU::CaseInsensitiveEqual(part("a"), part("b")), row["result"].Int() == 0);
        return;
    }
    Text text = part("text");
    if (op == "IsSurroundedByQuotes") {
        EXPECT_EQ(SU::IsSurroundedByQuotes(text), row["result"].Int() != 0);
    } else if (op == "Ends") {
        const Text end = part("end");
        const bool starts = row["starts"].Int() != 0, ends = row["ends"].Int() != 0;
        EXPECT_TRUE(SU::StartsWith(text, end) == starts && SU::EndsWith(text, end) == ends);
        EXPECT_TRUE(end.size() != 1 || SU::StartsWith(text, end[0]) == starts);
        EXPECT_TRUE(end.size() != 1 || SU::EndsWith(text, end[0]) == ends);
    } else if (op == "Split") {
        std::vector<Text> items = {as("old")}, expected;
        Text joined = as("old"), expectedText;
        for (const Json& item : row["items"].Items()) {
            expectedText += (expected.empty() ? Text() : as("--")) + as(item.Str());
            expected.push_back(as(item.Str()));
        }
        SU::Split(text, part("delimiters"), items, static_cast<int32>(row["mode"].Int()));
        EXPECT_EQ(items, expected);
        SU::Join(items, as("--"), joined);
        EXPECT_EQ(joined, expectedText);
    } else {
        if (op == "Trim") {
            SU::Trim(text, static_cast<int32>(row["mode"].Int()));
        } else if (op == "SearchAndReplace") {
            SU::SearchAndReplace(&text, part("find"), part("replace"));
        } else if (op == "RemoveLineComments") {
            SU::RemoveLineComments(text, part("marker"));
        } else if (op == "RemoveBlockComments") {
            SU::RemoveBlockComments(text, part("open"), part("close"));
        } else if (op == "Left" || op == "Right") {
            text = op == "Left" ? SU::Left(text, row["n"].UInt()) : SU::Right(text, row["n"].UInt());
        } else {
            ADD_FAILURE() << "unknown operation";
        }
        EXPECT_EQ(text, part("result"));
    }
}

TEST(StringUtilsText, Vectors)
{
    const std::vector<Json> rows = kztest::ReadJsonLines("vectors/text_utilities.jsonl");
    for (const Json& row : rows) {
        SCOPED_TRACE(row.Line());
        CheckRow<std::string>(row, [](const std::string& text) { return text; });
        CheckRow<std::wstring>(row, &Wide);
    }
    EXPECT_EQ(rows.size(), 137u);
}

TEST(StringUtilsText, TargetsMayBeSources)
{
    Texts items = {"a,b", "c"};
    SU::Split(items[0], items[0], items, 0);
    EXPECT_EQ(items, (Texts{"", "", "", ""}));
    items = {"a", "b", "c"};
    SU::Join(items, items[1], items[1]);
    EXPECT_EQ(items[1], "abbbc");
    std::string text = "aa";
    SU::SearchAndReplace(&text, text, text);
    EXPECT_EQ(text, "aa");
    SU::SearchAndReplace(static_cast<std::string*>(nullptr), "a", "b");
    SU::RemoveBlockComments(text, text, text);
    EXPECT_EQ(text, "aa");
    SU::RemoveLineComments(text, text);
    EXPECT_EQ(text, "");
}

// Bytes have the case of the locale; what lies far outside a byte must not reach the C library's tables.
TEST(StringUtilsText, Case)
{
    std::string bytes, uppers, lowers;
    for (int c = 0; c < 0x100; ++c) {
        bytes += static_cast<char>(c);
        uppers += static_cast<char>(std::toupper(c));
        lowers += static_cast<char>(std::tolower(c));
    }
    const std::wstring others = {0x141, 0x10FFFF, static_cast<wchar_t>(0x80000061), -1};
    std::string upper = bytes, lower = bytes;
    std::wstring wideUpper = Wide(bytes) + others, wideLower = wideUpper;
    SU::ToUpperCase(upper);
    SU::ToUpperCase(wideUpper);
    SU::ToLowerCase(lower);
    SU::ToLowerCase(wideLower);
    EXPECT_TRUE(upper == uppers && wideUpper == Wide(uppers) + others);
    EXPECT_TRUE(lower == lowers && wideLower == Wide(lowers) + others);
    EXPECT_TRUE(SU::CaseInsensitiveEqual(L"aZ" + others, L"Az" + others));
    EXPECT_EQ(SU::CaseInsensitiveCompare(L"aZ" + others, L"Az" + others), 0);
}

// The paths' tree keeps hashes that are made before the tables are filled, while they are in use, and after.
TEST(StringUtilsText, HashIsTheSameBeforeAndAfterTheServiceRuns)
{
    const auto checkRow = [](const Json& row) {
        const std::string& text = row["text"].Str();
        const bool ignoreCase = row["ignoreCase"].Int() != 0;
        const uInt32 length = static_cast<uInt32>(row["length"].UInt());
        EXPECT_EQ(length == ~0u ? SU::Hash(text.c_str(), ignoreCase) : SU::Hash(text.c_str(), length, ignoreCase),
                  row["hash"].UInt());
    };
    const auto check = [&](const std::string& when) {
        SCOPED_TRACE(when);
        EXPECT_EQ(SU::Hash("title", true), SU::Hash("TITLE", false));
        EXPECT_TRUE(SU::CaseInsensitiveEqual("TITLE", "title"));
        kztest::CheckRows("vectors/hashes.jsonl", {{"Hash", checkRow}});
    };
    check("before: ");
    EXPECT_EQ(StringUtilsLocaleCacheService()->Init(), 0);
    check("running: ");
    EXPECT_EQ(StringUtilsLocaleCacheService()->Uninit(), 0);
    check("after: ");

    EXPECT_EQ(SU::Hash(std::string("ab\0c", 4), false), SU::Hash("ab", false));
    EXPECT_EQ(SU::Hash("\xFF", false), 0x0FFFFF0Fu) << "bytes above 0x7F subtract";
    EXPECT_EQ(SU::Hash(nullptr, false), 0u);
    EXPECT_EQ(SU::Hash(nullptr, true), 0u);
}

// From 0x80 up the tables have the case of the locale that is in force when the service starts; 0xFF, which the C
// library takes for the end of a file, has none. Below they are ASCII in each locale.
TEST(StringUtilsText, CaseTablesComeFromTheLocale)
{
    const auto mapped = [](int c, int first, int shift, int (*byLocale)(int)) {
        const bool isLetter = c >= first && c < first + 26;
        return static_cast<char>(c < 0x80 ? c + (isLetter ? shift : 0) : c == 0xFF ? c : byLocale(c));
    };
    const std::string before = std::setlocale(LC_CTYPE, nullptr);
    for (const char* const locale : {before.c_str(), "C", before.c_str()}) {
        ASSERT_NE(std::setlocale(LC_CTYPE, locale), nullptr);
        EXPECT_EQ(StringUtilsLocaleCacheService()->Init(), 0);
        for (int a = 0; a < 0x100; ++a) {
            const std::string text(1, static_cast<char>(a)), upper(1, mapped(a, 'a', -32, std::toupper));
            EXPECT_EQ(SU::Hash(text, true), SU::Hash(upper, false)) << locale << " " << a;
            for (int b = 0; b < 0x100; ++b) {
                const bool isEqual = mapped(a, 'A', 32, std::tolower) == mapped(b, 'A', 32, std::tolower);
                const std::string other(1, static_cast<char>(b));
                ASSERT_EQ(SU::CaseInsensitiveEqual(text, other), isEqual) << locale << " " << a << " " << b;
            }
        }
        EXPECT_EQ(StringUtilsLocaleCacheService()->Uninit(), 0);
    }
}

}  // namespace
