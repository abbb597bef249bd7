// C strings, PStr and LStr: what is copied, appended and converted among them against plain texts, stored results, and
// what is unique to a call.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <string>

#include "JsonLines.h"
#include "KzErr.h"
#include "ListTesting.h"
#include "PlatformText.h"
#include "StringCStr.h"
#include "StringLStr.h"
#include "StringPStr.h"
#include "StringUtils.h"
#include "TestStrings.h"

namespace {

using kztest::DrawText;
using kztest::FailAllocation;
using kztest::Json;
using kztest::LStrHandle;
using kztest::LStrValue;
using kztest::PStrBuffer;
using kztest::PStrValue;
using kztest::TextOf;
using Strings = kztest::StringTest;

constexpr std::size_t kRoom = 12000;  // of a C string and of a block

// What is changed, and what is put into it.
enum Kind { kC, kP, kBlock, kHandle, kBytes, kByte, kNul };
enum How { kAssign, kAppend, kPrepend };
enum Fit { kAny, kExact, kSpare, kOneMore };

struct Targets {
    Targets() { EXPECT_EQ(CToLStr("", block.Get()), 0); }

    char c[kRoom] = "";
    PStrBuffer p{""};
    LStrValue block{std::string(kRoom, '-')};
    LStrHandle l;
    std::string texts[4];  // of each
    std::size_t size = 0;  // of the handle's block
};

// A text in all forms; null where an empty one is given as null.
struct Part {
    std::string text;
    const char* c;
    const unsigned char* p;
    const LStr* l;

    int32 Size() const { return static_cast<int32>(text.size()); }
};

struct Edit {
    const char* name;
    Kind target, source;
    How how;
    Fit fit;
    std::function<long(Targets& to, const Part& part)> call;  // the code for a handle, else the length
};
using S = Targets;
using Of = const Part;
const Edit kEdits[] = {
    {"StrCpy", kC, kC, kAssign, kAny, [](S& s, Of& of) { return StrLen(StrCpy(s.c, of.c)); }},
    {"StrCat", kC, kC, kAppend, kAny, [](S& s, Of& of) { return StrCat(s.c, of.c); }},
    {"PToCStr", kC, kP, kAssign, kAny, [](S& s, Of& of) { return PToCStr(of.p, s.c); }},
    {"LToCStr", kC, kBlock, kAssign, kAny, [](S& s, Of& of) { return LToCStr(of.l, s.c); }},
    {"PStrCpy", kP, kP, kAssign, kAny, [](S& s, Of& of) { return PStrCpy(s.p, of.p)[0]; }},
    {"PStrCat", kP, kP, kAppend, kAny, [](S& s, Of& of) { return PStrCat(s.p, of.p); }},
    {"CToPStr", kP, kC, kAssign, kAny, [](S& s, Of& of) { return CToPStr(of.c, s.p); }},
    {"LToPStr", kP, kBlock, kAssign, kAny, [](S& s, Of& of) { return LToPStr(of.l, s.p); }},
    {"CToLStr", kBlock, kC, kAssign, kAny, [](S& s, Of& of) { return CToLStr(of.c, s.block.Get()); }},
    {"PToLStr", kBlock, kP, kAssign, kAny, [](S& s, Of& of) { return PToLStr(of.p, s.block.Get()); }},
    {"CToLHStr", kHandle, kC, kAssign, kExact, [](S& s, Of& of) { return CToLHStr(of.c, &s.l.handle); }},
    {"PToLHStr", kHandle, kP, kAssign, kExact, [](S& s, Of& of) { return PToLHStr(of.p, &s.l.handle); }},
    {"FromPtr", kHandle, kBytes, kAssign, kExact,
     [](S& s, Of& of) { return LStrFromPtr(&s.l.handle, of.Size(), of.c); }},
    {"AppendCStr", kHandle, kC, kAppend, kExact, [](S& s, Of& of) { return LStrAppendCStr(&s.l.handle, of.c); }},
    {"AppendPStr", kHandle, kP, kAppend, kExact, [](S& s, Of& of) { return LStrAppendPStr(&s.l.handle, of.p); }},
    {"PrependCStr", kHandle, kC, kPrepend, kExact, [](S& s, Of& of) { return LStrPrependCStr(&s.l.handle, of.c); }},
    {"Cat", kHandle, kBlock, kAppend, kExact, [](S& s, Of& of) { return LStrCat(s.l.handle, of.l); }},
    {"CatEfficient", kHandle, kBlock, kAppend, kSpare, [](S& s, Of& of) { return LStrCatEfficient(s.l.handle, of.l); }},
    {"AppendChar", kHandle, kByte, kAppend, kSpare, [](S& s, Of&) { return LStrAppendChar(s.l.handle, 0x178); }},
    {"NullTerminate", kHandle, kNul, kAppend, kOneMore, [](S& s, Of&) { return LStrHNullTerminate(s.l.handle); }},
};

class StringEdits : public kztest::StringTest {
protected:
    // Another handle, with a count that need not be true and perhaps with spare room. What the block holds is the text.
    void Disturb(Targets& to)
    {
        constexpr int32 kCounts[] = {3, 100, 0x7FFFFF, INT_MAX, INT_MIN};
        constexpr std::size_t kSizes[] = {0, 3, 4, 6, 7, 100, 5000};
        const int32 count = kCounts[mDraw() % std::size(kCounts)];
        std::string bytes = std::string(4, '\0') + "abc" + std::string(5000, '-');
        std::memcpy(bytes.data(), &count, 4);
        bytes.resize(kSizes[mDraw() % std::size(kSizes)]);
        DSDisposeHandle(to.l.handle);
        to.l.handle = reinterpret_cast<LStr**>(kztest::HandleOf(bytes));
        to.size = to.l.handle == nullptr ? 0 : bytes.size();
        to.texts[kHandle] = to.size < 4 ? "" : bytes.substr(4, static_cast<std::size_t>(std::max(count, 0)));
    }

