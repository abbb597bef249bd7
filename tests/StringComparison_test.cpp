// The comparisons of all string families, on stored results and against one naive oracle.
#include <gtest/gtest.h>

#include <cctype>
#include <random>
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

int32 Sign(long long value)
{
    return (value > 0) - (value < 0);
}

// ---- The oracle: byte by byte, each folded by its family's rule ----

using Fold = int (*)(int);

int AsItIs(int c)
{
    return c;
}

int TableLower(int c)
{
    return c >= 'A' && c <= 'Z' ? c + 32 : c < 0x80 || c == 0xFF ? c : std::tolower(c);
}

int ByteAt(const std::string& text, std::size_t i)
{
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
}

std::size_t Difference(const std::string& a, const std::string& b, Fold fold)
{
    std::size_t i = 0;
    while (i < a.size() && i < b.size() && fold(ByteAt(a, i)) == fold(ByteAt(b, i))) {
        ++i;
    }
    return i;
}

int32 OfCounted(const std::string& a, const std::string& b, Fold fold)
{
    const std::size_t i = Difference(a, b, fold);
    const bool differ = i < a.size() && i < b.size();
    return differ ? fold(ByteAt(a, i)) - fold(ByteAt(b, i))
                  : static_cast<int32>(a.size()) - static_cast<int32>(b.size());
}

// A text is above its prefix by 1, and the prefix below by the byte that follows, which is not folded.
int32 OfCStrings(const std::string& a, const std::string& b, Fold fold, uInt32 limit)
{
    const std::string aText = a.substr(0, limit), bText = b.substr(0, limit);
    const std::size_t i = Difference(aText, bText, fold);
    return i >= aText.size()   ? -ByteAt(bText, i)
           : i >= bText.size() ? 1
                               : fold(aText[i] & 0xFF) - fold(bText[i] & 0xFF);
}

int32 OfCaselessCStrings(const std::string& a, const std::string& b)
{
    const std::size_t i = Difference(a, b, std::tolower);
    return std::tolower(ByteAt(a, i)) - std::tolower(ByteAt(b, i));
}

void ExpectCStrings(const std::string& a, const std::string& b, uInt32 limit)
{
    const int32 plain = OfCStrings(a, b, AsItIs, limit), folded = OfCStrings(a, b, std::tolower, limit);
    ASSERT_EQ(StrNCmp(a.c_str(), b.c_str(), limit), plain);
    ASSERT_EQ(StrNEqual(a.c_str(), b.c_str(), limit), plain == 0);
    ASSERT_EQ(StrNCaseCmp(a.c_str(), b.c_str(), limit), folded);
    ASSERT_EQ(StrNCaseEqual(a.c_str(), b.c_str(), limit), folded == 0);
    ASSERT_EQ(StrCmp(a.c_str(), b.c_str()), OfCStrings(a, b, AsItIs, ~0u));
    ASSERT_EQ(StrEqual(a.c_str(), b.c_str()), a == b);
    ASSERT_EQ(StrCaseCmp(a.c_str(), b.c_str()), OfCaselessCStrings(a, b));
}

void ExpectCounted(const std::string& a, const std::string& b)
{
    const int32 plain = OfCounted(a, b, AsItIs), folded = OfCounted(a, b, std::tolower);
    const int32 byTable = Sign(OfCounted(a, b, TableLower));
    const int32 aLen = static_cast<int32>(a.size()), bLen = static_cast<int32>(b.size());
    const PStrValue aShort(a), bShort(b);
    const unsigned char *p = aShort, *q = bShort;
    LStrValue aLong(a), bLong(b);
    LStr *s = aLong.Get(), *t = bLong.Get();
    for (const int32 result :
         {PStrCmp(p, q), PPStrCmp(&p, &q), PLStrCmp(p, t), PtrLenStrCmp(a.data(), aLen, b.data(), bLen)}) {
        ASSERT_EQ(result, plain);
    }
    for (const int32 result : {PStrCaseCmp(p, q), PPStrCaseCmp(&p, &q), PLStrCaseCmp(p, t), LStrCaseCmp(s, t),
                               LHStrCaseCmp(&s, &t), PtrLenStrCaseCmp(a.data(), aLen, b.data(), bLen)}) {
        ASSERT_EQ(result, folded);
    }
    ASSERT_EQ(Sign(LStrCmp(s, t)), Sign(plain));
    ASSERT_EQ(Sign(LHStrCmp(&s, &t)), Sign(plain));
    for (const KzBool equal : {PStrEqual(p, q), PPStrEqual(&p, &q), LStrEqual(s, t), LHStrEqual(&s, &t)}) {
        ASSERT_EQ(equal, plain == 0);
    }
    for (const KzBool equal : {PStrCaseEqual(p, q), PPStrCaseEqual(&p, &q), FileNameEqual(p, q), LStrCaseEqual(s, t)}) {
        ASSERT_EQ(equal, folded == 0);
    }
    ASSERT_EQ(StringUtils::CaseInsensitiveCompare(a, b), byTable);
    ASSERT_EQ(StringUtils::CaseInsensitiveEqual(a, b), byTable == 0);
}

