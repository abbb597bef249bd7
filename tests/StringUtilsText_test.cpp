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

std::wstring Wide(const std::string& text)
{
    std::wstring wide;
    for (const char c : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
    }
    return wide;
}

std::vector<std::wstring> Wide(const std::vector<std::string>& texts)
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
        const std::string& op = row["op"].Str();
        const auto narrow = [](const std::string& text) { return text; };
        const auto wide = [](const std::string& text) { return Wide(text); };
        if (op == "CaseInsensitiveCompare") {
            const std::wstring a = Wide(row["a"].Str());
            const std::wstring b = Wide(row["b"].Str());
            EXPECT_EQ(SU::CaseInsensitiveCompare(a, b), row["result"].Int()) << row.Line();
            EXPECT_EQ(SU::CaseInsensitiveEqual(a, b), row["result"].Int() == 0) << row.Line();
        } else if (op == "IsSurroundedByQuotes") {
            EXPECT_EQ(SU::IsSurroundedByQuotes(row["text"].Str()), row["result"].Int() != 0) << row.Line();
            EXPECT_EQ(SU::IsSurroundedByQuotes(Wide(row["text"].Str())), row["result"].Int() != 0) << row.Line();
        } else if (op == "Split") {
            std::vector<std::string> expected;
            for (const Json& item : row["items"].Items()) {
                expected.push_back(item.Str());
            }
            const int32 mode = static_cast<int32>(row["mode"].Int());
            std::vector<std::string> items = {"old"};
            SU::Split(row["text"].Str(), row["delimiters"].Str(), items, mode);
            EXPECT_EQ(items, expected) << row.Line();
            std::vector<std::wstring> wideItems = {L"old"};
            SU::Split(Wide(row["text"].Str()), Wide(row["delimiters"].Str()), wideItems, mode);
            EXPECT_EQ(wideItems, Wide(expected)) << row.Line();
        } else {
            EXPECT_EQ(Result<std::string>(row, narrow), row["result"].Str()) << row.Line();
            EXPECT_EQ(Result<std::wstring>(row, wide), Wide(row["result"].Str())) << row.Line();
        }
        ++rows;
    }
    EXPECT_EQ(rows, 80);
}

TEST(StringUtilsText, SplitAndJoin)
{
    const struct {
        const char* text;
        const char* delimiters;
        std::vector<std::string> all;
        std::vector<std::string> notEmpty;
    } rows[] = {
        {"a,,b", ",", {"a", "", "b"}, {"a", "b"}},  {"", ",", {""}, {}},           {",", ",", {"", ""}, {}},
        {"a;b,", ",;", {"a", "b", ""}, {"a", "b"}}, {"a,b", "", {"a,b"}, {"a,b"}},
    };
    for (const auto& row : rows) {
        std::vector<std::string> items;
        for (const int32 mode : {0, 2, -1}) {
            SU::Split(row.text, row.delimiters, items, mode);
            EXPECT_EQ(items, row.all) << row.text << " " << mode;
        }
        std::wstring joined;
        SU::Join(Wide(items), L"--", joined);
        std::string expected;
        for (const std::string& item : items) {
            expected += (&item == items.data() ? "" : "--") + item;
        }
        EXPECT_EQ(joined, Wide(expected));
        SU::Split(row.text, row.delimiters, items, SU::kSplitDropEmpty);
        EXPECT_EQ(items, row.notEmpty) << row.text;
    }
    std::string joined = "old";
    SU::Join({}, ",", joined);
    EXPECT_EQ(joined, "");
}

TEST(StringUtilsText, Comments)
{
    const auto block = [](std::string text, const char* open = "/*", const char* close = "*/") {
        SU::RemoveBlockComments(text, open, close);
        return text;
    };
    EXPECT_EQ(block("a/*b"), "a/*b");
    EXPECT_EQ(block("1/*a*/2/*b*/3/*c"), "123/*c");
    EXPECT_EQ(block("/*/a*/b"), "b") << "an open marker lends nothing to the close marker";
    EXPECT_EQ(block("//**/**/", "/*", "*/"), "/**/") << "what comes together is not looked at again";
    EXPECT_EQ(block("abc", "", "c"), "abc");

    const auto line = [](std::string text, const char* marker) {
        SU::RemoveLineComments(text, marker);
        return text;
    };
    EXPECT_EQ(line("a//b\r\nc//d\n//e", "//"), "a\r\nc\n");
    EXPECT_EQ(line("a\nb", ""), "a\nb");
}

