#include "StringLStr.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "DebugStream.h"
#include "KzErr.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "StringPStr.h"
#include "StringUtils.h"
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
    // What a report shows of it.
    std::string Reported(LStr** handle)
    {
        DebugStream stream("test", __LINE__, "", kDbgLog);
        ToDebugStream(stream, handle);
        stream.Process();
        const std::vector<kztest::CaughtReport> all = reports.TakeAll();
        return all.size() == 1 ? all[0].text : "not one report";
    }

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
    EXPECT_EQ(CToLHStr(nullptr, &text.handle), 0);
    EXPECT_EQ(PToLHStr(PStrValue("abc"), nullptr), kzErrArgument);
    EXPECT_TRUE(reports.Take(kDbgWarning, "PToLHStr FAILED:abc, size 3, 0x"));
    EXPECT_EQ(CToLHStr("abc", nullptr), kzErrArgument);
    EXPECT_TRUE(reports.Take(kDbgWarning, "CToLHStr FAILED:abc, size 3, 0x"));

    LStrValue block("0123456789");
    EXPECT_EQ(CToLStr("four", block.Get()), 4);
    EXPECT_EQ(TextOf(block.Get()), "four");
    unsigned char spelled[8] = "four";
    EXPECT_EQ(PLStrCmp("\5fours", block.Get()), 1);
    EXPECT_EQ(CToLStr(spelled, block.Get()), 4);
    EXPECT_EQ(LToPStr(block.Get(), reinterpret_cast<char*>(spelled)), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(spelled)), "\4four");
    EXPECT_EQ(PToLStr(PStrValue("short"), block.Get()), 5);
    EXPECT_EQ(TextOf(block.Get()), "short");
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
        {"case", 100, [](LStr*** h) { return LStrToUpper(*h); }, "ABC", 100},
        {"NUL", 100, [](LStr*** h) { return LStrHNullTerminate(*h); }, std::string("abc\0", 4), 101},
    };
    for (const Case& c : cases) {
        LStrHandle text("abc");
        ASSERT_EQ(DSSetHandleSize(text.handle, c.room), 0);
        EXPECT_EQ(c.change(&text.handle), 0) << c.name;
        EXPECT_EQ(text.Text(), c.text) << c.name;
        EXPECT_EQ(text.BlockSize(), c.block) << c.name;
    }
}

// What a change takes may lie in the block that it resizes.
TEST_F(StringLStr, OutOfItself)
{
    const std::string old("abcdef\0", 7);
    const auto at = [](LStr*** h, int index) { return reinterpret_cast<const char*>((**h)->str) + index; };
    struct Case {
        KzErr (*change)(LStr*** handle, const char* d);
        std::string text;
    };
    const Case cases[] = {
        {[](LStr*** h, const char*) { return LStrCatEfficient(*h, **h); }, old + old},
        {[](LStr*** h, const char* d) { return LStrAppendCStr(h, d); }, old + "def"},
        {[](LStr*** h, const char* d) { return LStrPrependCStr(h, d); }, "def" + old},
        {[](LStr*** h, const char* d) { return LStrFromPtr(h, 3, d); }, "def"},
        {[](LStr*** h, const char* d) { return CToLHStr(d, h); }, "def"},
        {[](LStr*** h, const char* d) { return LStrFromPtr(h, 20, d - 3); }, old + std::string(13, 'x')},
        {[](LStr*** h, const char*) { return LStrFromPtr(h, 4, **h); }, std::string("\7\0\0\0", 4)},
    };
    for (const unsigned long room : {11ul, 24ul, 40ul}) {
        for (const Case& c : cases) {
            LStrHandle text(old + std::string(33, 'x'));
            (*text.handle)->cnt = 7;
            ASSERT_EQ(DSSetHandleSize(text.handle, std::max(room, c.text.size() + 4)), 0);
            EXPECT_EQ(c.change(&text.handle, at(&text.handle, 3)), 0);
            EXPECT_EQ(text.Text(), c.text) << room;
        }
    }
}

