#include "StringPStr.h"

#include <gtest/gtest.h>

#include <string>

#include "JsonLines.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "TestStrings.h"

namespace {

using kztest::PStrBuffer;
using kztest::PStrValue;

TEST(StringPStr, CopyingAndAppending)
{
    const std::string longest(255, 'x');
    PStrBuffer buffer;
    EXPECT_EQ(PStrCpy(buffer, PStrValue(longest)), +buffer);
    EXPECT_EQ(buffer.Text(), longest);

    struct Case {
        uInt32 n;
        const char* result;
    };
    for (const Case& c : {Case{0, "old"}, {1, ""}, {4, "012"}, {11, "0123456789"}, {4000000000u, "0123456789"}}) {
        PStrBuffer dst("old");
        EXPECT_EQ(PStrNCpy(dst, PStrValue("0123456789"), c.n), +dst);
        EXPECT_EQ(dst.Text(), c.result) << c.n;
    }

    PStrBuffer cut(std::string(200, 'a'));
    EXPECT_EQ(PStrCat(cut, PStrValue(std::string(200, 'b'))), 255);
    EXPECT_EQ(cut.Text(), std::string(200, 'a') + std::string(55, 'b'));
    PStrBuffer twice("abc");
    EXPECT_EQ(PStrCat(twice, twice), 6);
    EXPECT_EQ(twice.Text(), "abcabc");
}

TEST(StringPStr, TerminatingAndConverting)
{
    PStrBuffer full(std::string(255, 'x'));
    EXPECT_EQ(PStrTerminateIfPossible(full), 255);
    EXPECT_EQ(full.bytes[255], 'x');
    EXPECT_EQ(PStrNullTerminate(full), 255);
    EXPECT_EQ(full.Text(), std::string(254, 'x') + '\0');
    int32 (*const terminators[])(unsigned char*) = {PStrTerminateIfPossible, PStrNullTerminate};
    for (int32 (*const terminate)(unsigned char*) : terminators) {
        PStrBuffer longest(std::string(254, 'x'));
        EXPECT_EQ(terminate(longest), 254);
        EXPECT_EQ(longest.bytes[255], 0);
    }

    PStrBuffer p;
    EXPECT_EQ(CToPStr(std::string(300, 'y').c_str(), p), 255);
    EXPECT_EQ(p.Text(), std::string(255, 'y'));
    char c[8] = "0123456";
    EXPECT_EQ(PToCStr(PStrValue("abc"), c), 3);
    EXPECT_STREQ(c, "abc");
    EXPECT_EQ(CToPStr(c, reinterpret_cast<unsigned char*>(c)), 3) << "in place";
    EXPECT_EQ(PToCStr(reinterpret_cast<unsigned char*>(c), c), 3);
    EXPECT_STREQ(c, "abc");
}

TEST(StringPStr, Searching)
{
    EXPECT_TRUE(PStrEndsWith(PStrValue("A.TXT"), ".txt"));
    EXPECT_FALSE(PStrEndsWith(PStrValue("a.txt"), ".TXT")) << "the suffix is not folded";
    EXPECT_TRUE(PStrEndsWith(PStrValue("a"), ""));
    EXPECT_FALSE(PStrEndsWith(PStrValue("txt"), ".txt"));
    EXPECT_TRUE(PStrEndsWith(PStrValue("TXT"), "txt")) << "the whole text";

    struct Case {
        const char *text, *sub;
        int32 start, after;
    };
    const Case cases[] = {{"one TWO two", "two", 0, 7}, {"one TWO two", "Two", 5, 11},
                          {"one", "", 0, -1},           {"one", "ones", 0, -1},
                          {"one", "e", 2, 3},           {"one", "e", 300, -1}};
    for (const Case& c : cases) {
        EXPECT_EQ(PStrInPStr(PStrValue(c.text), c.start, PStrValue(c.sub)), c.after) << c.text << " / " << c.sub;
    }
    PStrBuffer cut("one two");
    cut.bytes[0] = 5;
    EXPECT_EQ(PStrInPStr(cut, 0, PStrValue("two")), -1) << "what stands behind the text is not searched";
}

TEST(StringPStr, Splitting)
{
    struct Case {
        const char *src, *left, *right;
        KzBool found;
    };
    const Case cases[] = {
        {"", "", "", 0},         {"abc", "abc", "", 0}, {"a\\,b,c", "a,b", "c", 1},   {"a,", "a", "", 1},
        {",a", "", "a", 1},      {"\\,", ",", "", 0},   {"\\\\,b,c", "\\,b", "c", 1}, {"a,b\\,c", "a", "b\\,c", 1},
        {"\\a,b", "\\a", "b", 1}};
    for (const Case& c : cases) {
        PStrBuffer left("old"), right(c.src);
        EXPECT_EQ(PStrSplitAtChar(right, ',', left, right), c.found) << c.src;
        EXPECT_EQ(left.Text(), c.left) << c.src;
        EXPECT_EQ(right.Text(), c.right) << c.src;
    }
    const std::string rest('\\' - 1, 'x');
    PStrBuffer left, right;
    EXPECT_EQ(PStrSplitAtChar(PStrValue("," + rest), ',', left, right), 1);
    EXPECT_TRUE(left.Text().empty() && right.Text() == rest) << "the count is a backslash, but escapes nothing";
    EXPECT_EQ(PStrSplitAtChar(PStrValue("a\\b"), '\\', left, right), 1);
    EXPECT_TRUE(left.Text() == "a" && right.Text() == "b") << "a backslash as the delimiter";
}

TEST(StringPStr, Replacing)
{
    const std::string many(100, 'a'), full(255, 'a');
    struct Case {
        std::string src, find, replace, result;
        KzBool replaced;
    };
    const Case cases[] = {{"a.b.c", ".", "::", "a::b::c", 1},
                          {"aaa", "aa", "b", "ba", 1},
                          {"abc", "B", "x", "abc", 0},
                          {"abc", "", "x", "abc", 0},
                          {"abab", "ab", "", "", 1},
                          {many, "a", "bbb", "", 0},
                          {full, "a", "b", std::string(255, 'b'), 1},
                          {full, "aa", "bb", std::string(254, 'b') + "a", 1}};
    for (const Case& c : cases) {
        PStrBuffer dst("old"), inPlace(c.src);
        EXPECT_EQ(PStrFindReplace(dst, inPlace, c.find.c_str(), c.replace.c_str()), c.replaced) << c.src;
        EXPECT_EQ(dst.Text(), c.result) << c.src;
        PStrFindReplace(inPlace, inPlace, c.find.c_str(), c.replace.c_str());
        EXPECT_EQ(inPlace.Text(), c.result) << c.src;
    }
}

TEST(StringPStr, Hashes)
{
    for (const kztest::Json& row : kztest::ReadJsonLines("vectors/hashes.jsonl")) {
        if (row["op"].Str() == "PStrHash32") {
            EXPECT_EQ(PStrHash32(PStrValue(row["text"].Str()), row["ignoreCase"].Int() != 0), row["hash"].UInt())
                << row.Line();
        }
    }
    EXPECT_EQ(PStrHash32(nullptr, 1), 0u);
    const PStrValue name("stra\u00DFe"), upper("STRASSe");
    uInt32 hash = 0;
    {
        kztest::FailAllocation fail(1, kztest::FailAllocation::kForGood, kztest::FailAllocation::kBlocksAndNew);
        hash = PStrHash32(name, 1);
    }
    EXPECT_EQ(hash, PStrHash32(upper, 0)) << "without memory";
}

TEST(StringPStr, BothSpellings)
{
    char text[256] = "\4a.bb", left[256] = {}, right[256], plain[256];
    unsigned char dst[256], find[] = "b", replace[] = "cd";
    EXPECT_TRUE(PStrSplitAtChar(text, '.', left, right));
    EXPECT_STREQ(left, "\1a");
    EXPECT_EQ(PStrCat(PStrCpy(left, right), left), 4);
    EXPECT_EQ(PStrInPStr(left, 1, right), 3);
    EXPECT_EQ(PStrCmp(text, left), 'a' - 'b');
    EXPECT_EQ(PToCStr(PStrNCpy(right, text, 3), plain), 2);
    EXPECT_STREQ(plain, "a.");
    EXPECT_TRUE(PStrFindReplace(left, text, "b", "cd") && PStrEndsWith(left, "cdcd"));
    EXPECT_TRUE(PStrFindReplace(dst, kz::AsBytes(text), find, replace) && PStrEqual(dst, kz::AsBytes(left)));
    EXPECT_EQ(PStrDup(nullptr), nullptr);
}

TEST(StringPStr, Callbacks)
{
    const PStrValue lower("c"), upper("C");
    const unsigned char *a = lower, *b = upper;
    EXPECT_EQ(PPStrCmp(&a, &b), 'c' - 'C');
    EXPECT_EQ(PPStrCaseCmp(&a, &b), 0);
    EXPECT_TRUE(PPStrCaseEqual(&a, &b) && !PPStrEqual(&a, &b) && FileNameEqual(a, b));
    EXPECT_FALSE(PStrCaseEqual(a, PStrValue("d")) || PStrCaseEqual(a, PStrValue("cc")));
}

TEST(StringPStr, Duplicating)
{
    kztest::ReportCatcher reports;
    unsigned char* copy = PStrDup(PStrValue("text"));
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(PStrEqual(copy, PStrValue("text")));
    EXPECT_EQ(DSDisposePtr(copy), 0);
    EXPECT_EQ(PStrDup(nullptr), nullptr);
    kztest::FailAllocation fail(1);
    EXPECT_EQ(PStrDup(PStrValue("text")), nullptr);
    EXPECT_TRUE(reports.Take(kDbgWarning, "PStrDup FAILED:text, size 5, NULL"));
}

}  // namespace
