#include "StringCLStr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "KzErr.h"
#include "ListTesting.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"

namespace {

using kztest::DrawText;
using kztest::FailAllocation;
using kztest::FaultLoop;
using kztest::LStrValue;
using kztest::Texts;

enum Order { kNativeOrder, kBigEndian };

std::string CountBytes(size_t count, Order order)
{
    std::string bytes(4, '\0');
    if (order == kBigEndian) {
        kz::StoreBig(bytes.data(), static_cast<int32>(count));
    } else {
        kz::StoreNative(bytes.data(), static_cast<int32>(count));
    }
    return bytes;
}

// The bytes of a list, with the count that it shall tell.
std::string ListBytes(const Texts& texts, size_t count, Order order = kNativeOrder)
{
    std::string bytes = CountBytes(count, order);
    for (const std::string& text : texts) {
        bytes += CountBytes(text.size(), order) + text;
        bytes.append((4 - text.size() % 4) % 4, '\0');
    }
    return bytes;
}

std::string ListBytes(const Texts& texts)
{
    return ListBytes(texts, texts.size());
}

class CLStrHandle {
public:
    explicit CLStrHandle(const Texts& texts) : CLStrHandle(ListBytes(texts)) {}
    explicit CLStrHandle(const std::string& bytes) : handle(reinterpret_cast<CLStr**>(kztest::HandleOf(bytes))) {}
    ~CLStrHandle() { DSDisposeHandle(handle); }
    CLStrHandle(const CLStrHandle&) = delete;
    CLStrHandle& operator=(const CLStrHandle&) = delete;

    std::string Bytes() const { return kztest::BytesOf(handle); }

