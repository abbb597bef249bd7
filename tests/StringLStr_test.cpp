#include "StringLStr.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "DebugStream.h"
#include "KzErr.h"
#include "ListTesting.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "StringPStr.h"
#include "StringUtils.h"
#include "TestStrings.h"

namespace {

using kztest::DrawText;
using kztest::FailAllocation;
using kztest::LStrHandle;
using kztest::LStrValue;
using kztest::PStrBuffer;
using kztest::PStrValue;
using kztest::TextOf;

const char* const kNoText = nullptr;
const unsigned char* const kNoPStr = nullptr;
LStr** gNone = nullptr;
const char kDigits[] = "012345678901234567890123456789";

class StringLStr : public ::testing::Test {
protected:
    // What calls that only read take a handle with these bytes for.
    void ExpectRead(const std::string& text, const std::string& bytes)
    {
        LStrHandle read, twice, sound(text);
        read.handle = reinterpret_cast<LStr**>(kztest::HandleOf(bytes));
        twice.handle = reinterpret_cast<LStr**>(kztest::HandleOf(bytes));
        EXPECT_TRUE(LHStrEqual(read.handle, sound.handle));
        EXPECT_EQ(LHStrCmp(read.handle, sound.handle), 0);
        EXPECT_EQ(LHStrCaseCmp(sound.handle, read.handle), 0);
        EXPECT_EQ(StringUtils::ToNarrowString(read.handle), text);
        EXPECT_EQ(Reported(read.handle), text);
        EXPECT_EQ(LStrToUpper(read.handle), 0);
        EXPECT_EQ(StringUtils::ToNarrowString(read.handle), text == "abc" ? "ABC" : text == "ab" ? "AB" : "");
        EXPECT_EQ(LStrToLower(read.handle), 0);
        EXPECT_TRUE(LHStrEqual(read.handle, sound.handle));
        EXPECT_EQ(LStrCat(twice.handle, *twice.handle), 0);
        EXPECT_EQ(twice.Text(), text + text);
    }

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
    LStrHandle text("hello");
    LStr** const same = text.handle;
    EXPECT_EQ(LStrFromPtr(&text.handle, 2, (*text.handle)->str + 3), 0) << "shorter, out of itself";
    EXPECT_EQ(text.handle, same);
    EXPECT_EQ(kztest::BytesOf(text.handle), std::string("\2\0\0\0lo", 6));
    const struct {
        int32 length;
        const char* bytes;
    } empty[] = {{0, "x"}, {5, nullptr}, {-1, nullptr}};
    for (const auto& row : empty) {
        EXPECT_EQ(CToLHStr("old", &text.handle), 0);
        EXPECT_EQ(LStrFromPtr(&text.handle, row.length, row.bytes), 0);
        EXPECT_EQ(text.handle, nullptr);
    }
    EXPECT_EQ(PStrToDSLStr(PStrValue("short"), &text.handle), 0);
    EXPECT_EQ(text.Text(), "short");
    EXPECT_EQ(PStrToDSLStr(PStrValue(""), &text.handle), 0);
    EXPECT_EQ(text.handle, nullptr);
    EXPECT_TRUE(CToLHStr(nullptr, &text.handle) == 0 && PToLHStr(kNoPStr, &text.handle) == 0);
    EXPECT_EQ(text.handle, nullptr);
}

TEST_F(StringLStr, IntoBlocks)
{
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

TEST_F(StringLStr, ToOtherKinds)
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

    PStrBuffer p("old");
    EXPECT_EQ(LToPStr(nullptr, p), 0);
    EXPECT_EQ(p.Text(), "");
    EXPECT_EQ(LToPStr(LStrValue(std::string(255, 'x')).Get(), p), 255);
    EXPECT_EQ(LToPStr(LStrValue(std::string(256, 'y')).Get(), p), 255);
    EXPECT_EQ(p.Text(), std::string(255, 'y'));
    EXPECT_TRUE(reports.Take(kDbgWarning, "LStr truncated when converting to PStr. Original LStr length=256"));
}

// A change of the text that a handle holds: what goes before and behind the text, or takes its place, and the block.
struct Change {
    enum Room { kExact, kSpare, kOneMore };