// The oracle makes the stored results, and all calls make those of the oracle. Null has a test of its own.
TEST(StringComparison, StoredResults)
{
    const Fold lower = std::tolower;
    for (const Json& row : kztest::ReadJsonLines("vectors/comparisons.jsonl")) {
        if (row["a"].IsNull() || row["b"].IsNull()) {
            continue;
        }
        SCOPED_TRACE(row.Line());
        const std::string &op = row["op"].Str(), &a = row["a"].Str(), &b = row["b"].Str();
        const Fold fold = op.find("Case") == std::string::npos ? AsItIs : lower;
        int32 result = OfCounted(a, b, fold);
        if (op.compare(0, 3, "Str") == 0) {
            const uInt32 limit = row.Has("n") ? static_cast<uInt32>(row["n"].UInt()) : ~0u;
            ExpectCStrings(a, b, limit);
            result = op == "StrCaseCmp" ? OfCaselessCStrings(a, b) : OfCStrings(a, b, fold, limit);
        } else {
            ExpectCounted(a, b);
        }
        result = op.find("Equal") != std::string::npos ? result == 0 : row.Has("signOnly") ? Sign(result) : result;
        EXPECT_EQ(result, row.Has("signOnly") ? Sign(row["result"].Int()) : row["result"].Int());
    }
}

// Texts whose difference stands anywhere, so that whole blocks, their ends and the rest are all met. What precedes it
// is the same, or has the other case in places, which must hide nothing. The pairs of bytes are met in turn.
TEST(StringComparison, AsTheOracleDoes)
{
    std::mt19937 draw(7);
    EXPECT_EQ(StringUtilsLocaleCacheService()->Init(), 0);  // StringUtils too follows the locale, above ASCII
    for (unsigned pair = 0; pair < 0x10000; pair += 3) {
        const std::size_t n = draw() % (pair % 4 == 0 ? 150 : 50);
        const std::size_t at = draw() % (n + 1);
        std::string a;
        while (a.size() < n) {
            a += "abcXYZ\1_@["[draw() % 10];
        }
        std::string b = a;
        for (std::size_t i = 0; pair % 2 == 0 && i < n; i += 1 + draw() % 4) {
            b[i] = static_cast<char>(std::isalpha(b[i]) != 0 ? b[i] ^ 0x20 : b[i]);
        }
        a.insert(at, 1, static_cast<char>(pair >> 8));
        b.insert(at, 1, static_cast<char>(pair));
        b.resize(draw() % 8 == 0 ? at : b.size());
        SCOPED_TRACE(testing::PrintToString(a) + " / " + testing::PrintToString(b));
        ASSERT_NO_FATAL_FAILURE(ExpectCounted(a, b));
        ASSERT_NO_FATAL_FAILURE(ExpectCounted(b, a));
        const uInt32 limits[] = {0, static_cast<uInt32>(at), static_cast<uInt32>(at) + 1, 4000000000};
        ASSERT_NO_FATAL_FAILURE(ExpectCStrings(a.c_str(), b.c_str(), limits[draw() % 4]));
        ASSERT_NO_FATAL_FAILURE(ExpectCStrings(b.c_str(), a.c_str(), limits[draw() % 4]));
    }
    EXPECT_EQ(StringUtilsLocaleCacheService()->Uninit(), 0);
    // No terminator within the limit: nothing beyond it is read.
    const PStrValue three("abc");
    EXPECT_EQ(StrNCmp(reinterpret_cast<const char*>(+three) + 1, "abcd", 3), 0);
}

TEST(StringComparison, NullAndEmpty)
{
    LStrValue empty(""), text("ab");
    LStr *const someText = text.Get(), *const strings[] = {nullptr, empty.Get(), someText};
    for (LStr* const& a : strings) {
        for (LStr* const& b : strings) {
            const int order = (a == someText) - (b == someText);
            LStr *const *const p = a == nullptr ? nullptr : &a, *const *const q = b == nullptr ? nullptr : &b;
            EXPECT_TRUE(Sign(LStrCmp(a, b)) == order && Sign(LStrCaseCmp(a, b)) == order);
            EXPECT_TRUE(Sign(LHStrCmp(p, q)) == order && LHStrCaseCmp(p, q) == 2 * order);
            EXPECT_EQ(LStrEqual(a, b) && LStrCaseEqual(a, b) && LHStrEqual(p, q), order == 0);
            EXPECT_EQ(LStrEqual(a, b) || LStrCaseEqual(a, b) || LHStrEqual(p, q), order == 0);
        }
    }
    EXPECT_TRUE(LStrCmp(nullptr, someText) == -1 && LStrCaseCmp(someText, nullptr) == 1);
    EXPECT_TRUE(LHStrCmp(nullptr, &someText) == -1 && LStrCaseCmp(nullptr, someText) == -1);
    EXPECT_TRUE(PLStrCmp(PStrValue("abc"), nullptr) == 3 && PLStrCaseCmp(PStrValue("abc"), nullptr) == 3);
    EXPECT_TRUE(PtrLenStrCmp("ab", 0, nullptr, 3) == 0 && PtrLenStrCaseCmp("ab", 0, nullptr, 3) == 0);
    EXPECT_TRUE(PtrLenStrCmp("ab", 2, nullptr, 3) == 1 && PtrLenStrCaseCmp(nullptr, 3, "ab", 2) == -1);
    EXPECT_EQ(PtrLenStrCmp(nullptr, 1, nullptr, 2), 0);
    EXPECT_EQ(PtrLenStrCmp(someText, 1, someText, 2), 0) << "the same address is the same text";
    EXPECT_EQ(StringUtils::CaseInsensitiveCompare(nullptr, 0, "a", 1), -1);
    EXPECT_EQ(PtrLenStrCmp("a", -0x7FFFFFFF - 1, "b", 1), -1);
    EXPECT_EQ(PtrLenStrCaseCmp("a", 1, "A", -0x7FFFFFFF - 1), 1);
}

}  // namespace
