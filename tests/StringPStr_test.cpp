#include "StringPStr.h"

#include <gtest/gtest.h>

#include <string>

#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "SortSearch.h"
#include "TestHost.h"
#include "TestStrings.h"

namespace {

using kztest::PStrBuffer;
using kztest::PStrValue;

TEST(StringPStr, Copying)
{
    const std::string longest(255, 'x');
    PStrBuffer buffer;
    EXPECT_EQ(PStrCpy(buffer, PStrValue(longest)), +buffer);
    EXPECT_EQ(buffer.Text(), longest);
    PStrCpy(buffer, PStrValue(""));
    EXPECT_EQ(buffer.Text(), "");

    const PStrValue ten("0123456789");
    struct Case {
        uInt32 n;
        const char* result;
    };
    for (const Case& c : {Case{0, "old"}, {1, ""}, {4, "012"}, {11, "0123456789"}, {4000000000u, "0123456789"}}) {
        PStrBuffer dst("old");
        EXPECT_EQ(PStrNCpy(dst, ten, c.n), +dst);
        EXPECT_EQ(dst.Text(), c.result) << c.n;
    }
}

TEST(StringPStr, Appending)
{
    PStrBuffer buffer(std::string(200, 'a'));
    EXPECT_EQ(PStrCat(buffer, PStrValue(std::string(200, 'b'))), 255);
    EXPECT_EQ(buffer.Text(), std::string(200, 'a') + std::string(55, 'b'));
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
    EXPECT_EQ(full.bytes[255], 0);
    EXPECT_EQ(full.Text().size(), 255u);
    for (int32 (*terminate)(unsigned char*) : {PStrTerminateIfPossible, PStrNullTerminate}) {
        PStrBuffer longest(std::string(254, 'x'));
        EXPECT_EQ(terminate(longest), 254);
        EXPECT_EQ(longest.bytes[255], 0);
    }

    PStrBuffer p;
    EXPECT_EQ(CToPStr(std::string(300, 'y').c_str(), p), 255);
    EXPECT_EQ(p.Text(), std::string(255, 'y'));
    EXPECT_EQ(CToPStr("", p), 0);
    char c[8] = "0123456";
    EXPECT_EQ(PToCStr(PStrValue("abc"), c), 3);
    EXPECT_STREQ(c, "abc");
    char inPlace[8] = "abc";
    EXPECT_EQ(CToPStr(inPlace, reinterpret_cast<unsigned char*>(inPlace)), 3);
    EXPECT_EQ(PToCStr(reinterpret_cast<unsigned char*>(inPlace), inPlace), 3);
    EXPECT_STREQ(inPlace, "abc");
}

TEST(StringPStr, Searching)
{
    EXPECT_TRUE(PStrEndsWith(PStrValue("A.TXT"), ".txt"));
    EXPECT_FALSE(PStrEndsWith(PStrValue("a.txt"), ".TXT")) << "the suffix is not folded";
    EXPECT_TRUE(PStrEndsWith(PStrValue("a"), ""));
    EXPECT_FALSE(PStrEndsWith(PStrValue("txt"), ".txt"));

    struct Case {
        const char *text, *sub;
        int32 start, after;
    };
    const Case cases[] = {
        {"one TWO two", "two", 0, 7}, {"one TWO two", "Two", 5, 11}, {"one", "", 0, -1},    {"one", "ones", 0, -1},
        {"one", "e", 2, 3},           {"one", "e", 3, -1},           {"one", "e", 300, -1}, {"", "e", 0, -1}};
    for (const Case& c : cases) {
        EXPECT_EQ(PStrInPStr(PStrValue(c.text), c.start, PStrValue(c.sub)), c.after) << c.text << " / " << c.sub;
    }
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
        PStrBuffer left("old"), right("old");
        EXPECT_EQ(PStrSplitAtChar(PStrValue(c.src), ',', left, right), c.found) << c.src;
        EXPECT_EQ(left.Text(), c.left) << c.src;
        EXPECT_EQ(right.Text(), c.right) << c.src;
        PStrBuffer inPlace(c.src);
        PStrSplitAtChar(inPlace, ',', left, inPlace);
        EXPECT_EQ(inPlace.Text(), c.right) << c.src;
    }
}

TEST(StringPStr, Replacing)
{
    const std::string many(100, 'a');
    struct Case {
        std::string src, find, replace, result;
        KzBool replaced;
    };
    const Case cases[] = {{"a.b.c", ".", "::", "a::b::c", 1},
                          {"aaa", "aa", "b", "ba", 1},
                          {"abc", "B", "x", "abc", 0},
                          {"abc", "", "x", "abc", 0},
                          {"", "a", "b", "", 0},
                          {"abab", "ab", "", "", 1},
                          {many, "a", "bb", std::string(200, 'b'), 1},
                          {many, "a", "bbb", "", 0},
                          {std::string(255, 'a'), "a", "b", std::string(255, 'b'), 1},
                          {std::string(255, 'a'), "aa", "bb", std::string(254, 'b') + "a", 1}};
    for (const Case& c : cases) {
        PStrBuffer dst("old");
        EXPECT_EQ(PStrFindReplace(dst, PStrValue(c.src), c.find.c_str(), c.replace.c_str()), c.replaced) << c.src;
        EXPECT_EQ(dst.Text(), c.result) << c.src;
        PStrBuffer inPlace(c.src);
        PStrFindReplace(inPlace, inPlace, c.find.c_str(), c.replace.c_str());
        EXPECT_EQ(inPlace.Text(), c.result) << c.src;
    }
}

TEST(StringPStr, CallbacksSortAndFind)
{
    const PStrValue a("b"), b("A"), c("c"), key("C");
    const unsigned char* strings[] = {a, b, c};
    QSort(strings, 3, sizeof strings[0], PPStrCaseCmp);
    EXPECT_EQ(strings[0], +b);
    const unsigned char* keyPtr = key;
    EXPECT_EQ(BinSearch(strings, 3, sizeof strings[0], &keyPtr, PPStrCaseCmp), 2);
    EXPECT_NE(PPStrCmp(&strings[2], &keyPtr), 0);
    EXPECT_TRUE(PPStrCaseEqual(&strings[2], &keyPtr));
    EXPECT_FALSE(PPStrEqual(&strings[2], &keyPtr));
}

TEST(StringPStr, Duplicating)
{
    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
    unsigned char* copy = PStrDup(PStrValue("text"));
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(PStrEqual(copy, PStrValue("text")));
    EXPECT_EQ(DSDisposePtr(copy), 0);
    EXPECT_EQ(PStrDup(nullptr), nullptr);
}

}  // namespace