    // Where a source may lie in the target, it is a part of that at times.
    void TakeOwn(const Edit& edit, Targets& to, Part& part)
    {
        const std::string& old = to.texts[edit.target];
        const std::size_t at = mDraw() % (old.size() + 1);
        const char* const bytes = edit.target == kHandle && to.size >= 4 ? kz::AsChars((*to.l.handle)->str) : nullptr;
        if (edit.target == kC && edit.source == kC) {
            part = {old.substr(at), to.c + at, nullptr, nullptr};
        } else if (edit.target == kP && edit.source == kP) {
            part = {old, nullptr, to.p, nullptr};
        } else if (bytes != nullptr && edit.source == kBlock) {
            part = {old, nullptr, nullptr, *to.l.handle};
        } else if (bytes != nullptr && edit.source == kBytes && at != old.size()) {
            part = {old.substr(at, 1 + mDraw() % 5000), bytes + at, nullptr, nullptr};
        } else if (bytes != nullptr && edit.source == kC && old.find('\0', at) != std::string::npos) {
            part = {old.substr(at).c_str(), bytes + at, nullptr, nullptr};
        } else if (bytes != nullptr && edit.source == kP && at + 1 + kz::AsBytes(old.c_str())[at] <= old.size()) {
            part = {old.substr(at + 1, kz::AsBytes(old.c_str())[at]), nullptr, kz::AsBytes(bytes) + at, nullptr};
        }
    }

    Part DrawPart(const Edit& edit, Targets& to, const std::string& plain, const unsigned char* p, const LStr* l)
    {
        const bool takesNull = edit.target >= kBlock || edit.source == kBlock;
        const bool isNull = plain.empty() && takesNull && mDraw() % 2 == 0;
        Part part = isNull ? Part{plain, nullptr, nullptr, nullptr} : Part{plain, plain.c_str(), p, l};
        if (mDraw() % 3 == 0) {
            TakeOwn(edit, to, part);
        }
        part.text = edit.source == kByte ? "x" : edit.source == kNul ? std::string(1, '\0') : part.text;
        return part;
    }

