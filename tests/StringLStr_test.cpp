#include "StringLStr.h"

#include <gtest/gtest.h>

#include <string>

#include "KzErr.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "StringPStr.h"
#include "TestStrings.h"

namespace {

using kztest::FailAllocation;
using kztest::LStrHandle;
using kztest::LStrValue;
using kztest::PStrBuffer;
using kztest::PStrValue;
using kztest::TextOf;

const char* const kNoText = nullptr;

class StringLStr : public ::testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
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
    for (const int32 length : {5, -1}) {
        EXPECT_EQ(CToLHStr("old", &text.handle), 0);
        EXPECT_EQ(LStrFromPtr(&text.handle, length, nullptr), 0);
        EXPECT_EQ(text.handle, nullptr);
    }
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
    EXPECT_EQ(PToLStr(nullptr, block.Get()), 0);
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
                          {"abc", 1, "", 0, 0},
                          {"abc", 0, "old", -1, 0},
                          {std::string("a\0b", 3), 16, "a", 3, kzErrEmbeddedNul},
                          {std::string("ab\0", 3), 3, "ab", 2, 0}};
    for (const Case& c : cases) {
        LStrValue text(c.text);
        char plain[16] = "old", checked[16] = "old";
        EXPECT_EQ(LToCStrN(text.Get(), plain, c.size), c.size == 0 ? 0 : c.copied);
        EXPECT_EQ(plain, c.result);
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

// Each change of a text in a block of this size leaves that text in a block of that size.
TEST_F(StringLStr, TextAndBlockAfterEachChange)
{
    struct Case {
        const char* name;
        unsigned long room;
        KzErr (*change)(LStr*** handle);
        std::string text;
        unsigned long block;
    };
    const Case cases[] = {
        {"char", 100, [](LStr*** h) { return LStrAppendChar(*h, 0x178); }, "abcx", 100},
        {"char, grown", 7, [](LStr*** h) { return LStrAppendChar(*h, 'x'); }, "abcx", 8},
        {"efficient", 100, [](LStr*** h) { return LStrCatEfficient(*h, LStrValue("xy").Get()); }, "abcxy", 100},
        {"exact", 100, [](LStr*** h) { return LStrCat(*h, LStrValue("xy").Get()); }, "abcxy", 9},
        {"nothing", 100, [](LStr*** h) { return LStrCat(*h, nullptr); }, "abc", 7},
        {"itself", 7, [](LStr*** h) { return LStrCat(*h, **h); }, "abcabc", 10},
        {"C string", 100, [](LStr*** h) { return LStrAppendCStr(h, "xy"); }, "abcxy", 9},
        {"null", 100, [](LStr*** h) { return LStrAppendCStr(h, kNoText); }, "abc", 100},
        {"PStr", 100, [](LStr*** h) { return LStrAppendPStr(h, PStrValue("xy")); }, "abcxy", 9},
        {"front", 100, [](LStr*** h) { return LStrPrependCStr(h, "xy"); }, "xyabc", 9},
        {"front, grown", 7, [](LStr*** h) { return LStrPrependCStr(h, "xy"); }, "xyabc", 9},
        {"NUL", 100, [](LStr*** h) { return LStrHNullTerminate(*h); }, std::string("abc\0", 4), 101},
    };
    for (const Case& c : cases) {
        LStrHandle text("abc");
        ASSERT_EQ(DSSetHandleSize(text.handle, c.room), 0);
        EXPECT_EQ(c.change(&text.handle), 0) << c.name;
        EXPECT_EQ(text.Text(), c.text) << c.name;
        EXPECT_EQ(text.BlockSize(), c.block) << c.name;
    }
    LStrHandle kept("abc");
    {
        FailAllocation fail(1);
        EXPECT_EQ(LStrCat(kept.handle, LStrValue("x").Get()), kzErrMemoryFull);
        EXPECT_TRUE(reports.Take(kDbgWarning, "Memory error 2 in"));
    }
    EXPECT_EQ(kept.Text(), "abc");
    LStrHandle front(std::string("abcdef\0", 7));
    EXPECT_EQ(LStrPrependCStr(&front.handle, reinterpret_cast<const char*>((*front.handle)->str) + 3), 0);
    EXPECT_EQ(front.Text(), std::string("defabcdef\0", 10)) << "out of itself";
}

TEST_F(StringLStr, NullHandles)
{
    LStrHandle text;
    EXPECT_EQ(LStrPrependCStr(&text.handle, "x"), 0);
    EXPECT_EQ(LStrAppendCStr(&text.handle, kNoText), 0);
    EXPECT_EQ(text.handle, nullptr);
    EXPECT_EQ(LStrAppendCStr(&text.handle, "cd"), 0);
    EXPECT_EQ(text.Text(), "cd");
    EXPECT_EQ(LStrCat(nullptr, LStrValue("a").Get()), kzErrArgument);
    EXPECT_EQ(LStrHNullTerminate(nullptr), kzErrArgument);
    EXPECT_EQ(LStrAppendCStr(nullptr, "a"), kzErrArgument);
    EXPECT_EQ(LStrPrependCStr(nullptr, "a"), 0);
    LStrValue huge("x");
    huge.Get()->cnt = 0x7FFFFFFF;  // refused before a byte of it is read
    EXPECT_EQ(LStrCat(text.handle, huge.Get()), kzErrMemoryFull);
    EXPECT_EQ(text.Text(), "cd");
}

}  // namespace