    const char* name;
    KzErr (*call)(LStr*** handle);
    std::string front, back;
    Room room = kExact;
    bool replaces = false, makes = false;  // the old text; a handle where there is none
};
const Change kChanges[] = {
    {"AppendChar", [](LStr*** h) { return LStrAppendChar(*h, 0x178); }, "", "x", Change::kSpare},
    {"CatEfficient", [](LStr*** h) { return LStrCatEfficient(*h, LStrValue("xyz").Get()); }, "", "xyz", Change::kSpare},
    {"Cat", [](LStr*** h) { return LStrCat(*h, LStrValue("xy").Get()); }, "", "xy"},
    {"Cat of nothing", [](LStr*** h) { return LStrCat(*h, nullptr); }, "", ""},
    {"Append nothing", [](LStr*** h) { return LStrAppendCStr(h, kNoText) + LStrAppendCStr(h, ""); }, "", ""},
    {"Prepend nothing", [](LStr*** h) { return LStrPrependCStr(h, kNoText) + LStrPrependCStr(h, ""); }, "", ""},
    {"AppendCStr", [](LStr*** h) { return LStrAppendCStr(h, "xy"); }, "", "xy", Change::kExact, false, true},
    {"AppendPStr", [](LStr*** h) { return LStrAppendPStr(h, "\4abcd"); }, "", "abcd", Change::kExact, false, true},
    {"PrependCStr", [](LStr*** h) { return LStrPrependCStr(h, "xy"); }, "xy", ""},
    {"NullTerminate", [](LStr*** h) { return LStrHNullTerminate(*h); }, "", std::string(1, '\0'), Change::kOneMore},
    {"FromPtr", [](LStr*** h) { return LStrFromPtr(h, 30, kDigits); }, "", kDigits, Change::kExact, true, true},
    {"PToLHStr", [](LStr*** h) { return PToLHStr("\2xy", h); }, "", "xy", Change::kExact, true, true},
    {"CToLHStr", [](LStr*** h) { return CToLHStr("xyz", h); }, "", "xyz", Change::kExact, true, true},
};

// Each change of each block, with each of its allocations failing, which leaves text and block as they were. Of the
// text that a handle's count tells, what the block holds is the text.
TEST_F(StringLStr, EachChangeOfEachBlock)
{
    struct Block {
        int size;  // -1 for no handle
        int32 count;
        std::string text;
    };
    const Block blocks[] = {
        {-1, 0, ""},           {7, 3, "abc"},  {100, 3, "abc"},         {0, 0, ""}, {3, 0x7FFFFF, ""}, {4, 100, ""},
        {6, 0x7FFFFFFF, "ab"}, {6, 100, "ab"}, {6, -0x7FFFFFFF - 1, ""}};
    for (const Block& block : blocks) {
        const auto size = static_cast<unsigned long>(std::max(block.size, 0));
        std::string bytes = std::string(4, '\0') + "abc" + std::string(93, '-');
        std::memcpy(bytes.data(), &block.count, 4);
        bytes.resize(size);
        for (const Change& change : kChanges) {
            if (block.size < 0 && !change.makes) {
                continue;
            }
            SCOPED_TRACE(change.name + std::string(" of ") + std::to_string(block.size) + " " +
                         std::to_string(block.count));
            const std::string text = change.front + (change.replaces ? "" : block.text) + change.back;
            const unsigned long exact = 4 + text.size();
            const unsigned long room = change.room == Change::kExact   ? exact
                                       : change.room == Change::kSpare ? std::max(size, exact)
                                                                       : std::max(size, 4ul) + 1;
            const auto scenario = [&](const auto& failed) {
                LStr** handle = block.size < 0 ? nullptr : reinterpret_cast<LStr**>(DSNewHandle(size));
                if (handle == nullptr && block.size >= 0) {
                    return;
                }
                if (size != 0) {
                    std::memcpy(*handle, bytes.data(), size);
                }
                const KzErr err = change.call(&handle);
                EXPECT_EQ(err, failed() ? kzErrMemoryFull : kzErrNone);
                if (err == kzErrNone) {
                    EXPECT_EQ(TextOf(*handle), text);
                    EXPECT_EQ(DSGetHandleSize(handle), room);
                } else {
                    EXPECT_EQ(handle == nullptr, block.size < 0);
                    EXPECT_EQ(handle == nullptr ? "" : kztest::BytesOf(handle), bytes);
                }
                DSDisposeHandle(handle);
            };
            kztest::FaultLoop(scenario, FailAllocation::kBlocks);
        }
        reports.TakeAll();
        ExpectRead(block.text, bytes);
    }
}

// What a change takes may lie in the block that it resizes, and be longer than what is kept aside when parts change
// places: random changes against a plain text.
TEST_F(StringLStr, RandomChanges)
{
    std::mt19937_64 draw(5);
    for (unsigned sequence = 0; sequence < kztest::ModelSequences() / 20; ++sequence) {
        LStrHandle text("start");
        std::string model = "start";
        for (int step = 0; step < 20; ++step) {
            const std::string part = DrawText(draw, draw() % 3 == 0 ? 9000 : 12);
            const std::size_t at = draw() % model.size();
            const unsigned kind = model.size() > 20000 ? 7 : draw() % 8;
            const bool ownPart = kind == 2 || kind == 3;
            if (ownPart) {
                ASSERT_EQ(LStrHNullTerminate(text.handle), 0);
                model += '\0';
            }
            const char* const own = reinterpret_cast<const char*>((*text.handle)->str) + at;
            const char* const added = ownPart ? own : part.c_str();
            const std::string addedText = added;
            const std::size_t n = std::min<std::size_t>(1 + draw() % 5000, model.size() - at);
            KzErr err = kzErrNone;
            if (kind < 4) {
                err = kind % 2 == 0 ? LStrAppendCStr(&text.handle, added) : LStrPrependCStr(&text.handle, added);
                model = kind % 2 == 0 ? model + addedText : addedText + model;
            } else if (kind < 6) {
                err = (kind == 4 ? LStrCat : LStrCatEfficient)(text.handle, *text.handle);
                model += model;
            } else if (kind == 6) {
                err = DSSetHandleSize(text.handle, text.BlockSize() + draw() % 9000);
            } else {
                err = LStrFromPtr(&text.handle, static_cast<int32>(n), own);
                model = model.substr(at, n);
            }
            ASSERT_EQ(err, 0);
            ASSERT_EQ(text.Text(), model) << sequence << " " << step << " " << kind;
        }
    }
    LStrHandle whole("0123456");
    EXPECT_EQ(LStrFromPtr(&whole.handle, 4, *whole.handle), 0) << "out of the count itself";
    EXPECT_EQ(whole.Text(), std::string("\7\0\0\0", 4));
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
    char c[2] = "o";
    EXPECT_EQ(LToCStrN(claimed.Get(), c, -0x7FFFFFFF - 1), 0);
    EXPECT_STREQ(c, "o");
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

        {"ToLower", [] { return LStrToLower(nullptr); }, kzErrNone},
        {"ToUpper", [] { return LStrToUpper(nullptr); }, kzErrNone},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.call(), row.code) << row.name;
        EXPECT_TRUE(row.report[0] == 0 || reports.Take(kDbgWarning, row.report)) << row.name;
    }
}

}  // namespace