    // An edit that can be done now.
    void Run(const Edit& edit, Targets& to)
    {
        std::string& text = to.texts[edit.target];
        // Of small letters alone, because Look leaves the handle without capital ones.
        const unsigned longest = edit.source == kP ? 255 : mDraw() % 3 == 0 ? 9000 : 300;
        const std::string plain(DrawText(mDraw, longest).size(), static_cast<char>('a' + mDraw() % 6));
        const PStrValue shortText(plain.substr(0, 255));
        LStrValue longText(plain);
        const Part part = DrawPart(edit, to, plain, shortText, longText.Get());
        const bool isNone = edit.target == kHandle && to.l.handle == nullptr;
        const bool makes = edit.how == kAssign || (edit.how == kAppend && edit.source <= kP);
        if ((edit.target != kHandle && text.size() + part.text.size() >= kRoom) ||
            (isNone && !makes && edit.how == kAppend)) {
            return;
        }
        const bool isGiven = (edit.source != kC || part.c != nullptr) && (edit.source != kP || part.p != nullptr);
        const bool changes = edit.how == kAssign || (isGiven && (makes || !isNone));
        std::string expected = !changes              ? text
                               : edit.how == kAssign ? part.text
                               : edit.how == kAppend ? text + part.text
                                                     : part.text + text;
        const std::string before = to.l.handle == nullptr ? "" : kztest::BytesOf(to.l.handle);
        const long result = edit.call(to, part);
        if (edit.target == kP && expected.size() > 255) {
            const std::string report = "LStr truncated when converting to PStr. Original LStr length=";
            EXPECT_TRUE(edit.source != kBlock || reports.Take(kDbgWarning, report + std::to_string(part.text.size())));
            expected.resize(255);
        }
        if (edit.target == kHandle && result != 0) {
            EXPECT_TRUE(result == kzErrMemoryFull && FailAllocation::Happened()) << result;
            EXPECT_EQ(to.l.handle == nullptr ? "" : kztest::BytesOf(to.l.handle), before);
            EXPECT_EQ(to.l.handle == nullptr, isNone);
            reports.TakeAll();
            return;
        }
        EXPECT_EQ(result, edit.target == kHandle ? 0 : static_cast<long>(expected.size()));
        text = expected;
        if (edit.target == kHandle) {
            const bool isNull = changes ? edit.how == kAssign && text.empty() : isNone;
            EXPECT_EQ(to.l.handle == nullptr, isNull);
            to.size = isNull                 ? 0
                      : !changes             ? to.size
                      : edit.fit == kExact   ? 4 + text.size()
                      : edit.fit == kOneMore ? std::max<std::size_t>(to.size, 4) + 1
                                             : std::max(to.size, 4 + text.size());
        }
    }

    // All hold their texts, also for the calls that only read a handle.
    void Look(Targets& to)
    {
        ASSERT_EQ(std::string(to.c), to.texts[kC]);
        ASSERT_EQ(to.p.Text(), to.texts[kP]);
        ASSERT_EQ(TextOf(to.block.Get()), to.texts[kBlock]);
        const std::string& text = to.texts[kHandle];
        LStrValue sound(text);
        LStr* master = sound.Get();
        for (const bool isUpper : {true, false}) {
            EXPECT_EQ((isUpper ? LStrToUpper : LStrToLower)(to.l.handle), 0);
            EXPECT_EQ((isUpper ? LStrToUpper : LStrToLower)(&master), 0);
            ASSERT_EQ(StringUtils::ToNarrowString(to.l.handle), TextOf(master));
            ASSERT_TRUE(LHStrEqual(to.l.handle, &master) && LHStrCmp(to.l.handle, &master) == 0);
            ASSERT_EQ(LHStrCaseCmp(&master, to.l.handle), 0);
        }
        ASSERT_EQ(TextOf(master), text);
        ASSERT_EQ(to.l.handle == nullptr ? 0 : to.l.BlockSize(), to.size);
        EXPECT_EQ(Reported(to.l.handle), std::string(text.c_str()).substr(0, 255));
    }

    kztest::Draw mDraw{1};
};

TEST_F(StringEdits, MatchPlainTexts)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 10; ++seed) {
        mDraw.seed(seed);
        Targets targets;
        const auto span = mDraw() % 2 == 0 ? FailAllocation::kOnce : FailAllocation::kForGood;
        const FailAllocation fail(static_cast<int>(1 + mDraw() % 60), span);
        for (int step = 0; step < 60; ++step) {
            if (mDraw() % 8 == 0 || targets.texts[kHandle].size() > 20000) {
                Disturb(targets);
                reports.TakeAll();
            }
            const Edit& edit = kEdits[mDraw() % std::size(kEdits)];
            SCOPED_TRACE(std::to_string(seed) + " " + std::to_string(step) + " " + edit.name);
            Run(edit, targets);
            ASSERT_NO_FATAL_FAILURE(Look(targets));
            ASSERT_FALSE(HasFailure());
        }
    }
}

