#include "StringCPStr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "KzErr.h"
#include "ListTesting.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "StringPStr.h"

namespace {

using kztest::CPStrHandle;
using kztest::DrawText;
using kztest::FailAllocation;
using kztest::FaultLoop;
using kztest::HandleOf;
using kztest::PackedBytes;
using kztest::PStrValue;
using kztest::Texts;

std::string TextOf(const unsigned char* p)
{
    return p == nullptr ? "(null)" : std::string(reinterpret_cast<const char*>(p) + 1, p[0]);
}

KzErr Insert(CPStr** list, const char* text, int32 i)
{
    return CPStrInsert(list, PStrValue(text), i);
}

KzErr Efficient(CPStr** list, const char* text, int32 i)
{
    return CPStrInsertEfficient(list, PStrValue(text), i, 0);
}

KzErr Replace(CPStr** list, const char* text, int32 i)
{
    return CPStrReplace(list, PStrValue(text), i);
}

class StringCPStr : public ::testing::Test {
protected:
    bool TakeFatal() { return reports.Take(kDbgFatal, ""); }

    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

TEST_F(StringCPStr, IndicesArePinned)
{
    CPStrHandle list(Texts{"one", "", "three"});
    for (const auto& [index, text] : std::vector<std::pair<int32, std::string>>{{0, "one"},
                                                                                {1, ""},
                                                                                {2, "three"},
                                                                                {3, "three"},
                                                                                {7, "three"},
                                                                                {0x7FFFFFFF, "three"},
                                                                                {-1, "one"},
                                                                                {-0x7FFFFFFF - 1, "one"}}) {
        EXPECT_EQ(TextOf(CPStrIndex(list.handle, index)), text) << index;
    }
    CPStrHandle empty(Texts{});
    EXPECT_EQ(CPStrIndex(empty.handle, 0), nullptr);
    EXPECT_EQ(CPStrRemove(empty.handle, 0), kzErrArgument);
    EXPECT_EQ(CPStrSize(*empty.handle), 4);
    (*empty.handle)->cnt = -3;
    EXPECT_EQ(CPStrSize(*empty.handle), 4);
    EXPECT_EQ(CPStrSize(*list.handle), 15);
}

// Each change of a list a, bb, ccc in a block of 13 + spare bytes leaves these strings in a block of that size.
TEST_F(StringCPStr, StringsAndBlockAfterEachChange)
{
    struct Case {
        const char* name;
        unsigned long spare;
        KzErr (*change)(CPStr** list);
        Texts strings;
        unsigned long block;
    };
    const Case cases[] = {
        {"insert first", 0, [](CPStr** l) { return Insert(l, "x", 0); }, {"x", "a", "bb", "ccc"}, 15},
        {"insert below first", 0, [](CPStr** l) { return Insert(l, "x", -1); }, {"x", "a", "bb", "ccc"}, 15},
        {"insert between", 0, [](CPStr** l) { return Insert(l, "", 2); }, {"a", "bb", "", "ccc"}, 14},
        {"insert behind", 0, [](CPStr** l) { return Insert(l, "x", 99); }, {"a", "bb", "ccc", "x"}, 15},
        {"insert, exact", 50, [](CPStr** l) { return Insert(l, "x", 3); }, {"a", "bb", "ccc", "x"}, 15},
        {"efficient", 50, [](CPStr** l) { return Efficient(l, "x", 1); }, {"a", "x", "bb", "ccc"}, 63},
        {"efficient, just fits", 2, [](CPStr** l) { return Efficient(l, "x", 1); }, {"a", "x", "bb", "ccc"}, 15},
        {"efficient, grown", 1, [](CPStr** l) { return Efficient(l, "x", 1); }, {"a", "x", "bb", "ccc"}, 15},
        {"itself", 0, [](CPStr** l) { return CPStrInsert(l, CPStrIndex(l, 2), 0); }, {"ccc", "a", "bb", "ccc"}, 17},
        {"itself, efficient",
         50,
         [](CPStr** l) { return CPStrInsertEfficient(l, CPStrIndex(l, 1), 0, 0); },
         {"bb", "a", "bb", "ccc"},
         63},
        {"remove", 0, [](CPStr** l) { return CPStrRemove(l, 1); }, {"a", "ccc"}, 10},
        {"remove above last", 50, [](CPStr** l) { return CPStrRemove(l, 3); }, {"a", "bb"}, 9},
        {"remove below first", 0, [](CPStr** l) { return CPStrRemove(l, -1); }, {"bb", "ccc"}, 11},
        {"replace, longer", 0, [](CPStr** l) { return Replace(l, "wxyz", 0); }, {"wxyz", "bb", "ccc"}, 16},
        {"replace, shorter", 0, [](CPStr** l) { return Replace(l, "", 9); }, {"a", "bb", ""}, 10},
        {"replace, as long", 50, [](CPStr** l) { return Replace(l, "x", -1); }, {"x", "bb", "ccc"}, 63},
        {"replace, itself",
         0,
         [](CPStr** l) { return CPStrReplace(l, CPStrIndex(l, 2), 0); },
         {"ccc", "bb", "ccc"},
         15},
        {"clear", 50, [](CPStr** l) { return CPStrClear(l); }, {}, 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CPStrHandle list(Texts{"a", "bb", "ccc"});
        ASSERT_EQ(DSSetHandleSize(list.handle, 13 + c.spare), 0);
        EXPECT_EQ(c.change(list.handle), 0);
        EXPECT_EQ(list.Strings(), c.strings);
        EXPECT_EQ(list.BlockSize(), c.block);
    }
}

TEST_F(StringCPStr, ReplaceInAnEmptyListKeepsTheCount)
{
    CPStrHandle list(Texts{});
    EXPECT_EQ(CPStrReplace(list.handle, PStrValue("abc"), 5), 0);
    EXPECT_EQ(list.Bytes(), std::string("\0\0\0\0\3abc", 8));
}

TEST_F(StringCPStr, EmptyStrings)
{
    CPStrHandle list;
    EXPECT_EQ(CPStrSetToNEmptyStrings(&list.handle, 3), 0);
    EXPECT_EQ(list.Bytes(), PackedBytes({"", "", ""}));
    ASSERT_EQ(CPStrInsert(list.handle, PStrValue("abc"), 0), 0);
    EXPECT_EQ(CPStrSetToNEmptyStrings(&list.handle, 5), 0) << "over what stood there";
    EXPECT_EQ(list.Bytes(), PackedBytes(Texts(5)));
    EXPECT_EQ(CPStrSetToNEmptyStrings(&list.handle, -1), kzErrArgument);
    EXPECT_EQ(CPStrSetToNEmptyStrings(nullptr, 1), kzErrArgument);
}

TEST_F(StringCPStr, SearchAndCompare)
{
    CPStrHandle list(Texts{"One", "two", "one"});
    EXPECT_EQ(CPStrSearch(list.handle, PStrValue("one"), &PStrCmp), 2);
    EXPECT_EQ(CPStrSearch(list.handle, PStrValue("one"), &PStrCaseCmp), 0);
    EXPECT_EQ(CPStrSearch(list.handle, PStrValue("on"), &PStrCmp), -1);
    const struct {
        Texts a, b;
        int32 order;
    } cases[] = {
        {{}, {}, 0},
        {{"a"}, {"a"}, 0},
        {{"a", "b"}, {"a"}, 1},
        {{}, {"a", "b", ""}, -3},
        {{"a", "b"}, {"a", "c", "d"}, -1},
        {{"a", "x", "d"}, {"a", "c", "e"}, 'x' - 'c'},
        {{"ab"}, {"a", "a"}, 1},
    };
    for (const auto& c : cases) {
        CPStrHandle a(c.a), b(c.b);
        EXPECT_EQ(CPStrCmp(*a.handle, *b.handle), c.order);
        EXPECT_EQ(CPStrEqual(*a.handle, *b.handle) != 0, c.order == 0);
    }
    EXPECT_EQ(CPStrCmp(nullptr, *list.handle), -3);
    EXPECT_EQ(CPStrCmp(*list.handle, nullptr), 3);
}

TEST_F(StringCPStr, NullArguments)
{
    CPStrHandle list(Texts{"a"});
    EXPECT_EQ(CPStrIndex(nullptr, 0), nullptr);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(CPStrRemove(nullptr, 0), kzErrArgument);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(CPStrReplace(nullptr, PStrValue("a"), 0), kzErrArgument);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(CPStrSearch(nullptr, PStrValue("a"), &PStrCmp), -1);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(CPStrInsert(nullptr, PStrValue("a"), 0), kzErrGeneric);
    EXPECT_TRUE(reports.Take(kDbgWarning, "Bad inputs to CPStrInsertEfficient"));
    EXPECT_EQ(CPStrInsertEfficient(list.handle, nullptr, 0, 0), kzErrGeneric);
    EXPECT_TRUE(reports.Take(kDbgWarning, "Bad inputs to CPStrInsertEfficient"));
    EXPECT_EQ(CPStrReplace(list.handle, nullptr, 0), kzErrArgument);
    EXPECT_EQ(CPStrClear(nullptr), kzErrArgument);
    EXPECT_EQ(LSort(nullptr, nullptr), kzErrArgument);
    EXPECT_EQ(list.Strings(), Texts{"a"});
}

// Blocks that hold fewer strings than the count says, at every cut and for any count byte.
TEST_F(StringCPStr, CountsThatTheBlockDoesNotHold)
{
    const std::string whole = PackedBytes({"a", "bb", "ccc"});
    const size_t ends[] = {4, 6, 9, 13};
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        std::string bytes = whole.substr(0, cut);
        if (cut >= 4) {
            bytes[3] = 0x7F;
        }
        const size_t held = static_cast<size_t>(std::count_if(ends + 1, ends + 4, [&](size_t e) { return e <= cut; }));
        CPStrHandle list(bytes);
        unsigned char* const last = CPStrIndex(list.handle, 99);
        EXPECT_EQ(last != nullptr, held > 0);
        EXPECT_EQ(CPStrSearch(list.handle, PStrValue("none"), &PStrCmp), -1);
        EXPECT_EQ(LSort(list.handle, nullptr), 0);
        EXPECT_EQ(CPStrInsert(list.handle, PStrValue("x"), 99), 0);
        Texts expected = Texts{"a", "bb", "ccc"};
        expected.resize(held);
        expected.push_back("x");
        EXPECT_EQ(list.Strings(), expected) << "the count is mended";
        EXPECT_EQ(list.BlockSize(), ends[held] + 2);
    }
    CPStrHandle negative(std::string("\xFF\xFF\xFF\xFF\1a", 6));
    EXPECT_EQ(CPStrIndex(negative.handle, 0), nullptr);
    EXPECT_EQ(CPStrReplace(negative.handle, PStrValue("b"), 0), 0);
    EXPECT_EQ((*negative.handle)->cnt, 0);
}

TEST_F(StringCPStr, Sorting)
{
    CPStrHandle list(Texts{"pear", "Apple", "elm", "", "apple2", "ELM2"});
    ASSERT_EQ(DSSetHandleSize(list.handle, list.BlockSize() + 7), 0);
    const unsigned long block = list.BlockSize();
    std::vector<const char*> names = {"pear", "Apple", "elm", "", "apple2", "ELM2"};
    const UHandle parallel = HandleOf(std::string(reinterpret_cast<char*>(names.data()), 6 * sizeof(char*)));
    EXPECT_EQ(LSort(list.handle, parallel), 0);
    const Texts sorted = {"", "Apple", "apple2", "elm", "ELM2", "pear"};
    EXPECT_EQ(list.Strings(), sorted);
    EXPECT_EQ(list.BlockSize(), block);
    std::memcpy(names.data(), *parallel, 6 * sizeof(char*));
    EXPECT_EQ(Texts(names.begin(), names.end()), sorted);
    ASSERT_EQ(DSSetHandleSize(parallel, 6 * sizeof(char*) - 1), 0);
    EXPECT_EQ(LSort(list.handle, parallel), kzErrArgument);
    DSDisposeHandle(parallel);
}

// Random lists sort as std::sort sorts them, and equal strings leave with the entries that they came with.
TEST_F(StringCPStr, SortsAnyList)
{
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937_64 draw(seed);
        Texts texts(draw() % 60);
        std::vector<uInt64> numbers(texts.size());
        for (size_t i = 0; i < texts.size(); ++i) {
            texts[i] = DrawText(draw, 4);
            numbers[i] = i;
        }
        CPStrHandle list(texts);
        CPStrHandle alone(texts);
        const UHandle parallel =
            HandleOf(std::string(reinterpret_cast<char*>(numbers.data()), numbers.size() * sizeof(uInt64)));
        EXPECT_EQ(LSort(list.handle, parallel), 0);
        EXPECT_EQ(LSort(alone.handle, nullptr), 0);
        std::copy_n(*parallel, numbers.size() * sizeof(uInt64), reinterpret_cast<unsigned char*>(numbers.data()));
        DSDisposeHandle(parallel);
        const Texts sorted = list.Strings();
        for (size_t i = 0; i < sorted.size(); ++i) {
            ASSERT_LT(numbers[i], texts.size());
            EXPECT_EQ(sorted[i], texts[numbers[i]]);
        }
        std::sort(numbers.begin(), numbers.end());
        EXPECT_EQ(std::unique(numbers.begin(), numbers.end()), numbers.end());
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(sorted, texts);
        EXPECT_EQ(alone.Strings(), texts);
    }
}

TEST_F(StringCPStr, ResourceLists)
{
    const struct {
        std::string data;
        Texts strings;
    } cases[] = {
        {std::string("\0\2\1a\2bb", 7), {"a", "bb"}},
        {std::string("\0\0", 2), {}},
        {std::string("\0", 1), {}},
        {"", {}},
        {std::string("\0\1\1a\2bb", 7), {"a"}},
        {std::string("\0\3\1a\2b", 6), {"a"}},
        {std::string("\1\0\1a", 4), {"a"}},
        {std::string("\xFF\xFF\1a", 4), {}},
    };
    for (const auto& c : cases) {
        const UHandle resource = HandleOf(c.data);
        CPStrHandle list(std::string(c.data.size() + 3, '#'));
        EXPECT_EQ(StrPoundToCPStr(resource, *list.handle), 0);
        EXPECT_EQ(list.Strings(), c.strings);
        if (c.data.size() >= 2) {
            EXPECT_EQ(list.Bytes().substr(4), c.data.substr(2) + "#");
        }
        DSDisposeHandle(resource);
    }
    EXPECT_EQ(StrPoundToCPStr(nullptr, nullptr), kzErrArgument);
}

// Random changes, exact and efficient, against a vector; some find memory full and change nothing.
TEST_F(StringCPStr, RandomChangesMatchAVector)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 10; ++seed) {
        std::mt19937_64 draw(seed);
        CPStrHandle list(Texts{});
        Texts model;
        for (int step = 0; step < 60; ++step) {
            const int32 count = static_cast<int32>(model.size());
            const int32 i = static_cast<int32>(draw() % (model.size() + 4)) - 2;
            const int32 pinned = std::clamp(i, 0, std::max(count - 1, 0));
            const bool isOwn = count > 0 && draw() % 4 == 0;
            const std::string text = isOwn ? model[draw() % model.size()] : DrawText(draw, 255);
            const auto own = std::find(model.begin(), model.end(), text) - model.begin();
            const PStrValue value(text);
            const unsigned char* const source = isOwn ? CPStrIndex(list.handle, static_cast<int32>(own)) : value;
            const unsigned kind = draw() % 4;
            const bool isFull = draw() % 5 == 0;
            KzErr err = 0;
            bool failed = false;
            {
                FailAllocation fail(isFull ? 1 : 1000);
                err = kind == 0   ? CPStrInsert(list.handle, source, i)
                      : kind == 1 ? CPStrInsertEfficient(list.handle, source, i, 0)
                      : kind == 2 ? CPStrRemove(list.handle, i)
                                  : CPStrReplace(list.handle, source, i);
                failed = isFull && FailAllocation::Happened();
            }
            if (failed) {
                EXPECT_EQ(err, kzErrMemoryFull);
                EXPECT_TRUE(reports.Take(kDbgWarning, "Memory error 2"));
            } else if (kind < 2) {
                model.insert(model.begin() + std::clamp(i, 0, count), text);
            } else if (count == 0) {
                EXPECT_EQ(err, kind == 2 ? kzErrArgument : 0);
            } else if (kind == 2) {
                model.erase(model.begin() + pinned);
            } else {
                model[static_cast<size_t>(pinned)] = text;
            }
            ASSERT_EQ(list.Strings(), model) << "seed " << seed << ", step " << step;
            ASSERT_GE(list.BlockSize(), PackedBytes(model).size());
        }
    }
}

