// The calls that copy, append and convert strings, all of them against plain texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <string>

#include "KzErr.h"
#include "ListTesting.h"
#include "StringCStr.h"
#include "StringLStr.h"
#include "StringPStr.h"
#include "StringUtils.h"
#include "TestStrings.h"

namespace {

using kztest::Draw;
using kztest::FailAllocation;
using kztest::LStrHandle;
using kztest::LStrValue;
using kztest::PStrBuffer;
using kztest::PStrValue;
using kztest::TextOf;

constexpr std::size_t kRoom = 12000;  // of a C string and of a block

// What is changed, and what is put into it.
enum Kind { kC, kP, kBlock, kHandle, kBytes, kByte, kNul };
enum How { kAssign, kAppend, kPrepend };
enum Fit { kAny, kExact, kSpare, kOneMore };

struct Strings {
    Strings() { EXPECT_EQ(CToLStr("", block.Get()), 0); }

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
    std::function<long(Strings& to, const Part& part)> call;  // the code for a handle, else the length
};
using S = Strings;
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
    void Disturb(Strings& to)
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
    void TakeOwn(const Edit& edit, Strings& to, Part& part)
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

    void Run(const Edit& edit, Strings& to)
    {
        std::string& text = to.texts[edit.target];
        Part part{kztest::DrawText(mDraw, mDraw() % 3 == 0 ? 9000 : 300), nullptr, nullptr, nullptr};
        part.text.resize(edit.source == kP ? std::min<std::size_t>(part.text.size(), 255) : part.text.size());
        const PStrValue shortText(part.text.substr(0, 255));
        LStrValue longText(part.text);
        const std::string plain = part.text;
        const bool takesNull = edit.target >= kBlock || edit.source == kBlock;
        if (!plain.empty() || !takesNull || mDraw() % 2 == 0) {
            part = {plain, plain.c_str(), shortText, longText.Get()};
        }
        if (mDraw() % 3 == 0) {
            TakeOwn(edit, to, part);
        }
        part.text = edit.source == kByte ? "x" : edit.source == kNul ? std::string(1, '\0') : part.text;
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
        const bool isCut = edit.target == kP && expected.size() > 255;
        expected.resize(isCut ? 255 : expected.size());
        const std::string before = edit.target == kHandle && to.l.handle != nullptr ? kztest::BytesOf(to.l.handle) : "";
        const long result = edit.call(to, part);
        if (edit.target != kHandle) {
            EXPECT_EQ(result, static_cast<long>(expected.size()));
            EXPECT_TRUE(!isCut || edit.source != kBlock ||
                        reports.Take(kDbgWarning, "LStr truncated when converting to PStr. Original LStr length=" +
                                                      std::to_string(part.text.size())));
        } else if (result != 0) {
            EXPECT_TRUE(result == kzErrMemoryFull && FailAllocation::Happened()) << result;
            EXPECT_EQ(to.l.handle == nullptr ? "" : kztest::BytesOf(to.l.handle), before);
            EXPECT_EQ(to.l.handle == nullptr, isNone);
            reports.TakeAll();
            return;
        } else {
            const bool isNull = changes ? edit.how == kAssign && expected.empty() : isNone;
            EXPECT_EQ(to.l.handle == nullptr, isNull);
            const std::size_t exact = 4 + expected.size();
            to.size = isNull                 ? 0
                      : !changes             ? to.size
                      : edit.fit == kExact   ? exact
                      : edit.fit == kOneMore ? std::max<std::size_t>(to.size, 4) + 1
                                             : std::max(to.size, exact);
        }
        text = expected;
    }

    // All hold their texts, also for the calls that only read a handle.
    void Look(Strings& to)
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

    Draw mDraw{1};
};

TEST_F(StringEdits, AllKindsMatchTheirTexts)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 10; ++seed) {
        mDraw.seed(seed);
        Strings strings;
        const auto span = mDraw() % 2 == 0 ? FailAllocation::kOnce : FailAllocation::kForGood;
        const FailAllocation fail(static_cast<int>(1 + mDraw() % 60), span);
        for (int step = 0; step < 60; ++step) {
            if (mDraw() % 8 == 0 || strings.texts[kHandle].size() > 20000) {
                Disturb(strings);
                reports.TakeAll();
            }
            const Edit& edit = kEdits[mDraw() % std::size(kEdits)];
            SCOPED_TRACE(std::to_string(seed) + " " + std::to_string(step) + " " + edit.name);
            Run(edit, strings);
            ASSERT_NO_FATAL_FAILURE(Look(strings));
            ASSERT_FALSE(HasFailure());
        }
    }
}

}  // namespace