// Whichever allocation fails, the text and its block are as they were.
TEST_F(StringLStr, OutOfMemory)
{
    const std::string old = "abcdef";
    KzErr (*const changes[])(LStr * **h, const LStr* four) = {
        [](LStr*** h, const LStr* four) { return LStrFromPtr(h, 3, *h == nullptr ? four->str : (**h)->str + 2); },
        [](LStr*** h, const LStr*) { return LStrFromPtr(h, 30, "012345678901234567890123456789"); },
        [](LStr*** h, const LStr*) { return PToLHStr("\4abcd", h); },
        [](LStr*** h, const LStr*) { return CToLHStr("xy", h); },
        [](LStr*** h, const LStr*) { return *h == nullptr ? kzErrNone : LStrAppendChar(*h, 'x'); },
        [](LStr*** h, const LStr* four) { return *h == nullptr ? kzErrNone : LStrCatEfficient(*h, four); },
        [](LStr*** h, const LStr* four) { return *h == nullptr ? kzErrNone : LStrCat(*h, four); },
        [](LStr*** h, const LStr*) { return LStrAppendCStr(h, "xy"); },
        [](LStr*** h, const LStr*) { return LStrAppendPStr(h, "\4abcd"); },
        [](LStr*** h, const LStr*) { return LStrPrependCStr(h, "xy"); },
        [](LStr*** h, const LStr*) { return *h == nullptr ? kzErrNone : LStrHNullTerminate(*h); },
    };
    LStrValue four("0123");
    for (const unsigned long room : {0ul, 10ul, 100ul}) {
        for (const auto& change : changes) {
            const auto scenario = [&](const auto& failed) {
                LStr** handle = reinterpret_cast<LStr**>(room == 0 ? nullptr : DSNewHandle(room));
                if (handle != nullptr) {
                    (*handle)->cnt = 6;
                    std::memcpy((*handle)->str, old.data(), 6);
                } else if (room != 0) {
                    return;
                }
                const KzErr err = change(&handle, four.Get());
                EXPECT_EQ(err, failed() ? kzErrMemoryFull : kzErrNone);
                if (err != kzErrNone) {
                    EXPECT_EQ(handle == nullptr, room == 0);
                    EXPECT_EQ(handle == nullptr ? old : TextOf(*handle), old);
                    EXPECT_EQ(handle == nullptr ? 0 : DSGetHandleSize(handle), room);
                }
                DSDisposeHandle(handle);
            };
            kztest::FaultLoop(scenario, FailAllocation::kBlocks);
        }
    }
    EXPECT_FALSE(reports.TakeAll().empty());
}

// Text of 2^31 bytes and more: one piece of memory that stands at many addresses.
class HugeText {
public:
    HugeText()
    {
        const int file = memfd_create("text", 0);
        const std::string piece(kPiece, 'x');
        const std::string last = piece.substr(1) + '\0';
        const bool written = file >= 0 && pwrite(file, piece.data(), kPiece, 0) == kPiece &&
                             pwrite(file, last.data(), kPiece, kPiece) == kPiece;
        void* const start =
            mmap(nullptr, kPieces * kPiece, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (!written || start == MAP_FAILED) {
            return;
        }
        mStart = static_cast<char*>(start);
        for (long i = 0; i < kPieces; ++i) {
            mmap(mStart + i * kPiece, kPiece, PROT_READ, MAP_SHARED | MAP_FIXED, file, i + 1 == kPieces ? kPiece : 0);
        }
        close(file);
    }
    ~HugeText() { munmap(mStart, kPieces * kPiece); }
    HugeText(const HugeText&) = delete;
    HugeText& operator=(const HugeText&) = delete;

    const char* Get() const { return mStart; }

private:
    static constexpr long kPiece = 16 << 20;
    static constexpr long kPieces = 129;
    char* mStart = nullptr;
};

TEST_F(StringLStr, TextBeyondRange)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer keeps a record of each byte";
#endif
    const HugeText huge;
    ASSERT_NE(huge.Get(), nullptr);
    LStrHandle text("cd");
    EXPECT_EQ(CToLHStr(huge.Get(), &text.handle), kzErrMemoryFull);
    EXPECT_TRUE(reports.Take(kDbgWarning, "CToLHStr FAILED:xxx"));
    EXPECT_EQ(LStrAppendCStr(&text.handle, huge.Get()), kzErrMemoryFull);
    EXPECT_EQ(LStrPrependCStr(&text.handle, huge.Get()), kzErrMemoryFull);
    EXPECT_EQ(text.Text(), "cd");
}

TEST_F(StringLStr, CountsBeyondRange)
{
    LStrHandle text("cd");
    LStrValue claimed("x");
    for (const int32 count : {0x7FFFFFFF, 0x7FFFFFFE}) {
        claimed.Get()->cnt = count;  // refused before a byte of it is read
        EXPECT_EQ(LStrCat(text.handle, claimed.Get()), kzErrMemoryFull);
        EXPECT_EQ(LStrCatEfficient(text.handle, claimed.Get()), kzErrMemoryFull);
    }
    EXPECT_EQ(text.Text(), "cd");
    EXPECT_EQ(text.BlockSize(), 6u);

    EXPECT_EQ(PtrLenStrCmp("a", -0x7FFFFFFF - 1, "b", 1), -1);
    EXPECT_EQ(PtrLenStrCaseCmp("a", 1, "A", -0x7FFFFFFF - 1), 1);
    char c[2] = "o";
    EXPECT_EQ(LToCStrN(claimed.Get(), c, -0x7FFFFFFF - 1), 0);
    EXPECT_STREQ(c, "o");
}