TEST(StringUtilsText, TargetsMayBeSources)
{
    std::vector<std::string> items = {"a,b", "c"};
    SU::Split(items[0], items[0], items, 0);
    EXPECT_EQ(items, (std::vector<std::string>{"", "", "", ""}));
    items = {"a", "b", "c"};
    SU::Join(items, items[1], items[1]);
    EXPECT_EQ(items[1], "abbbc");
    std::string text = "aa";
    SU::SearchAndReplace(&text, text, text);
    EXPECT_EQ(text, "aa");
    SU::RemoveBlockComments(text, text, text);
    EXPECT_EQ(text, "aa");
    SU::RemoveLineComments(text, text);
    EXPECT_EQ(text, "");

    SU::SearchAndReplace(static_cast<std::string*>(nullptr), "a", "b");
    text = "aaa";
    SU::SearchAndReplace(&text, "", "b");
    EXPECT_EQ(text, "aaa");
    SU::SearchAndReplace(&text, "aa", "baa");
    EXPECT_EQ(text, "baaa");
    SU::SearchAndReplace(&text, "b", "");
    EXPECT_EQ(text, "aaa");
}

TEST(StringUtilsText, CaseAndEnds)
{
    std::string bytes, uppers, lowers;
    for (int c = 0; c < 0x100; ++c) {
        bytes += static_cast<char>(c);
        uppers += static_cast<char>(std::toupper(c));
        lowers += static_cast<char>(std::tolower(c));
    }
    std::string narrow = bytes;
    std::wstring widened = Wide(bytes);
    SU::ToUpperCase(narrow);
    SU::ToUpperCase(widened);
    EXPECT_TRUE(narrow == uppers && widened == Wide(uppers)) << "bytes, as the locale has them";
    SU::ToLowerCase(narrow = bytes);
    SU::ToLowerCase(widened = Wide(bytes));
    EXPECT_TRUE(narrow == lowers && widened == Wide(lowers));
    // Values far outside a byte must not reach the C library's tables.
    std::wstring wide = {L'a', L'Z', 0x141, 0x10FFFF, static_cast<wchar_t>(0x80000061), -1};
    std::wstring upper = wide;
    SU::ToUpperCase(upper);
    EXPECT_EQ(upper, L"AZ" + wide.substr(2));
    EXPECT_TRUE(SU::CaseInsensitiveEqual(upper, wide));
    SU::ToLowerCase(wide);
    EXPECT_EQ(SU::CaseInsensitiveCompare(upper, wide), 0);
    EXPECT_EQ(SU::CaseInsensitiveCompare(L"ab", L"Ac"), -1);
    EXPECT_EQ(SU::CaseInsensitiveCompare(L"abc", L"AB"), 1);
    EXPECT_FALSE(SU::CaseInsensitiveEqual(L"abc", L"AB"));

    EXPECT_TRUE(SU::StartsWith(L"abc", L"ab") && SU::EndsWith(L"abc", L"bc"));
    EXPECT_TRUE(SU::StartsWith(L"abc", L'a') && SU::EndsWith(L"abc", L'c'));
    EXPECT_FALSE(SU::StartsWith(L"", L'a') || SU::EndsWith(L"bc", L"abc"));
    EXPECT_FALSE(SU::StartsWith(L"abc", L'b') || SU::EndsWith(L"abc", L'b') || SU::CaseInsensitiveEqual(L"a", L"b"));
    EXPECT_FALSE(SU::StartsWith("abc", 'b') || SU::EndsWith("abc", 'b'));
    EXPECT_TRUE(SU::Left(std::string("abc"), 0) == "abc" && SU::Left(std::wstring(L"abc"), 0) == L"abc");
    EXPECT_TRUE(SU::Right(std::string("abc"), 0) == "abc" && SU::Right(std::wstring(L"abc"), 0) == L"abc");
    std::string blanks = " \t ";
    SU::Trim(blanks, SU::kTrimBoth);
    EXPECT_EQ(blanks, "");
    for (const auto& [mode, trimmed] :
         {std::pair{0, "\t a b \t"}, {SU::kTrimLeft, "a b \t"}, {SU::kTrimRight, "\t a b"}, {SU::kTrimBoth, "a b"}}) {
        std::string text = "\t a b \t";
        SU::Trim(text, mode);
        EXPECT_EQ(text, trimmed) << mode;
    }
    std::string broken = "\t a \n";
    SU::Trim(broken, SU::kTrimBoth);
    EXPECT_EQ(broken, "a \n") << "a line break is no blank";
    EXPECT_TRUE(SU::IsSurroundedByQuotes(std::string("\"")));
    EXPECT_FALSE(SU::IsSurroundedByQuotes(std::string("'\"")) || SU::IsSurroundedByQuotes(std::string()));
}

}  // namespace