TEST_F(StringCPStr, AFullMemoryChangesNothing)
{
    FaultLoop(
        [&](const auto& failed) {
            CPStr** list = nullptr;
            if (CPStrSetToNEmptyStrings(&list, 2) != 0) {
                EXPECT_TRUE(failed());
                EXPECT_EQ(list, nullptr);
                return;
            }
            const auto step = [&](KzErr err, const Texts& before, const Texts& after) {
                EXPECT_TRUE(err == 0 || (err == kzErrMemoryFull && failed()));
                EXPECT_EQ(kztest::BytesOf(list), PackedBytes(err == 0 ? after : before));
                return err == 0;
            };
            step(CPStrInsert(list, PStrValue("b"), 0), {"", ""}, {"b", "", ""}) &&
                step(CPStrReplace(list, PStrValue("Acc"), 2), {"b", "", ""}, {"b", "", "Acc"}) &&
                step(LSort(list, nullptr), {"b", "", "Acc"}, {"", "Acc", "b"}) &&
                step(CPStrReplace(list, PStrValue("d"), 1), {"", "Acc", "b"}, {"", "d", "b"}) &&
                step(CPStrRemove(list, 1), {"", "d", "b"}, {"", "b"}) &&
                step(CPStrSetToNEmptyStrings(&list, 9), {"", "b"}, Texts(9)) && step(CPStrClear(list), Texts(9), {});
            DSDisposeHandle(list);
        },
        FailAllocation::kBlocks);
    for (const kztest::CaughtReport& report : reports.TakeAll()) {
        EXPECT_EQ(report.text.find("Memory error 2 in DSSetHandleSize"), 0u) << report.text;
    }
}

}  // namespace
