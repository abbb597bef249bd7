#include "StringLStrArray.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "KzErr.h"
#include "ListTesting.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "StringLStr.h"

namespace {

using kztest::CPStrHandle;
using kztest::FailAllocation;
using kztest::FaultLoop;
using kztest::PackedBytes;
using kztest::Texts;

class LStrArrayHandle {
public:
    LStrArrayHandle() = default;
    explicit LStrArrayHandle(const Texts& texts)
    {
        EXPECT_EQ(ReallocLStrArrayHandle(&handle, static_cast<int32>(texts.size())), 0);
        for (size_t i = 0; i < texts.size(); ++i) {
            EXPECT_EQ(LStrFromPtr(&(*handle)->str[i], static_cast<int32>(texts[i].size()), texts[i].data()), 0);
        }
    }
    ~LStrArrayHandle() { ReallocLStrArrayHandle(&handle, 0); }
    LStrArrayHandle(const LStrArrayHandle&) = delete;
    LStrArrayHandle& operator=(const LStrArrayHandle&) = delete;

    Texts Strings() const
    {
        Texts texts;
        for (int32 i = 0; handle != nullptr && i < (*handle)->cnt; ++i) {
            LStr** const entry = (*handle)->str[i];
            texts.push_back(entry == nullptr ? std::string() : kztest::TextOf(*entry));
        }
        return texts;
    }

    _LStrArray** handle = nullptr;
};

class StringLStrArray : public ::testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// Each length makes the array lose its last strings or gain null ones, in a block of that size.
TEST_F(StringLStrArray, Lengths)
{
    LStrArrayHandle array;
    const uInt32 others = kz::LiveHandleCount();
    const struct {
        int32 n;
        Texts strings;
        uInt32 handles;
    } steps[] = {{2, {"", ""}, 1},
                 {4, {"a0", "a1", "", ""}, 3},
                 {1, {"a0"}, 2},
                 {1, {"a0"}, 2},
                 {3, {"a0", "", ""}, 2},
                 {0, {}, 0},
                 {0, {}, 0},
                 {1, {""}, 1}};
    for (const auto& step : steps) {
        EXPECT_EQ(ReallocLStrArrayHandle(&array.handle, step.n), 0);
        EXPECT_EQ(array.Strings(), step.strings);
        EXPECT_EQ(kz::LiveHandleCount() - others, step.handles);
        EXPECT_EQ(array.handle == nullptr, step.n == 0);
        if (step.n != 0) {
            EXPECT_EQ(DSGetHandleSize(array.handle), 8u + 8u * static_cast<unsigned>(step.n));
        }
        if (step.handles == 1 && step.n == 2) {
            CToLHStr("a0", &(*array.handle)->str[0]);
            CToLHStr("a1", &(*array.handle)->str[1]);
        }
    }
    EXPECT_EQ(ReallocLStrArrayHandle(nullptr, 1), kzErrArgument);
    EXPECT_EQ(ReallocLStrArrayHandle(&array.handle, -1), kzErrArgument);
    EXPECT_EQ(array.Strings(), Texts{""});
}

// Handles and counts that don't agree.
TEST_F(StringLStrArray, CountsThatTheBlockDoesNotHold)
{
    LStrArrayHandle array(Texts{"a", "b"});
    (*array.handle)->cnt = 0x7FFFFFFF;
    CPStrHandle list;
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, 3, &list.handle), kzErrArgument);
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, &list.handle), 0);
    EXPECT_EQ(list.Strings(), (Texts{"a", "b"}));
    (*(*array.handle)->str[1])->cnt = 100;
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, &list.handle), 0);
    EXPECT_EQ(list.Strings(), (Texts{"a", "b"}));
    (*(*array.handle)->str[1])->cnt = 1;
    EXPECT_EQ(ReallocLStrArrayHandle(&array.handle, 3), 0);
    EXPECT_EQ(array.Strings(), (Texts{"a", "b", ""}));
    LStr** const stale = (*array.handle)->str[1];
    (*array.handle)->cnt = 1;
    EXPECT_EQ(ReallocLStrArrayHandle(&array.handle, 4), 0);
    EXPECT_EQ(array.Strings(), (Texts{"a", "", "", ""})) << "what stood behind the array doesn't join it";
    DSDisposeHandle(stale);
    LStrArrayHandle bare;
    bare.handle = reinterpret_cast<_LStrArray**>(DSNewHandle(0));
    EXPECT_EQ(ReallocLStrArrayHandle(&bare.handle, 2), 0);
    EXPECT_EQ(bare.Strings(), (Texts{"", ""}));
}

