// The operations on whole texts. Each runs on narrow text and on the same text made wide.
#include <gtest/gtest.h>

#include <cctype>
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

std::vector<std::wstring> Wide(const Texts& texts)
{
    std::vector<std::wstring> wide;
    for (const std::string& text : texts) {
        wide.push_back(Wide(text));
    }
    return wide;
}

// What a row's operation makes of texts of one kind; `as` makes a text of it.
template <typename Text, typename As>
Text Result(const Json& row, As as)
{
    const std::string& op = row["op"].Str();
    Text text = as(row["text"].Str());
    const auto part = [&](const char* name) { return as(row[name].Str()); };
    if (op == "Left") {
        return SU::Left(text, row["n"].UInt());
    }
    if (op == "Right") {
        return SU::Right(text, row["n"].UInt());
    }
    if (op == "Trim") {
        SU::Trim(text, static_cast<int32>(row["mode"].Int()));
    } else if (op == "SearchAndReplace") {
        SU::SearchAndReplace(&text, part("find"), part("replace"));
    } else if (op == "RemoveLineComments") {
        SU::RemoveLineComments(text, part("marker"));
    } else if (op == "RemoveBlockComments") {
        SU::RemoveBlockComments(text, part("open"), part("close"));
    } else {
        ADD_FAILURE() << "unknown operation in " << row.Line();
    }
    return text;
}

TEST(StringUtilsText, Vectors)
{
    int rows = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/text_utilities.jsonl")) {
        SCOPED_TRACE(row.Line());
        const std::string& op = row["op"].Str();
        const auto narrow = [](const std::string& text) { return text; };
        const auto wide = [](const std::string& text) { return Wide(text); };
        if (op == "CaseInsensitiveCompare") {
            const std::string &a = row["a"].Str(), &b = row["b"].Str();
            EXPECT_EQ(SU::CaseInsensitiveCompare(a, b), row["result"].Int());
            EXPECT_EQ(SU::CaseInsensitiveCompare(Wide(a), Wide(b)), row["result"].Int());
            EXPECT_EQ(SU::CaseInsensitiveEqual(a, b), row["result"].Int() == 0);
            EXPECT_EQ(SU::CaseInsensitiveEqual(Wide(a), Wide(b)), row["result"].Int() == 0);
        } else if (op == "IsSurroundedByQuotes") {
            EXPECT_EQ(SU::IsSurroundedByQuotes(row["text"].Str()), row["result"].Int() != 0);
            EXPECT_EQ(SU::IsSurroundedByQuotes(Wide(row["text"].Str())), row["result"].Int() != 0);
        } else if (op == "Split") {
            Texts expected;
            std::string expectedText;
            for (const Json& item : row["items"].Items()) {
                expectedText += (expected.empty() ? "" : "--") + item.Str();
                expected.push_back(item.Str());
            }
            const int32 mode = static_cast<int32>(row["mode"].Int());
            Texts items = {"old"};
            SU::Split(row["text"].Str(), row["delimiters"].Str(), items, mode);
            EXPECT_EQ(items, expected);
            std::vector<std::wstring> wideItems = {L"old"};
            SU::Split(Wide(row["text"].Str()), Wide(row["delimiters"].Str()), wideItems, mode);
            EXPECT_EQ(wideItems, Wide(expected));
            std::string joined = "old";
            SU::Join(items, "--", joined);
            EXPECT_EQ(joined, expectedText);
            std::wstring wideJoined = L"old";
            SU::Join(wideItems, L"--", wideJoined);
            EXPECT_EQ(wideJoined, Wide(expectedText));
        } else {
            EXPECT_EQ(Result<std::string>(row, narrow), row["result"].Str());
            EXPECT_EQ(Result<std::wstring>(row, wide), Wide(row["result"].Str()));
        }
        ++rows;
    }
    EXPECT_EQ(rows, 127);
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
    std::string narrow[3];
    std::wstring wide[3];
    for (int c = 0; c < 0x100; ++c) {
        narrow[0] += static_cast<char>(c);
        narrow[1] += static_cast<char>(std::toupper(c));
        narrow[2] += static_cast<char>(std::tolower(c));
    }
    const std::wstring others = {0x141, 0x10FFFF, static_cast<wchar_t>(0x80000061), -1};
    for (int i = 0; i < 3; ++i) {
        wide[i] = Wide(narrow[i]) + others;
    }
    std::string upper = narrow[0], lower = narrow[0];
    std::wstring wideUpper = wide[0], wideLower = wide[0];
    SU::ToUpperCase(upper);
    SU::ToUpperCase(wideUpper);
    EXPECT_TRUE(upper == narrow[1] && wideUpper == wide[1]);
    SU::ToLowerCase(lower);
    SU::ToLowerCase(wideLower);
    EXPECT_TRUE(lower == narrow[2] && wideLower == wide[2]);
    EXPECT_TRUE(SU::CaseInsensitiveEqual(L"aZ" + others, L"Az" + others));
    EXPECT_EQ(SU::CaseInsensitiveCompare(L"aZ" + others, L"Az" + others), 0);
}

TEST(StringUtilsText, Ends)
{
    struct Case {
        const char *text, *end;
        bool starts, ends;
    };
    for (const Case& c : {Case{"abc", "ab", true, false},
                          {"abc", "bc", false, true},
                          {"bc", "abc", false, false},
                          {"bc", "bcd", false, false},
                          {"a", "a", true, true},
                          {"abc", "a", true, false},
                          {"abc", "c", false, true},
                          {"abc", "b", false, false},
                          {"", "a", false, false},
                          {"ab", "", true, true}}) {
        const std::string text = c.text, end = c.end;
        SCOPED_TRACE(text + " / " + end);
        EXPECT_TRUE(SU::StartsWith(text, end) == c.starts && SU::StartsWith(Wide(text), Wide(end)) == c.starts);
        EXPECT_TRUE(SU::EndsWith(text, end) == c.ends && SU::EndsWith(Wide(text), Wide(end)) == c.ends);
        if (end.size() == 1) {
            EXPECT_TRUE(SU::StartsWith(text, end[0]) == c.starts && SU::EndsWith(text, end[0]) == c.ends);
            EXPECT_TRUE(SU::StartsWith(Wide(text), Wide(end)[0]) == c.starts);
            EXPECT_TRUE(SU::EndsWith(Wide(text), Wide(end)[0]) == c.ends);
        }
    }
}

}  // namespace