    CLStr** const handle;
};

KzErr Insert(CLStr** list, const std::string& text, int32 i, KzBool exactFit)
{
    LStrValue value(text);
    return CLStrInsert(list, value.Get(), i, exactFit);
}

class StringCLStr : public ::testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

TEST_F(StringCLStr, IndicesArePinned)
{
    CLStrHandle list(Texts{"one", "", "three"});
    for (const auto& [index, text] : std::vector<std::pair<int32, std::string>>{
             {0, "one"}, {1, ""}, {2, "three"}, {3, "three"}, {0x7FFFFFFF, "three"}, {-1, "one"}}) {
        EXPECT_EQ(kztest::TextOf(CLStrIndex(*list.handle, index)), text) << index;
    }
    EXPECT_EQ(CLStrSize(*list.handle), 28);
    CLStrHandle empty(Texts{});
    EXPECT_EQ(CLStrSize(*empty.handle), 4);
    EXPECT_EQ(CLStrSize(nullptr), 4);
    EXPECT_EQ(CLStrIndex(*empty.handle, 0), nullptr);
    EXPECT_EQ(CLStrRemove(empty.handle, 0), kzErrArgument);
}

// What a string of this length adds to a block without spare room, with its padding.
TEST_F(StringCLStr, RecordsAndPadding)
{
    const size_t sizes[] = {4, 8, 8, 8, 8, 12, 12, 12, 12, 16};
    for (size_t n = 0; n < std::size(sizes); ++n) {
        CLStrHandle list(Texts{"z"});
        const std::string text(n, 'x');
        EXPECT_EQ(Insert(list.handle, text, 0, 1), 0);
        EXPECT_EQ(list.Bytes().size(), 12 + sizes[n]) << n;
        EXPECT_EQ(list.Bytes(), ListBytes({text, "z"})) << n;
    }
}

// Each change of a list a, bb, ccc in a block of 28 + spare bytes, which are not zero, leaves these strings in a block
// of that size.
TEST_F(StringCLStr, StringsAndBlockAfterEachChange)
{
    struct Case {
        const char* name;
        size_t spare;
        KzErr (*change)(CLStr** list);
        Texts strings;
        size_t block;
    };
    const Case cases[] = {
        {"insert first", 0, [](CLStr** l) { return Insert(l, "x", 0, 1); }, {"x", "a", "bb", "ccc"}, 36},
        {"insert below first", 0, [](CLStr** l) { return Insert(l, "x", -1, 1); }, {"x", "a", "bb", "ccc"}, 36},
        {"insert between", 0, [](CLStr** l) { return Insert(l, "12345", 2, 1); }, {"a", "bb", "12345", "ccc"}, 40},
        {"insert behind", 0, [](CLStr** l) { return Insert(l, "x", 3, 1); }, {"a", "bb", "ccc", "x"}, 36},
        {"insert far behind", 50, [](CLStr** l) { return Insert(l, "x", 99, 1); }, {"a", "bb", "ccc", "x"}, 36},
        {"efficient", 50, [](CLStr** l) { return Insert(l, "x", 1, 0); }, {"a", "x", "bb", "ccc"}, 78},
        {"efficient, just fits", 8, [](CLStr** l) { return Insert(l, "x", 1, 0); }, {"a", "x", "bb", "ccc"}, 36},
        {"efficient, grown", 7, [](CLStr** l) { return Insert(l, "x", 1, 0); }, {"a", "x", "bb", "ccc"}, 36},
        {"itself", 0, [](CLStr** l) { return CLStrInsert(l, CLStrIndex(*l, 2), 0, 1); }, {"ccc", "a", "bb", "ccc"}, 36},
        {"itself, room",
         50,
         [](CLStr** l) { return CLStrInsert(l, CLStrIndex(*l, 1), 0, 0); },
         {"bb", "a", "bb", "ccc"},
         78},
        {"remove", 0, [](CLStr** l) { return CLStrRemove(l, 1); }, {"a", "ccc"}, 20},
        {"remove above last", 50, [](CLStr** l) { return CLStrRemove(l, 3); }, {"a", "bb"}, 20},
        {"remove below first", 0, [](CLStr** l) { return CLStrRemove(l, -1); }, {"bb", "ccc"}, 20},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CLStrHandle list(ListBytes({"a", "bb", "ccc"}) + std::string(c.spare, '#'));
        EXPECT_EQ(c.change(list.handle), 0);
        const std::string bytes = ListBytes(c.strings);
        EXPECT_EQ(list.Bytes().substr(0, bytes.size()), bytes);
        EXPECT_EQ(list.Bytes().size(), c.block);
    }
}

TEST_F(StringCLStr, SortedInsertion)
{
    const Texts before = {"", "Beta", "Beta", "delta"};
    const struct {
        const char* text;
        KzBool allowDuplicates;
        int32 index;
        KzBool inserted;
    } cases[] = {
        {"", 0, 0, 0},      {"", 1, 0, 1},     {"Alpha", 0, 1, 1}, {"Beta", 0, 1, 0},  {"Beta", 1, 1, 1},
        {"Betas", 0, 3, 1}, {"beta", 0, 3, 1}, {"delta", 0, 3, 0}, {"delta", 1, 3, 1}, {"zeta", 0, 4, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        CLStrHandle list(ListBytes(before) + "####");
        int32 index = -1;
        KzBool inserted = -1;
        EXPECT_EQ(CLStrInsertSort(list.handle, LStrValue(c.text).Get(), c.allowDuplicates, &index, &inserted, 1), 0);
        EXPECT_EQ(index, c.index);
        EXPECT_EQ(inserted, c.inserted);
        Texts after = before;
        if (c.inserted) {
            after.insert(after.begin() + index, c.text);
        }
        EXPECT_EQ(list.Bytes(), ListBytes(after) + (c.inserted ? "" : "####"));
    }
    CLStrHandle list(Texts{});
    EXPECT_EQ(CLStrInsertSort(list.handle, LStrValue("a").Get(), 0, nullptr, nullptr, 0), 0);
    EXPECT_EQ(list.Bytes(), ListBytes({"a"}));
}

TEST_F(StringCLStr, NullArguments)
{
    CLStrHandle list(Texts{"a"});
    LStrValue text("b");
    KzBool inserted = -1;
    EXPECT_EQ(CLStrIndex(nullptr, 0), nullptr);
    EXPECT_TRUE(reports.Take(kDbgFatal, "invalid buffer passed to CLStrIndex"));
    for (const bool isListMissing : {false, true}) {
        CLStr** const handle = isListMissing ? nullptr : list.handle;
        const LStr* const s = isListMissing ? text.Get() : nullptr;
        EXPECT_EQ(CLStrInsert(handle, s, 0, 0), kzErrArgument);
        EXPECT_TRUE(reports.Take(kDbgFatal, "Invalid dest buffer or insert buffer passed to CLStrInsert"));
        EXPECT_EQ(CLStrInsertSort(handle, s, 0, nullptr, &inserted, 0), kzErrArgument);
        EXPECT_TRUE(reports.Take(kDbgFatal, "Invalid dest buffer or insert buffer passed to CLStrInsertSort"));
    }
    EXPECT_EQ(CLStrRemove(nullptr, 0), kzErrArgument);
    EXPECT_EQ(StdToCLStr(nullptr), kzErrArgument);
    LStrValue huge("x");
    huge.Get()->cnt = 0x7FFFFFFF;  // refused before a byte of it is read
    EXPECT_EQ(CLStrInsert(list.handle, huge.Get(), 0, 0), kzErrMemoryFull);
    EXPECT_EQ(list.Bytes(), ListBytes({"a"}));
}

// Big-endian blocks: what the list is afterwards, and whether it was one to the byte.
TEST_F(StringCLStr, StandardOrder)
{
    const Texts all = {"a", "", "five5"};
    const std::string good = ListBytes(all, 3, kBigEndian);
    ASSERT_EQ(good.size(), 28u);
    const struct {
        const char* name;
        std::string bytes;
        size_t whole;
        bool isGood;
    } cases[] = {
        {"good", good, 3, true},
        {"empty", std::string(4, '\0'), 0, true},
        {"no count", std::string(3, '\0'), 0, false},
        {"something behind", good + "abcd", 3, false},
        {"a byte behind", good + "a", 3, false},
        {"padding cut", good.substr(0, 27), 2, false},
        {"text cut", good.substr(0, 20), 2, false},
        {"count cut", good.substr(0, 14), 1, false},
        {"fewer", CountBytes(2, kBigEndian) + good.substr(4), 2, false},
        {"more", CountBytes(4, kBigEndian) + good.substr(4), 3, false},
        {"most", CountBytes(0x7FFFFFFF, kBigEndian) + good.substr(4), 3, false},
        {"negative", CountBytes(0xFFFFFFFF, kBigEndian) + good.substr(4), 0, false},
        {"a length of most", CountBytes(1, kBigEndian) + CountBytes(0x7FFFFFFF, kBigEndian) + "abcd", 0, false},
        {"a length that wraps", CountBytes(1, kBigEndian) + CountBytes(0xFFFFFFFD, kBigEndian) + "abcd", 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CLStrHandle list(c.bytes);
        EXPECT_EQ(StdToCLStr(list.handle), c.isGood ? kzErrNone : kzErrCorrupt);
        EXPECT_EQ(reports.Take(kDbgFatal, ""), !c.isGood);
        if (c.bytes.size() >= 4) {
            const std::string bytes = ListBytes(Texts(all.begin(), all.begin() + static_cast<long>(c.whole)));
            EXPECT_EQ(list.Bytes().substr(0, bytes.size()), bytes);
        }
    }
}

// Blocks that hold fewer strings than the count says, at every cut.
TEST_F(StringCLStr, CountsThatTheBlockDoesNotHold)
{
    const Texts all = {"a", "bb", "five5"};
    const std::string whole = ListBytes(all, 0x7FFFFFFF);
    const size_t ends[] = {4, 12, 20, 32};
    for (size_t cut = 4; cut <= whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        const auto held = std::upper_bound(ends, ends + 4, cut) - ends - 1;
        CLStrHandle list(whole.substr(0, cut));
        CLStrHandle sorted(whole.substr(0, cut));
        Texts expected(all.begin(), all.begin() + held);
        expected.push_back("x");
        EXPECT_EQ(Insert(list.handle, "x", 0x7FFFFFFF, 1), 0);
        EXPECT_EQ(list.Bytes(), ListBytes(expected));
        EXPECT_EQ(CLStrInsertSort(sorted.handle, LStrValue("x").Get(), 0, nullptr, nullptr, 1), 0);
        EXPECT_EQ(sorted.Bytes(), ListBytes(expected));
        EXPECT_EQ(CLStrRemove(list.handle, 0x7FFFFFFF), 0);
        expected.pop_back();
        EXPECT_EQ(list.Bytes(), ListBytes(expected));
    }
    CLStrHandle negative(std::string("\1\0\0\0\xFC\xFF\xFF\xFFxxxx", 12));
    EXPECT_EQ(CLStrRemove(negative.handle, 0), kzErrArgument);
}

// Random changes against a vector; some find memory full and change nothing.
TEST_F(StringCLStr, RandomChangesMatchAVector)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 10; ++seed) {
        std::mt19937_64 draw(seed);
        CLStrHandle list(Texts{});
        Texts model;
        for (int step = 0; step < 60; ++step) {
            const int32 count = static_cast<int32>(model.size());
            const int32 i = static_cast<int32>(draw() % (model.size() + 4)) - 2;
            const bool isOwn = count > 0 && draw() % 4 == 0;
            const auto own = isOwn ? draw() % model.size() : 0;
            const std::string text = isOwn ? model[own] : DrawText(draw, 400);
            LStrValue value(text);
            const LStr* const source = isOwn ? CLStrIndex(*list.handle, static_cast<int32>(own)) : value.Get();
            const bool isRemoval = draw() % 3 == 0;
            const KzBool exactFit = draw() % 2;
            const int failing = draw() % 5 == 0 ? static_cast<int>(1 + draw() % 2) : 1000;
            KzErr err = 0;
            bool failed = false;
            {
                FailAllocation fail(failing);
                err = isRemoval ? CLStrRemove(list.handle, i) : CLStrInsert(list.handle, source, i, exactFit);
                failed = FailAllocation::Happened();
            }
            if (failed) {
                EXPECT_EQ(err, kzErrMemoryFull);
                reports.TakeAll();
            } else if (!isRemoval) {
                model.insert(model.begin() + std::clamp(i, 0, count), text);
            } else if (count > 0) {
                model.erase(model.begin() + std::clamp(i, 0, count - 1));
            } else {
                EXPECT_EQ(err, kzErrArgument);
            }
            const std::string expected = ListBytes(model);
            ASSERT_EQ(list.Bytes().substr(0, expected.size()), expected) << "seed " << seed << ", step " << step;
            ASSERT_EQ(CLStrSize(*list.handle), static_cast<int32>(expected.size()));
        }
    }
}

TEST_F(StringCLStr, AFullMemoryChangesNothing)
{
    LStrValue text("text");
    FaultLoop(
        [&](const auto& failed) {
            CLStrHandle list(Texts{});
            if (list.handle == nullptr) {
                return;
            }
            const auto step = [&](KzErr err, const Texts& before, const Texts& after) {
                EXPECT_TRUE(err == 0 || (err == kzErrMemoryFull && failed()));
                EXPECT_EQ(list.Bytes(), ListBytes(err == 0 ? after : before));
                return err == 0;
            };
            KzBool inserted = -1;
            const bool isSorted =
                step(CLStrInsert(list.handle, text.Get(), 0, 1), {}, {"text"}) &&
                step(CLStrInsertSort(list.handle, CLStrIndex(*list.handle, 0), 1, nullptr, &inserted, 1), {"text"},
                     {"text", "text"});
            EXPECT_TRUE(inserted == -1 || inserted == isSorted);
            isSorted&& step(CLStrRemove(list.handle, 0), {"text", "text"}, {"text"});
        },
        FailAllocation::kBlocks);
    reports.TakeAll();
}

}  // namespace