// Of the text that a handle's count tells, what the block holds is the text.
TEST_F(StringLStr, CountsThatTheBlockDoesNotHold)
{
    struct Block {
        unsigned long size;
        int32 count;
        std::string text;
    };
    const Block blocks[] = {{0, 0, ""},     {3, 0x7FFFFF, ""},       {4, 100, ""}, {6, 0x7FFFFFFF, "ab"},
                            {6, 100, "ab"}, {6, -0x7FFFFFFF - 1, ""}};
    struct Change {
        KzErr (*change)(LStr*** handle);
        std::string front, back;
    };
    const Change changes[] = {
        {[](LStr*** h) { return LStrAppendChar(*h, 'x'); }, "", "x"},
        {[](LStr*** h) { return LStrCatEfficient(*h, LStrValue("xyz").Get()); }, "", "xyz"},
        {[](LStr*** h) { return LStrCat(*h, LStrValue("").Get()); }, "", ""},
        {[](LStr*** h) { return LStrAppendCStr(h, "xy"); }, "", "xy"},
        {[](LStr*** h) { return LStrAppendPStr(h, PStrValue("xy")); }, "", "xy"},
        {[](LStr*** h) { return LStrPrependCStr(h, "xy"); }, "xy", ""},
        {[](LStr*** h) { return LStrHNullTerminate(*h); }, "", std::string(1, '\0')},
        {[](LStr*** h) { return LStrToUpper(*h) + LStrToLower(*h) + LStrAppendChar(*h, '!'); }, "", "!"},
    };
    for (const Block& block : blocks) {
        const auto fill = [&block](LStrHandle& text) {
            const char bytes[] = {0, 0, 0, 0, 'a', 'b'};
            ASSERT_EQ(DSSetHandleSizeOrNewHandle(&text.handle, block.size), 0);
            std::memcpy(*text.handle, bytes, block.size);
            std::memcpy(*text.handle, &block.count, std::min<std::size_t>(block.size, 4));
        };
        for (const Change& c : changes) {
            LStrHandle text;
            fill(text);
            EXPECT_EQ(c.change(&text.handle), 0);
            EXPECT_EQ(text.Text(), c.front + block.text + c.back) << block.size << " " << block.count;
            EXPECT_GE(text.BlockSize(), text.Text().size() + 4);
        }
        LStrHandle text, twice, sound(block.text);
        fill(text);
        EXPECT_TRUE(LHStrEqual(text.handle, sound.handle));
        EXPECT_EQ(LHStrCmp(text.handle, sound.handle), 0);
        EXPECT_EQ(LHStrCaseCmp(sound.handle, text.handle), 0);
        EXPECT_EQ(StringUtils::ToNarrowString(text.handle), block.text);
        EXPECT_EQ(Reported(text.handle), block.text);
        fill(twice);
        EXPECT_EQ(LStrCat(twice.handle, *twice.handle), 0);
        EXPECT_EQ(twice.Text(), block.text + block.text);
    }
}

// The address of a pointer will do for a handle where nothing is resized, wherever the string stands.
TEST_F(StringLStr, StringsOutsideTheMemoryManager)
{
    const LStrHandle handle("text");
    for (const size_t at : {0u, 1u, 2u, 3u}) {
        unsigned char bytes[16] = {};
        std::memcpy(bytes + at, *handle.handle, 8);
        LStr* string = reinterpret_cast<LStr*>(bytes + at);
        EXPECT_EQ(LHStrCmp(&string, handle.handle), 0) << at;
        EXPECT_EQ(StringUtils::ToNarrowString(&string), "text") << at;
        EXPECT_EQ(Reported(&string), "text") << at;
        EXPECT_EQ(LStrToUpper(&string), 0);
        EXPECT_EQ(Reported(&string), "TEXT") << at;
    }
}

TEST_F(StringLStr, DisposedHandles)
{
    LStr** handle = LStrHandle("text").handle;
    EXPECT_EQ(Reported(handle), "");
    EXPECT_EQ(LHStrCmp(handle, nullptr), 0);
    EXPECT_TRUE(reports.Take(kDbgFatal, ""));
    EXPECT_NE(LStrAppendChar(handle, 'x'), 0);
    EXPECT_TRUE(reports.Take(kDbgFatal, "") && reports.Take(kDbgWarning, "Memory error"));
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
    EXPECT_EQ(LStrToLower(nullptr), 0);
    EXPECT_EQ(LStrAppendCStr(nullptr, "a"), kzErrArgument);
    EXPECT_EQ(LStrPrependCStr(nullptr, "a"), 0);
    EXPECT_EQ(LStrCatEfficient(nullptr, nullptr), kzErrArgument);
    EXPECT_EQ(LStrAppendChar(nullptr, 'x'), kzErrArgument);
    EXPECT_EQ(LStrAppendCStr(nullptr, nullptr), 0);
}

}  // namespace
