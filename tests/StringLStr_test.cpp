#include "StringLStr.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "KzErr.h"
#include "ListTesting.h"
#include "StringPStr.h"
#include "StringUtils.h"
#include "TestStrings.h"

namespace {

using kztest::LStrHandle;
using kztest::LStrValue;
using kztest::PStrValue;
using kztest::TextOf;

const unsigned char* const kNoPStr = nullptr;
LStr** gNone = nullptr;
char gByte[1];

class StringLStr : public kztest::StringTest {};

TEST_F(StringLStr, Vectors)
{
    kztest::CheckRows("vectors/short_strings.jsonl",
                      {{"LToCStrN", [](const kztest::Json& row) {
                            LStrValue text(row["s"].Str());
                            const int32 size = static_cast<int32>(row["n"].Int());
                            char plain[16] = "old", checked[16] = "old";
                            int32 copied = -1;
                            EXPECT_EQ(LToCStrN(text.Get(), plain, size), row["result"].Int());
                            EXPECT_EQ(LToCStrNChecked(text.Get(), checked, size, &copied), row["code"].Int());
                            EXPECT_EQ(copied, size > 0 ? row["result"].Int() : -1) << "nothing is told of no room";
                            EXPECT_TRUE(plain == row["text"].Str() && checked == row["text"].Str()) << plain;
                        }}});
}

TEST_F(StringLStr, BothSpellingsAndItself)
{
    LStrValue block("0123456789");
    unsigned char spelled[8] = "four";
    EXPECT_EQ(CToLStr(spelled, block.Get()), 4);
    EXPECT_EQ(PLStrCmp("\5fours", block.Get()), 1);
    EXPECT_EQ(LToPStr(block.Get(), reinterpret_cast<char*>(spelled)), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(spelled)), "\4four");
    block.Get()->str[4] = 0;
    EXPECT_EQ(CToLStr(block.Get()->str + 1, block.Get()), 3);
    EXPECT_EQ(TextOf(block.Get()), "our");

    LStrHandle whole("0123456");
    LStr** const same = whole.handle;
    EXPECT_EQ(LStrFromPtr(&whole.handle, 4, *whole.handle), 0) << "out of the count itself";
    EXPECT_EQ(whole.Text(), std::string("\7\0\0\0", 4));
    EXPECT_EQ(PStrToDSLStr(PStrValue("short"), &whole.handle), 0);
    EXPECT_EQ(whole.Text(), "short");
    EXPECT_EQ(whole.handle, same);
    EXPECT_EQ(LStrFromPtr(&whole.handle, -1, nullptr), 0);
    EXPECT_EQ(whole.handle, nullptr);
}

// Text of 2^31 bytes and more: one piece of memory that stands at many addresses, and a page of zeros behind them.
class HugeText {
public:
    HugeText()
    {
        const int file = memfd_create("text", 0);
        EXPECT_EQ(pwrite(file, std::string(kPiece, 'x').data(), kPiece, 0), kPiece);
        for (long i = 0; i < kPieces && text != MAP_FAILED; ++i) {
            mmap(text + i * kPiece, kPiece, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0);
        }
        close(file);
    }
    ~HugeText() { munmap(text, kSize); }
    HugeText(const HugeText&) = delete;
    HugeText& operator=(const HugeText&) = delete;

    static constexpr long kPiece = 16 << 20, kPieces = 129, kSize = kPieces * kPiece + 4096;
    char* const text =
        static_cast<char*>(mmap(nullptr, kSize, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
};

TEST_F(StringLStr, TextBeyondRange)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer keeps a record of each byte";
#endif
    const HugeText huge;
    ASSERT_NE(huge.text, MAP_FAILED);
    LStrHandle text("cd");
    EXPECT_EQ(CToLHStr(huge.text, &text.handle), kzErrMemoryFull);
    EXPECT_TRUE(reports.Take(kDbgWarning, "CToLHStr FAILED:xxx"));
    EXPECT_EQ(LStrAppendCStr(&text.handle, huge.text), kzErrMemoryFull);
    EXPECT_EQ(LStrPrependCStr(&text.handle, huge.text), kzErrMemoryFull);
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
    EXPECT_EQ(kztest::BytesOf(text.handle), std::string("\2\0\0\0cd", 6));
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

TEST_F(StringLStr, Refusals)
{
    const struct {
        const char* name;
        KzErr (*call)();
        KzErr code;
        const char* report = "";
    } rows[] = {
        {"FromPtr", [] { return LStrFromPtr(nullptr, 5, "hello"); }, kzErrArgument},
        {"FromPtr, length", [] { return LStrFromPtr(&gNone, -1, "hello"); }, kzErrArgument},
        {"PToLHStr", [] { return PToLHStr("\3abc", nullptr); }, kzErrArgument, "PToLHStr FAILED:abc, size 3, 0x"},
        {"CToLHStr", [] { return CToLHStr("abc", nullptr); }, kzErrArgument, "CToLHStr FAILED:abc, size 3, 0x"},
        {"Cat", [] { return LStrCat(nullptr, LStrValue("a").Get()); }, kzErrArgument},
        {"CatEfficient", [] { return LStrCatEfficient(nullptr, nullptr); }, kzErrArgument},
        {"AppendChar", [] { return LStrAppendChar(nullptr, 'x'); }, kzErrArgument},
        {"NullTerminate", [] { return LStrHNullTerminate(nullptr); }, kzErrArgument},
        {"AppendCStr", [] { return LStrAppendCStr(nullptr, "a"); }, kzErrArgument},
        {"AppendPStr", [] { return LStrAppendPStr(nullptr, "\1a"); }, kzErrArgument},
        {"no C string", [] { return LStrAppendCStr(nullptr, nullptr); }, kzErrNone},
        {"no PStr", [] { return LStrAppendPStr(nullptr, kNoPStr); }, kzErrNone},
        {"PrependCStr", [] { return LStrPrependCStr(nullptr, "a"); }, kzErrNone},
        {"PrependCStr, none", [] { return LStrPrependCStr(&gNone, "a"); }, kzErrNone},
        {"LToCStrN", [] { return LToCStrNChecked(nullptr, gByte, 1, nullptr); }, kzErrNone},
        {"ToLower", [] { return LStrToLower(nullptr); }, kzErrNone},
        {"ToUpper", [] { return LStrToUpper(nullptr); }, kzErrNone},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.call(), row.code) << row.name;
        EXPECT_TRUE(row.report[0] == 0 || reports.Take(kDbgWarning, row.report)) << row.name;
    }
}

}  // namespace