// What a row's call returns; its results by text go to `dst`, and where there are two, to `source` too.
long long Called(const Json& row, PStrBuffer& dst, PStrBuffer& source)
{
    const std::string& op = row["op"].Str();
    if (op == "PStrInPStr") {
        return PStrInPStr(source, static_cast<int32>(row["start"].Int()), PStrValue(row["sub"].Str()));
    }
    if (op == "PStrEndsWith") {
        return PStrEndsWith(source, row["suffix"].Str().c_str());
    }
    if (op == "PStrSplitAtChar") {
        return PStrSplitAtChar(source, row["at"].Str()[0], dst, source);
    }
    if (op == "PStrFindReplace") {
        return PStrFindReplace(dst, source, row["find"].Str().c_str(), row["replace"].Str().c_str());
    }
    return PStrNCpy(dst, source, static_cast<uInt32>(row["n"].UInt())) == dst.bytes ? 1 : 0;
}

// Behind each text stands more that would match.
void CheckShort(const Json& row)
{
    const std::string& s = row["s"].Str();
    PStrBuffer dst("old"), source((s + " two.txt,,aab").substr(0, 255));
    source.bytes[0] = static_cast<unsigned char>(s.size());
    EXPECT_EQ(Called(row, dst, source), row["result"].Int());
    EXPECT_TRUE(!row.Has("text") || dst.Text() == row["text"].Str());
    EXPECT_TRUE(!row.Has("right") || source.Text() == row["right"].Str());
    if (row.Has("find")) {
        Called(row, source, source);
        EXPECT_EQ(source.Text(), row["text"].Str()) << "in place";
    }
}

void CheckCut(const Json& row)
{
    LStrValue text(row["s"].Str());
    const int32 size = static_cast<int32>(row["n"].Int());
    char plain[16] = "old", checked[16] = "old";
    int32 copied = -1;
    EXPECT_EQ(LToCStrN(text.Get(), plain, size), row["result"].Int());
    EXPECT_EQ(LToCStrNChecked(text.Get(), checked, size, &copied), row["code"].Int());
    EXPECT_EQ(copied, size > 0 ? row["result"].Int() : -1) << "nothing is told of no room";
    EXPECT_TRUE(plain == row["text"].Str() && checked == row["text"].Str()) << plain;
}

TEST_F(Strings, Vectors)
{
    const auto place = [](const Json& row, char* (*call)(const char*, int32)) {
        const char* const s = row["s"].Str().c_str();
        const char* const found = call(s, static_cast<int32>(row["c"].Int()));
        EXPECT_EQ(found == nullptr ? -1 : found - s, row["result"].Int());
    };
    const auto step = [](const Json& row, int32 (*call)(const char*, int32)) {
        EXPECT_EQ(call(row["bytes"].Hex().data(), static_cast<int32>(row["index"].Int())), row["result"].Int());
    };
    const auto isIn = [](const Json& row) {
        EXPECT_EQ(StrIStr(row["s"].Str().c_str(), row["pattern"].Str().c_str()), row["result"].Int());
    };
    const auto copy = [](const Json& row) {
        char dst[] = "......";
        EXPECT_EQ(StrNCpy(dst, row["s"].Str().c_str(), static_cast<uInt32>(row["n"].UInt())), dst);
        EXPECT_EQ(std::string(dst, 6), row["result"].Str());
    };
    const auto mapCase = [](const Json& row) {
        std::string upper = row["bytes"].Hex(), lower = upper;
        EXPECT_EQ(StrToUpper(upper.data(), static_cast<int32>(upper.size())), 0);
        EXPECT_EQ(upper, row["upper"].Hex());
        EXPECT_EQ(StrToLower(lower.data(), static_cast<int32>(lower.size())), 0);
        EXPECT_EQ(lower, row["lower"].Hex());
    };
    const auto hash = [](const Json& row) {
        EXPECT_EQ(PStrHash32(PStrValue(row["text"].Str()), row["ignoreCase"].Int() != 0), row["hash"].UInt());
    };
    kztest::CheckRows("vectors/short_strings.jsonl", {{"StrIStr", isIn},
                                                      {"StrNCpy", copy},
                                                      {"StrChr", [&](const Json& row) { place(row, &StrChr); }},
                                                      {"StrRChr", [&](const Json& row) { place(row, &StrRChr); }},
                                                      {"PStrNCpy", &CheckShort},
                                                      {"PStrInPStr", &CheckShort},
                                                      {"PStrEndsWith", &CheckShort},
                                                      {"PStrFindReplace", &CheckShort},
                                                      {"PStrSplitAtChar", &CheckShort},
                                                      {"LToCStrN", &CheckCut}});
    kztest::CheckRows("vectors/utf8.jsonl", {{"StrNextChar", [&](const Json& row) { step(row, &StrNextChar); }},
                                             {"StrPrevChar", [&](const Json& row) { step(row, &StrPrevChar); }},
                                             {"StrToUpperAndLower", mapCase}});
    kztest::CheckRows("vectors/hashes.jsonl", {{"PStrHash32", hash}});
}

