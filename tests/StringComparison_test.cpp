// The comparisons of all string families, on stored results and on every position of a difference.
#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <string>

#include "JsonLines.h"
#include "StringCStr.h"
#include "StringLStr.h"
#include "StringPStr.h"
#include "StringUtils.h"
#include "TestStrings.h"

namespace {

using kztest::Json;
using kztest::LStrValue;
using kztest::PStrValue;

// The arguments of a row, in the form of each family.
struct Args {
    const Json& row;

    const char* C(const char* key) const { return row[key].Str().c_str(); }
    uInt32 N() const { return static_cast<uInt32>(row["n"].UInt()); }
    PStrValue P(const char* key) const { return PStrValue(row[key].Str()); }
    LStrValue L(const char* key) const { return row[key].IsNull() ? LStrValue() : LStrValue(row[key].Str()); }
    const void* Ptr(const char* key) const { return row[key].IsNull() ? nullptr : C(key); }
    int32 Len(const char* key) const { return row[key].IsNull() ? 0 : static_cast<int32>(row[key].Str().size()); }
};

int32 CompareHandles(const Args& args)
{
    LStrValue aText = args.L("a"), bText = args.L("b");
    LStr *a = aText.Get(), *b = bText.Get();
    return LHStrCaseCmp(a == nullptr ? nullptr : &a, b == nullptr ? nullptr : &b);
}

TEST(StringComparison, StoredResults)
{
    const std::map<std::string, int32 (*)(const Args&)> compares = {
        {"StrCmp", [](const Args& x) { return StrCmp(x.C("a"), x.C("b")); }},
        {"StrCaseCmp", [](const Args& x) { return StrCaseCmp(x.C("a"), x.C("b")); }},
        {"StrNCmp", [](const Args& x) { return StrNCmp(x.C("a"), x.C("b"), x.N()); }},
        {"StrNCaseCmp", [](const Args& x) { return StrNCaseCmp(x.C("a"), x.C("b"), x.N()); }},
        {"PStrCmp", [](const Args& x) { return PStrCmp(x.P("a"), x.P("b")); }},
        {"PStrCaseCmp", [](const Args& x) { return PStrCaseCmp(x.P("a"), x.P("b")); }},
        {"PStrEqual", [](const Args& x) { return PStrEqual(x.P("a"), x.P("b")); }},
        {"PStrCaseEqual", [](const Args& x) { return PStrCaseEqual(x.P("a"), x.P("b")); }},
        {"LStrCmp", [](const Args& x) { return LStrCmp(x.L("a").Get(), x.L("b").Get()); }},
        {"LStrCaseCmp", [](const Args& x) { return LStrCaseCmp(x.L("a").Get(), x.L("b").Get()); }},
        {"LStrEqual", [](const Args& x) { return LStrEqual(x.L("a").Get(), x.L("b").Get()); }},
        {"LStrCaseEqual", [](const Args& x) { return LStrCaseEqual(x.L("a").Get(), x.L("b").Get()); }},
        {"LHStrCaseCmp", CompareHandles},
        {"PtrLenStrCmp", [](const Args& x) { return PtrLenStrCmp(x.Ptr("a"), x.Len("a"), x.Ptr("b"), x.Len("b")); }},
        {"PtrLenStrCaseCmp",
         [](const Args& x) { return PtrLenStrCaseCmp(x.Ptr("a"), x.Len("a"), x.Ptr("b"), x.Len("b")); }},
    };
    const auto sign = [](long long value) { return (value > 0) - (value < 0); };
    for (const Json& row : kztest::ReadJsonLines("vectors/comparisons.jsonl")) {
        const int32 result = compares.at(row["op"].Str())({row});
        const long long expected = row["result"].Int();
        EXPECT_EQ(row.Has("signOnly") ? sign(result) : result, row.Has("signOnly") ? sign(expected) : expected)
            << row.Line();
    }
}

// A difference at each place of texts of each length, so that whole blocks, their ends and the rest are all met.
TEST(StringComparison, DifferenceAtEachPosition)
{
    struct Pair {
        unsigned char a, b;
    };
    const Pair pairs[] = {{'k', 'K'}, {'Q', 'q'},   {'a', 'C'},   {'@', '`'}, {'[', '{'},
                          {'z', 'Z'}, {0xC9, 0xE9}, {0x41, 0xC1}, {1, '!'}};
    EXPECT_EQ(StringUtilsLocaleCacheService()->Init(), 0);  // StringUtils too follows the locale, above ASCII
    for (std::size_t n = 1; n <= 150; n += n < 50 ? 1 : 25) {
        // Letters of both cases around it: they must not hide it. No I, whose case the locale may see otherwise.
        const std::string alphabet = "ABCDEFGHJKLMNOPQRSTUVWXYZ";
        std::string a, b;
        for (std::size_t i = 0; i < n; ++i) {
            const int letter = alphabet[i % alphabet.size()];
            a += static_cast<char>(letter + (i % 3 == 0 ? 0 : 32));
            b += static_cast<char>(letter + (i % 5 == 0 ? 0 : 32));
        }
        for (std::size_t place = 0; place < n * std::size(pairs); ++place) {
            const std::size_t at = place % n;
            const Pair& pair = pairs[place / n];
            std::string left = a, right = b;
            left[at] = static_cast<char>(pair.a);
            right[at] = static_cast<char>(pair.b);
            const int32 length = static_cast<int32>(n);
            const int32 folded = std::tolower(pair.a) - std::tolower(pair.b);
            const int32 sign = (folded > 0) - (folded < 0);
            ASSERT_EQ(PtrLenStrCaseCmp(left.data(), length, right.data(), length), folded) << n << " " << at;
            ASSERT_EQ(StrCaseCmp(left.c_str(), right.c_str()), folded) << n << " " << at;
            ASSERT_EQ(StringUtils::CaseInsensitiveCompare(left, right), sign) << n << " " << at;
            right = left;
            right[at] = static_cast<char>(pair.b);
            ASSERT_EQ(PtrLenStrCmp(left.data(), length, right.data(), length), pair.a - pair.b) << n << " " << at;
            ASSERT_EQ(StrCmp(left.c_str(), right.c_str()), pair.a - pair.b) << n << " " << at;
            ASSERT_EQ(LStrCmp(LStrValue(left).Get(), LStrValue(right).Get()) < 0, pair.a < pair.b) << n << " " << at;
            // A prefix, and a limit before the difference and just behind it.
            const uInt32 before = static_cast<uInt32>(at);
            ASSERT_EQ(StrCmp(left.substr(0, at).c_str(), right.c_str()), -pair.b) << n << " " << at;
            ASSERT_EQ(StrCmp(left.c_str(), right.substr(0, at).c_str()), 1) << n << " " << at;
            ASSERT_EQ(StrNCmp(left.c_str(), right.c_str(), before), 0) << n << " " << at;
            ASSERT_EQ(StrNCaseCmp(left.c_str(), right.c_str(), before + 1), folded) << n << " " << at;
        }
    }
    EXPECT_EQ(StringUtilsLocaleCacheService()->Uninit(), 0);
}

// Folding follows the locale, in each way to compare.
TEST(StringComparison, EachPairOfBytes)
{
    for (int a = 1; a < 256; ++a) {
        for (int b = 1; b < 256; ++b) {
            const int32 folded = std::tolower(a) - std::tolower(b);
            const std::string few[] = {{static_cast<char>(a)}, {static_cast<char>(b)}};
            ASSERT_EQ(StrCaseCmp(few[0].c_str(), few[1].c_str()), folded);
            ASSERT_EQ(StrNCaseCmp(few[0].c_str(), few[1].c_str(), 2), folded);
            const std::string left = few[0] + std::string(20, 'x'), right = few[1] + std::string(20, 'X');
            ASSERT_EQ(PtrLenStrCaseCmp(left.data(), 21, right.data(), 21), folded);
            ASSERT_EQ(PtrLenStrCaseCmp(left.data(), 9, right.data(), 9), folded);
        }
    }
}

TEST(StringComparison, CStrEnds)
{
    EXPECT_EQ(StrCmp("abc", "ab"), 1);
    EXPECT_EQ(StrCmp("ab", "abc"), -'c');
    EXPECT_EQ(StrNCmp("ab", "abc", 4000000000u), -'c');
    EXPECT_EQ(StrNCaseCmp("ab", "ABC", 9), -'C') << "the byte behind a's end is not folded";
    EXPECT_TRUE(StrEqual("ab", "ab") && !StrEqual("ab", "a") && StrNEqual("abX", "abY", 2) &&
                !StrNEqual("ab", "a", 2) && StrNCaseEqual("ABx", "abY", 2) && !StrNCaseEqual("AB", "a", 2));
    // No terminator within the limit: nothing beyond it is read.
    const PStrValue three("abc");
    EXPECT_EQ(StrNCmp(reinterpret_cast<const char*>(+three) + 1, "abcd", 3), 0);
}

TEST(StringComparison, CountedNullAndEmpty)
{
    LStrValue empty(""), text("a");
    LStr* emptyMaster = empty.Get();
    LStr* textMaster = text.Get();
    struct Case {
        const LStr *a, *b;
        int order;
    };
    const Case cases[] = {{nullptr, nullptr, 0},
                          {nullptr, empty.Get(), 0},
                          {empty.Get(), nullptr, 0},
                          {nullptr, text.Get(), -1},
                          {text.Get(), nullptr, 1}};
    for (const Case& c : cases) {
        EXPECT_EQ(LStrCmp(c.a, c.b), c.order);
        EXPECT_EQ(LStrCaseCmp(c.a, c.b), c.order);
        EXPECT_EQ(LStrEqual(c.a, c.b), c.order == 0);
        EXPECT_EQ(LStrCaseEqual(c.a, c.b), c.order == 0);
    }
    EXPECT_EQ(LHStrEqual(nullptr, &emptyMaster), 1);
    EXPECT_EQ(LHStrEqual(nullptr, &textMaster), 0);
    EXPECT_EQ(LHStrCmp(&textMaster, nullptr), 1);
    EXPECT_EQ(LHStrCaseCmp(&textMaster, nullptr), 1);
    EXPECT_EQ(PLStrCmp(PStrValue("abc"), nullptr), 3);
    EXPECT_EQ(PLStrCaseCmp(PStrValue("AB"), LStrValue("abc").Get()), -1);
    EXPECT_EQ(PLStrCmp(PStrValue("AB"), LStrValue("aB").Get()), 'A' - 'a');
    EXPECT_EQ(PtrLenStrCmp("ab", 0, nullptr, 3), 0);
    EXPECT_EQ(PtrLenStrCmp("ab", 2, nullptr, 3), 1);
    EXPECT_EQ(PtrLenStrCmp(nullptr, 1, nullptr, 2), 0);
    EXPECT_EQ(StringUtils::CaseInsensitiveCompare(nullptr, 0, "a", 1), -1);
}

}  // namespace
