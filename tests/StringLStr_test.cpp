#include "StringLStr.h"

#include <gtest/gtest.h>

#include <string>

#include "KzErr.h"
#include "ReportCatcher.h"
#include "StringPStr.h"
#include "TestHost.h"
#include "TestStrings.h"

namespace {

using kztest::LStrHandle;
using kztest::LStrValue;
using kztest::PStrBuffer;
using kztest::PStrValue;
using kztest::TextOf;

const char* const kNoText = nullptr;

class StringLStr : public ::testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
};

TEST_F(StringLStr, FromPtr)
{
    LStrHandle text;
    EXPECT_EQ(LStrFromPtr(&text.handle, 5, "hello, world"), 0);
    EXPECT_EQ(text.Text(), "hello");
    EXPECT_EQ(text.BlockSize(), 9u);
    LStr** const same = text.handle;
    EXPECT_EQ(LStrFromPtr(&text.handle, 2, (*text.handle)->str + 3), 0) << "shorter, out of itself";
    EXPECT_EQ(text.handle, same);
    EXPECT_EQ(text.Text(), "lo");
    EXPECT_EQ(text.BlockSize(), 6u);
    EXPECT_EQ(LStrFromPtr(&text.handle, 0, "x"), 0);
    EXPECT_EQ(text.handle, nullptr);
    EXPECT_EQ(LStrFromPtr(&text.handle, 5, nullptr), 0);
    EXPECT_EQ(text.handle, nullptr);
    EXPECT_EQ(LStrFromPtr(nullptr, 5, "hello"), kzErrArgument);
    EXPECT_EQ(LStrFromPtr(&text.handle, -1, "hello"), kzErrArgument);
}

TEST_F(StringLStr, FromOtherKinds)
{
    LStrHandle text;
    EXPECT_EQ(PToLHStr(PStrValue("short"), &text.handle), 0);
    EXPECT_EQ(text.Text(), "short");
    EXPECT_EQ(CToLHStr("longer text", &text.handle), 0);
    EXPECT_EQ(text.Text(), "longer text");
    EXPECT_EQ(PStrToDSLStr(PStrValue(""), &text.handle), 0);
    EXPECT_EQ(text.handle, nullptr);

    EXPECT_EQ(PToLHStr(PStrValue("abc"), nullptr), kzErrArgument);
    EXPECT_TRUE(reports.Take(kDbgWarning, "PToLHStr FAILED:abc, size 3, 0x"));
    EXPECT_EQ(CToLHStr("abc", nullptr), kzErrArgument);
    EXPECT_TRUE(reports.Take(kDbgWarning, "CToLHStr FAILED:abc, size 3, 0x"));

    LStrValue block("0123456789");
    EXPECT_EQ(CToLStr("four", block.Get()), 4);
    EXPECT_EQ(TextOf(block.Get()), "four");
    EXPECT_EQ(PToLStr(PStrValue("three"), block.Get()), 5);
    EXPECT_EQ(TextOf(block.Get()), "three");
    EXPECT_EQ(CToLStr(kNoText, block.Get()), 0);
    EXPECT_EQ(TextOf(block.Get()), "");
}

TEST_F(StringLStr, ToCStr)
{
    char dst[16] = "old";
    EXPECT_EQ(LToCStr(LStrValue("abc").Get(), dst), 3);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(LToCStr(nullptr, dst), 0);
    EXPECT_STREQ(dst, "");

    struct Case {
        std::string text;
        int32 size;
        std::string result;
        int32 copied;
        KzErr checked;
    };
    const Case cases[] = {{"abcdef", 4, "abc", 3, 0},
                          {"abc", 4, "abc", 3, 0},
                          {"abc", 16, "abc", 3, 0},
                          {"abc", 1, "", 0, 0},
                          {"abc", 0, "old", -1, 0},
                          {std::string("a\0b", 3), 16, "a", 3, kzErrEmbeddedNul},
                          {std::string("ab\0", 3), 3, "ab", 2, 0}};
    for (const Case& c : cases) {
        LStrValue text(c.text);
        char plain[16] = "old";
        EXPECT_EQ(LToCStrN(text.Get(), plain, c.size), c.size == 0 ? 0 : c.copied);
        EXPECT_EQ(plain, c.result);
        char checked[16] = "old";
        int32 copied = -1;
        EXPECT_EQ(LToCStrNChecked(text.Get(), checked, c.size, &copied), c.checked);
        EXPECT_EQ(copied, c.copied) << c.text << " " << c.size;
        EXPECT_EQ(checked, c.result);
    }
    EXPECT_EQ(LToCStrNChecked(nullptr, dst, 16, nullptr), 0);
}