TEST_F(Strings, Classes)
{
    const std::string punctuation = "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";
    for (int c = -256; c < 512; ++c) {
        const int byte = c & 0xFF;
        const bool upper = byte >= 'A' && byte <= 'Z';
        const bool lower = byte >= 'a' && byte <= 'z';
        ASSERT_EQ(IsAlpha(c), upper || lower) << c;
        ASSERT_EQ(IsDigit(c), byte >= '0' && byte <= '9') << c;
        ASSERT_EQ(IsPunct(c), byte != 0 && punctuation.find(static_cast<char>(byte)) != std::string::npos) << c;
        ASSERT_EQ(ToLower(c), std::tolower(byte)) << c;  // whatever the locale
        ASSERT_EQ(ToUpper(c), std::toupper(byte)) << c;
        ASSERT_EQ(IsUpper(c), std::tolower(byte) != byte) << c;
        ASSERT_EQ(IsLower(c), std::toupper(byte) != byte) << c;
    }
    EXPECT_TRUE(IsUpper('A') && IsLower('a') && !IsUpper('a') && !IsLower('A') && ToUpper('z') == 'Z');
    EXPECT_EQ(HexChar(-1), 'F');
}

TEST_F(Strings, DecimalPoint)
{
    EXPECT_EQ(StrGetDecimalPoint(), '.');
    StrSetDecimalPoint(0x1FF);
    EXPECT_EQ(StrGetDecimalPoint(), 0xFF);
    StrSetDecimalPoint('.');
}

// Any bytes become what the mapping of them as UTF-16 leaves of them.
TEST_F(Strings, CaseOfAnyBytes)
{
    const std::string pieces[] = {"a",      "Z",          "\u00DF", "\u0130",   "\uFB03",       "\u023A",
                                  "\u017F", "\U00010428", "\xE9",   "\xF0\x90", "\xED\xA0\x80", std::string(1, 0)};
    std::mt19937 engine(3);
    for (unsigned i = 0; i < kztest::ModelSequences(); ++i) {
        std::string text;
        for (std::size_t n = engine() % 12; text.size() < n;) {
            text += pieces[engine() % (i % 2 == 0 ? 8 : std::size(pieces))];
        }
        auto* const bytes = reinterpret_cast<unsigned char*>(text.data());
        PlatformText model;
        if (model.SetUtf8(bytes, text.size()) != PlatformText::kDone) {
            model.SetEscapedUtf8(bytes, text.size());
        }
        const std::size_t units = model.Length();
        (i % 3 == 0) ? model.Lower() : model.Upper();
        std::string expected = text;
        model.GetUtf8(0, units, reinterpret_cast<unsigned char*>(expected.data()), expected.size());
        const int32 length = static_cast<int32>(text.size());
        EXPECT_EQ(i % 3 == 0 ? StrToLower(bytes, length) : StrToUpper(bytes, length), 0);
        ASSERT_EQ(text, expected);
    }
}

// Only long text needs memory.
TEST_F(Strings, CaseOfTextOutOfMemory)
{
    const std::string letters(249, 'x'), capitals(249, 'X');
    for (const std::size_t before : {0u, 248u, 249u}) {
        const std::string old = letters.substr(0, before) + "stra\u00DFe";
        const std::string mapped = capitals.substr(0, before) + "STRASSe";
        char text[256];
        const int32 length = static_cast<int32>(old.size());
        kztest::FaultLoop([&](const auto& failed) {
            old.copy(text, old.size());
            const KzErr err = StrToUpper(text, length);
            const bool fails = before == 249 && failed();
            EXPECT_EQ(err, fails ? kzErrMemoryFull : kzErrNone);
            EXPECT_EQ(0, std::memcmp(text, fails ? old.data() : mapped.data(), old.size()));
        });
    }
}

// One that is full has no room for a terminator, which takes the place of its last byte where it must be.
TEST_F(Strings, FullPStrHasNoTerminator)
{
    for (const int count : {0, 254, 255}) {
        const std::string text(static_cast<std::size_t>(count), 'x');
        PStrBuffer able(text), forced(text);
        EXPECT_TRUE(PStrTerminateIfPossible(able) == count && PStrNullTerminate(forced) == count);
        EXPECT_EQ(able.Text(), text);
        EXPECT_EQ(forced.Text(), count == 255 ? text.substr(1) + '\0' : text);
        EXPECT_TRUE(count == 255 || (able.bytes[count + 1] == 0 && forced.bytes[count + 1] == 0));
    }
}

