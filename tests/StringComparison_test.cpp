// The comparisons of all string families, on stored results and on every position of a difference.
#include <gtest/gtest.h>

#include <functional>
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

using Compare = std::function<int32(const Json& row)>;

template <typename Result>
Compare OnCStr(Result (*compare)(const char*, const char*))
{
    return [compare](const Json& row) { return compare(row["a"].Str().c_str(), row["b"].Str().c_str()); };
}

template <typename Result>
Compare OnCStrN(Result (*compare)(const char*, const char*, uInt32))
{
    return [compare](const Json& row) {
        return compare(row["a"].Str().c_str(), row["b"].Str().c_str(), static_cast<uInt32>(row["n"].UInt()));
    };
}

Compare OnPStr(int32 (*compare)(const unsigned char*, const unsigned char*))
{
    return [compare](const Json& row) { return compare(PStrValue(row["a"].Str()), PStrValue(row["b"].Str())); };
}

LStrValue LStrOf(const Json& text)
{
    return text.IsNull() ? LStrValue() : LStrValue(text.Str());
}

Compare OnLStr(int32 (*compare)(const LStr*, const LStr*))
{
    return [compare](const Json& row) { return compare(LStrOf(row["a"]).Get(), LStrOf(row["b"]).Get()); };
}

Compare OnLHStr(int32 (*compare)(LStr* const*, LStr* const*))
{
    return [compare](const Json& row) {
        LStrValue aText = LStrOf(row["a"]);
        LStrValue bText = LStrOf(row["b"]);
        LStr* a = aText.Get();
        LStr* b = bText.Get();
        return compare(a == nullptr ? nullptr : &a, b == nullptr ? nullptr : &b);
    };
}

Compare OnPtrLen(int32 (*compare)(const void*, int32, const void*, int32))
{
    return [compare](const Json& row) {
        const Json& a = row["a"];
        const Json& b = row["b"];
        return compare(a.IsNull() ? nullptr : a.Str().data(), a.IsNull() ? 0 : static_cast<int32>(a.Str().size()),
                       b.IsNull() ? nullptr : b.Str().data(), b.IsNull() ? 0 : static_cast<int32>(b.Str().size()));
    };
}

TEST(StringComparison, StoredResults)
{
    const std::map<std::string, Compare> compares = {
        {"StrCmp", OnCStr<int32>(StrCmp)},
        {"StrCaseCmp", OnCStr<int32>(StrCaseCmp)},
        {"StrNCmp", OnCStrN<int32>(StrNCmp)},
        {"StrNCaseCmp", OnCStrN<int32>(StrNCaseCmp)},
        {"PStrCmp", OnPStr(PStrCmp)},
        {"PStrCaseCmp", OnPStr(PStrCaseCmp)},
        {"PStrEqual", OnPStr(PStrEqual)},
        {"PStrCaseEqual", OnPStr(PStrCaseEqual)},
        {"LStrCmp", OnLStr(LStrCmp)},
        {"LStrCaseCmp", OnLStr(LStrCaseCmp)},
        {"LStrEqual", OnLStr(LStrEqual)},
        {"LStrCaseEqual", OnLStr(LStrCaseEqual)},
        {"LHStrCaseCmp", OnLHStr(LHStrCaseCmp)},
        {"PtrLenStrCmp", OnPtrLen(PtrLenStrCmp)},
        {"PtrLenStrCaseCmp", OnPtrLen(PtrLenStrCaseCmp)},
    };
    const auto sign = [](long long value) { return (value > 0) - (value < 0); };
    for (const Json& row : kztest::ReadJsonLines("vectors/comparisons.jsonl")) {
        const int32 result = compares.at(row["op"].Str())(row);
        if (row.Has("signOnly")) {
            EXPECT_EQ(sign(result), sign(row["result"].Int())) << row.Line();
        } else {
            EXPECT_EQ(result, row["result"].Int()) << row.Line();
        }
    }
}