TEST_F(StringLStr, ToPStr)
{
    PStrBuffer p("old");
    EXPECT_EQ(LToPStr(nullptr, p), 0);
    EXPECT_EQ(p.Text(), "");
    EXPECT_EQ(LToPStr(LStrValue(std::string(255, 'x')).Get(), p), 255);
    EXPECT_EQ(LToPStr(LStrValue(std::string(256, 'y')).Get(), p), 255);
    EXPECT_EQ(p.Text(), std::string(255, 'y'));
    EXPECT_TRUE(reports.Take(kDbgWarning, "LStr truncated when converting to PStr. Original LStr length=256"));
}

TEST_F(StringLStr, SpareRoomIsKeptOrGivenBack)
{
    LStrHandle text("ab");
    ASSERT_EQ(DSSetHandleSize(text.handle, 100), 0);
    EXPECT_EQ(LStrAppendChar(text.handle, 0x163), 0);
    EXPECT_EQ(LStrCatEfficient(text.handle, LStrValue("de").Get()), 0);
    EXPECT_EQ(text.Text(), "abcde");
    EXPECT_EQ(text.BlockSize(), 100u);
    EXPECT_EQ(LStrCat(text.handle, LStrValue("f").Get()), 0);
    EXPECT_EQ(text.BlockSize(), 10u);
    EXPECT_EQ(LStrAppendChar(text.handle, 'g'), 0);
    EXPECT_EQ(text.BlockSize(), 11u);
    ASSERT_EQ(DSSetHandleSize(text.handle, 100), 0);
    EXPECT_EQ(LStrCat(text.handle, nullptr), 0);
    EXPECT_EQ(text.Text(), "abcdefg");
    EXPECT_EQ(text.BlockSize(), 11u);
}

TEST_F(StringLStr, AppendsAndPrependsExactly)
{
    LStrHandle text;
    EXPECT_EQ(LStrPrependCStr(&text.handle, "x"), 0);
    EXPECT_EQ(text.handle, nullptr);
    EXPECT_EQ(LStrAppendCStr(&text.handle, kNoText), 0);
    EXPECT_EQ(text.handle, nullptr);
    EXPECT_EQ(LStrAppendCStr(&text.handle, "cd"), 0);
    ASSERT_EQ(DSSetHandleSize(text.handle, 100), 0);
    EXPECT_EQ(LStrAppendPStr(&text.handle, PStrValue("ef")), 0);
    EXPECT_EQ(text.BlockSize(), 8u);
    ASSERT_EQ(DSSetHandleSize(text.handle, 100), 0);
    EXPECT_EQ(LStrPrependCStr(&text.handle, "ab"), 0);
    EXPECT_EQ(text.Text(), "abcdef");
    EXPECT_EQ(text.BlockSize(), 10u);
    EXPECT_EQ(LStrHNullTerminate(text.handle), 0);
    EXPECT_EQ(text.Text(), std::string("abcdef\0", 7));
    EXPECT_EQ(text.BlockSize(), 11u);
    EXPECT_EQ(LStrPrependCStr(&text.handle, reinterpret_cast<const char*>((*text.handle)->str) + 3), 0);
    EXPECT_EQ(text.Text(), std::string("defabcdef\0", 10));
    ASSERT_EQ(DSSetHandleSize(text.handle, 100), 0);
    EXPECT_EQ(LStrHNullTerminate(text.handle), 0) << "grows from the block's size";
    EXPECT_EQ(text.BlockSize(), 101u);
}

TEST_F(StringLStr, AppendsItself)
{
    LStrHandle text("abc");
    EXPECT_EQ(LStrCat(text.handle, *text.handle), 0);
    EXPECT_EQ(LStrCatEfficient(text.handle, *text.handle), 0);
    EXPECT_EQ(text.Text(), "abcabcabcabc");
}

TEST_F(StringLStr, NullHandles)
{
    EXPECT_EQ(LStrAppendChar(nullptr, 'a'), kzErrArgument);
    EXPECT_EQ(LStrCatEfficient(nullptr, nullptr), kzErrArgument);
    EXPECT_EQ(LStrCat(nullptr, LStrValue("a").Get()), kzErrArgument);
    EXPECT_EQ(LStrHNullTerminate(nullptr), kzErrArgument);
    EXPECT_EQ(LStrAppendCStr(nullptr, "a"), kzErrArgument);
    EXPECT_EQ(LStrAppendPStr(nullptr, PStrValue("a")), kzErrArgument);
    EXPECT_EQ(LStrPrependCStr(nullptr, "a"), 0);
}

TEST_F(StringLStr, GrowthBeyondTheCountFails)
{
    LStrHandle text("abc");
    LStrValue huge("x");
    huge.Get()->cnt = 0x7FFFFFFF;  // refused before a byte of it is read
    EXPECT_EQ(LStrCat(text.handle, huge.Get()), kzErrMemoryFull);
    EXPECT_EQ(text.Text(), "abc");
}

}  // namespace