// The forms on the other character type, in place where they may be.
TEST_F(Strings, BothSpellings)
{
    char text[256] = "\4a.bb", left[256] = "", right[256] = "", plain[256] = "";
    unsigned char dst[256], find[] = "b", replace[] = "cd";
    EXPECT_TRUE(PStrSplitAtChar(text, '.', left, right));
    EXPECT_STREQ(left, "\1a");
    EXPECT_EQ(PStrCat(PStrCpy(left, right), left), 4);
    EXPECT_EQ(PStrInPStr(left, 1, right), 3);
    EXPECT_EQ(PStrCmp(text, left), 'a' - 'b');
    EXPECT_EQ(PToCStr(PStrNCpy(right, text, 3), plain), 2);
    EXPECT_STREQ(plain, "a.");
    EXPECT_EQ(PToCStr(text, text), 4);
    EXPECT_EQ(CToPStr(text, text), 4) << "in place";
    EXPECT_EQ(PToCStr(kz::AsBytes(text), dst), 4);
    EXPECT_EQ(CToPStr(dst, kz::AsBytes(text)), 4);
    EXPECT_TRUE(PStrFindReplace(left, text, "b", "cd") && PStrEndsWith(left, "cdcd"));
    EXPECT_TRUE(PStrFindReplace(dst, kz::AsBytes(text), find, replace) && PStrEqual(dst, kz::AsBytes(left)));
    LStrValue block("0123456789");
    unsigned char spelled[8] = "four";
    EXPECT_EQ(CToLStr(spelled, block.Get()), 4);
    EXPECT_EQ(PLStrCmp("\5fours", block.Get()), 1);
    EXPECT_EQ(LToPStr(block.Get(), reinterpret_cast<char*>(spelled)), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(spelled)), "\4four");
    block.Get()->str[4] = 0;
    EXPECT_EQ(CToLStr(block.Get()->str + 1, block.Get()), 3);
    EXPECT_EQ(TextOf(block.Get()), "our");
}

TEST_F(Strings, PStrCallsWithoutMemory)
{
    const PStrValue text("text");
    kztest::FaultLoop(
        [&](auto failed) {
            unsigned char* const copy = PStrDup(text);
            EXPECT_TRUE(copy == nullptr ? failed() : PStrEqual(copy, text) != 0);
            DSDisposePtr(copy);
        },
        kztest::FailAllocation::kBlocks);
    EXPECT_TRUE(reports.Take(kDbgWarning, "PStrDup FAILED:text, size 5, NULL"));
    reports.TakeAll();
    EXPECT_TRUE(PStrDup(nullptr) == nullptr && PStrHash32(nullptr, 1) == 0);
    const PStrValue name("stra\u00DFe"), upper("STRASSe");
    uInt32 hash = 0;
    {
        kztest::FailAllocation fail(1, kztest::FailAllocation::kForGood, kztest::FailAllocation::kBlocksAndNew);
        hash = PStrHash32(name, 1);
    }
    EXPECT_EQ(hash, PStrHash32(upper, 0)) << "without memory";
}

TEST_F(Strings, HandleOfItsOwnCount)
{
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

TEST_F(Strings, TextBeyondRange)
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

TEST_F(Strings, CountsBeyondRange)
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
TEST_F(Strings, StringsOutsideTheMemoryManager)
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

TEST_F(Strings, DisposedHandles)
{
    LStr** handle = LStrHandle("text").handle;
    EXPECT_EQ(Reported(handle), "");
    EXPECT_EQ(LHStrCmp(handle, nullptr), 0);
    EXPECT_TRUE(reports.Take(kDbgFatal, ""));
    EXPECT_NE(LStrAppendChar(handle, 'x'), 0);
    EXPECT_TRUE(reports.Take(kDbgFatal, "") && reports.Take(kDbgWarning, "Memory error"));
}

const unsigned char* const kNoPStr = nullptr;
LStr** gNone = nullptr;
char gByte[1];

TEST_F(Strings, Refusals)
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
    unsigned char byte[] = "a";
    EXPECT_EQ(StrToUpper(byte, -1), 0);
    EXPECT_EQ(byte[0], 'a');
    EXPECT_EQ(StrPrevChar("abc", -1), 0);
    EXPECT_TRUE(reports.Take(kDbgWarning, "Negative index into string in StrPrevChar"));
}

}  // namespace