// A difference at each place of texts of each length, so that whole blocks, their ends and the rest are all met.
TEST(StringComparison, DifferenceAtEachPosition)
{
    struct Pair {
        unsigned char a, b;
        int folded;
    };
    const Pair pairs[] = {{'k', 'K', 0}, {'Q', 'q', 0},     {'a', 'C', -2},    {'@', '`', -32}, {'[', '{', -32},
                          {'z', 'Z', 0}, {0xC9, 0xE9, -32}, {0x41, 0xC1, -96}, {1, '!', -32}};
    for (std::size_t n = 1; n <= 50; ++n) {
        for (std::size_t at = 0; at < n; ++at) {
            for (const Pair& pair : pairs) {
                // Letters of both cases around it: they must not hide it.
                std::string a, b;
                for (std::size_t i = 0; i < n; ++i) {
                    a += static_cast<char>((i % 3 == 0 ? 'A' : 'a') + static_cast<int>(i % 26));
                    b += static_cast<char>((i % 5 == 0 ? 'A' : 'a') + static_cast<int>(i % 26));
                }
                a[at] = static_cast<char>(pair.a);
                b[at] = static_cast<char>(pair.b);
                const int32 length = static_cast<int32>(n);
                const int32 sign = (pair.folded > 0) - (pair.folded < 0);
                ASSERT_EQ(PtrLenStrCaseCmp(a.data(), length, b.data(), length), pair.folded) << n << " " << at;
                ASSERT_EQ(StrCaseCmp(a.c_str(), b.c_str()), pair.folded) << n << " " << at;
                ASSERT_EQ(StringUtils::CaseInsensitiveCompare(a, b), sign) << n << " " << at;
                b = a;
                b[at] = static_cast<char>(pair.b);
                ASSERT_EQ(PtrLenStrCmp(a.data(), length, b.data(), length), pair.a - pair.b) << n << " " << at;
                ASSERT_EQ(StrCmp(a.c_str(), b.c_str()), pair.a - pair.b) << n << " " << at;
            }
        }
    }
}

TEST(StringComparison, CStrEnds)
{
    EXPECT_EQ(StrCmp("abc", "ab"), 1);
    EXPECT_EQ(StrCmp("ab", "abc"), -'c');
    EXPECT_EQ(StrNCmp("ab", "abc", 2), 0);
    EXPECT_EQ(StrNCmp("ab", "abc", 3), -'c');
    EXPECT_EQ(StrNCmp("ab", "abc", 4000000000u), -'c');
    EXPECT_EQ(StrNCaseCmp("ab", "ABC", 9), -'C') << "the byte behind a's end is not folded";
    EXPECT_EQ(StrNCaseCmp("ABC", "ab", 9), 1);
    EXPECT_EQ(StrCaseCmp("ab", "ABC"), -'c');
    EXPECT_EQ(StrNCaseCmp("aX", "Ay", 1), 0);
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
        int order, equal;
    };
    const Case cases[] = {
        {nullptr, nullptr, 0, 1},     {nullptr, empty.Get(), 0, 1}, {empty.Get(), nullptr, 0, 1},
        {nullptr, text.Get(), -1, 0}, {text.Get(), nullptr, 1, 0},  {empty.Get(), empty.Get(), 0, 1},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(LStrCmp(c.a, c.b), c.order);
        EXPECT_EQ(LStrCaseCmp(c.a, c.b), c.order);
        EXPECT_EQ(LStrEqual(c.a, c.b), c.equal);
        EXPECT_EQ(LStrCaseEqual(c.a, c.b), c.equal);
    }
    EXPECT_EQ(LHStrEqual(nullptr, &emptyMaster), 1);
    EXPECT_EQ(LHStrEqual(nullptr, &textMaster), 0);
    EXPECT_EQ(LHStrCmp(&textMaster, nullptr), 1);
    EXPECT_EQ(LHStrCmp(nullptr, &textMaster), -1);
    EXPECT_EQ(LHStrCaseCmp(&textMaster, nullptr), 1);
    EXPECT_EQ(PLStrCmp(PStrValue("abc"), nullptr), 3);
    EXPECT_EQ(PLStrCaseCmp(PStrValue("AB"), LStrValue("abc").Get()), -1);
    EXPECT_EQ(PLStrCmp(PStrValue("AB"), LStrValue("aB").Get()), 'A' - 'a');
    EXPECT_EQ(PtrLenStrCmp("ab", 2, nullptr, 3), 1);
    EXPECT_EQ(PtrLenStrCmp("ab", 0, nullptr, 3), 0);
    EXPECT_EQ(PtrLenStrCmp(nullptr, 3, "ab", 0), 0);
    EXPECT_EQ(PtrLenStrCmp(nullptr, 0, "ab", 2), -1);
    EXPECT_EQ(PtrLenStrCmp(nullptr, 1, nullptr, 2), 0);
}

}  // namespace