TEST_F(StringLStrArray, ToCPStr)
{
    LStrArrayHandle array(Texts{"first", "", std::string(300, 'x'), std::string(255, 'y')});
    CPStrHandle list;
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, &list.handle), 0);
    EXPECT_EQ(list.Bytes(), PackedBytes({"first", "", std::string(255, 'x'), std::string(255, 'y')}));
    CPStr** const same = list.handle;
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, 2, &list.handle), 0);
    EXPECT_EQ(list.handle, same);
    EXPECT_EQ(list.Bytes(), PackedBytes({"first", ""}));
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, 5, &list.handle), kzErrArgument);
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, -1, &list.handle), kzErrArgument);
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, 1, nullptr), kzErrArgument);
    EXPECT_EQ(list.Bytes(), PackedBytes({"first", ""}));
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, 0, &list.handle), 0);
    EXPECT_EQ(list.handle, nullptr);
    ASSERT_EQ(CPStrSetToNEmptyStrings(&list.handle, 1), 0);
    EXPECT_EQ(LStrArrayToCPStrHandle(nullptr, 7, &list.handle), 0);
    EXPECT_EQ(list.handle, nullptr);
}

// Where no list was there, its handle is the one that the string had.
TEST_F(StringLStrArray, ToCPStrTellsOnceOfADisposedString)
{
    for (const bool isListThere : {true, false}) {
        LStrArrayHandle array(Texts{"first", "gone"});
        CPStrHandle list;
        if (isListThere) {
            ASSERT_EQ(CPStrSetToNEmptyStrings(&list.handle, 1), 0);
        }
        DSDisposeHandle((*array.handle)->str[1]);
        EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, &list.handle), 0);
        EXPECT_EQ(list.Bytes(), PackedBytes({"first", ""}));
        EXPECT_EQ(reports.TakeAll().size(), 1u);
        EXPECT_EQ(static_cast<void*>(list.handle) != (*array.handle)->str[1], isListThere);
        (*array.handle)->str[1] = nullptr;
    }
}

TEST_F(StringLStrArray, FromCPStr)
{
    CPStrHandle list(Texts{"first", "", "third"});
    LStrArrayHandle array(Texts{"old", "array"});
    EXPECT_EQ(CPStrPtrToLStrArray(*list.handle, &array.handle), 0);
    EXPECT_EQ(array.Strings(), (Texts{"first", "", "third"}));
    EXPECT_EQ((*array.handle)->str[1], nullptr);
    EXPECT_EQ(DSGetHandleSize((*array.handle)->str[0]), 9u);
    EXPECT_EQ(CPStrPtrToLStrArray(*list.handle, 4, &array.handle), kzErrArgument);
    EXPECT_EQ(CPStrPtrToLStrArray(nullptr, 1, &array.handle), kzErrArgument);
    EXPECT_EQ(array.Strings().size(), 3u);
    EXPECT_EQ(CPStrPtrToLStrArray(*list.handle, 1, &array.handle), 0);
    EXPECT_EQ(array.Strings(), Texts{"first"});
    EXPECT_EQ(CPStrPtrToLStrArray(nullptr, &array.handle), 0);
    EXPECT_EQ(array.handle, nullptr);
    EXPECT_EQ(CPStrPtrToLStrArray(*list.handle, nullptr), kzErrGeneric);
    EXPECT_TRUE(reports.Take(kDbgWarning, "Null not allowed"));
}

// Any list survives the way to an array and back.
TEST_F(StringLStrArray, ThereAndBack)
{
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937_64 draw(seed);
        Texts texts(1 + draw() % 20);
        for (std::string& text : texts) {
            text = kztest::DrawText(draw, 255);
        }
        CPStrHandle list(texts), back(Texts{"old"});
        LStrArrayHandle array(Texts(draw() % 3));
        EXPECT_EQ(CPStrPtrToLStrArray(*list.handle, &array.handle), 0);
        EXPECT_EQ(array.Strings(), texts);
        EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, &back.handle), 0);
        EXPECT_EQ(back.Bytes(), list.Bytes());
    }
}

TEST_F(StringLStrArray, AFullMemoryChangesNothing)
{
    const CPStrHandle source(Texts{"one", "two", "", "four"});
    FaultLoop(
        [&](const auto& failed) {
            LStrArrayHandle array;
            CPStrHandle list;
            const auto step = [&](KzErr err, const Texts& before, const Texts& after) {
                EXPECT_TRUE(err == 0 || (err == kzErrMemoryFull && failed()));
                EXPECT_EQ(array.Strings(), err == 0 ? after : before);
                return err == 0;
            };
            const Texts all = {"one", "two", "", "four"};
            step(ReallocLStrArrayHandle(&array.handle, 1), {}, {""}) &&
                step(CPStrPtrToLStrArray(*source.handle, &array.handle), {""}, all) &&
                step(LStrArrayToCPStrHandle(array.handle, &list.handle), all, all) &&
                step(ReallocLStrArrayHandle(&array.handle, 5), all, {"one", "two", "", "four", ""}) &&
                step(ReallocLStrArrayHandle(&array.handle, 1), {"one", "two", "", "four", ""}, {"one"}) &&
                step(LStrArrayToCPStrHandle(array.handle, &list.handle), {"one"}, {"one"});
            EXPECT_TRUE(list.handle == nullptr || list.Strings() == all || list.Strings() == Texts{"one"});
        },
        FailAllocation::kBlocks);
    for (const kztest::CaughtReport& report : reports.TakeAll()) {
        EXPECT_EQ(report.text.find("Memory error 2 in DSSetH"), 0u) << report.text;
    }
}

}  // namespace
