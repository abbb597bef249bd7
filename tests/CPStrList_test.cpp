#include "CPStrList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "BinDataReader.h"
#include "BinDataWriter.h"
#include "ListTesting.h"
#include "PackedList.h"
#include "ResImage.h"
#include "ResourceManager.h"
#include "TestHost.h"

namespace {

using kztest::Between;
using kztest::CPStrHandle;
using kztest::Draw;
using kztest::DrawIndex;
using kztest::Json;
using kztest::ListRows;
using kztest::ListStep;
using kztest::PackedBytes;
using kztest::Pinned;
using kztest::PStrValue;
using kztest::Texts;
using kztest::TextsOf;

// The handle that a list owns; null where it has no string.
CPStr** HandleIn(const CPStrList& list)
{
    return list[0] == nullptr ? nullptr : reinterpret_cast<CPStr**>(DSRecoverHandle(list[0] - 4));
}

std::string BlockOf(const CPStrList& list)
{
    return list[0] == nullptr ? PackedBytes({}) : kztest::BytesOf(HandleIn(list));
}

KzErr UnFlatten(CPStrList& list, const std::string& bytes)
{
    MemInputBuf buffer(bytes.data(), bytes.size());
    BinDataReader reader(&buffer, BigEndianizer());
    return list.UnFlatten(&reader);
}

// A list is always in a block of its own size.
class OwnedStrings {
public:
    using Library = kztest::RunningLibrary;

    explicit OwnedStrings(Draw& /*draw*/) {}

    static std::string ImageOf(const Texts& texts) { return PackedBytes(texts); }
    bool IsMade() const { return true; }
    std::string Bytes() const { return BlockOf(mList); }
    size_t Block() const { return Bytes().size(); }
    const char* Fault() const { return mList[0] == nullptr ? nullptr : kz::CPStrFault(HandleIn(mList)); }

    void Change(Draw& draw, ListStep& step)
    {
        Texts& texts = step.texts;
        const size_t count = texts.size(), own = draw() % (4 * count + 1);
        const int32 i = DrawIndex(draw, count);
        const std::string text = own < count ? texts[own] : kztest::DrawText(draw, 255);
        const PStrValue value(text);
        const auto kind = draw() % 20;
        if (kind < 4) {
            step.err = mList.Delete(i);
            kztest::RemovePinned(step, i);
        } else if (kind == 4) {
            step.err = draw() % 2 == 0 ? mList.Clear() : mList.Copy(nullptr);
            texts.clear();
        } else if (kind == 5) {
            step.err = mList.ForceAllocate();
        } else if (kind == 6) {
            step.err = draw() % 2 == 0 || count == 0 ? mList.Copy(mList) : mList.Copy(*HandleIn(mList));
        } else if (kind == 7) {
            texts = Texts(draw() % 4, text);
            const CPStrHandle other(texts);
            step.err = other.IsMade() ? mList.Copy(*other.handle) : kzErrMemoryFull;
        } else if (kind == 8) {
            step.err = ThereAndBack(texts);
        } else {
            step.err = mList.Insert(own < count ? mList[static_cast<int32>(own)] : value, i);
            texts.insert(texts.begin() + (i < 0 ? static_cast<long>(count) : Between(i, count)), text);
        }
        step.block = PackedBytes(texts).size();
    }

    void Look(Draw& draw, const Texts& texts) const
    {
        const int32 i = DrawIndex(draw, texts.size());
        EXPECT_EQ(mList.Count(), static_cast<int32>(texts.size()));
        ASSERT_EQ(mList[i] == nullptr, texts.empty());
        EXPECT_TRUE(texts.empty() || kztest::Text(mList[i]) == texts[static_cast<size_t>(Pinned(i, texts.size()))]);
    }

private:
    // By a stream into another list, and by a copy into a third, which both take the place of an old list.
    KzErr ThereAndBack(const Texts& texts)
    {
        std::string bytes(PackedBytes(texts).size(), '#');
        StaticOutputBuf buffer(bytes.data(), bytes.size());
        BinDataWriter writer(&buffer, BigEndianizer());
        EXPECT_EQ(mList.Flatten(&writer), kzErrNone);
        EXPECT_EQ(bytes, std::string(PackedBytes(texts)).replace(0, 4, CountBytes(texts.size())));
        CPStrList back, copy;
        KzErr err = back.Insert(PStrValue("old"), 0);
        err = err == kzErrNone ? UnFlatten(back, bytes) : err;
        const int32 read = back.Count();
        if (err == kzErrNone) {
            EXPECT_TRUE(back.Equal(mList));
            err = copy.Insert(PStrValue("old"), 0);
        } else {
            EXPECT_TRUE(read == 0 || kztest::Text(back[0]) == "old" || back.EqualNEltsFS(mList, read))
                << "those before the fault";
        }
        err = err == kzErrNone ? copy.Copy(back) : err;
        EXPECT_TRUE(err != kzErrNone || BlockOf(copy) == PackedBytes(texts));
        return err;
    }

    static std::string CountBytes(size_t count)
    {
        std::string bytes(4, '\0');
        kz::StoreBig(bytes.data(), static_cast<int32>(count));
        return bytes;
    }

    CPStrList mList;
};

}  // namespace

namespace kztest {
INSTANTIATE_TYPED_TEST_SUITE_P(CPStrList, ListModel, OwnedStrings);
}  // namespace kztest

namespace {

class CPStrListTest : public ::testing::Test {
protected:
    static void Fill(CPStrList& list, const Texts& texts) { EXPECT_EQ(list.Copy(*CPStrHandle(texts).handle), 0); }

    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
};

TEST_F(CPStrListTest, Comparisons)
{
    for (const Json& row : ListRows("compare")) {
        SCOPED_TRACE(row.Line());
        CPStrList a, b;
        Fill(a, TextsOf(row, "a"));
        Fill(b, TextsOf(row, "b"));
        const auto order = row["order"].Int(), caseless = row["caseless"].Int();
        EXPECT_EQ(a.Compare(b), order);
        EXPECT_EQ(a.CompareNC(b), caseless);
        EXPECT_EQ(a.CompareFS(b), caseless);
        EXPECT_EQ(a.Equal(b), order == 0);
        EXPECT_EQ(a.EqualNC(b), caseless == 0);
        EXPECT_EQ(a.EqualFS(b), caseless == 0);
        for (int32 n = -1; n <= 4; ++n) {
            EXPECT_EQ(a.EqualNEltsFS(b, n), n <= row["common"].Int()) << n;
        }
    }
}

// A loaded resource goes over to the list; one that isn't a resource's stays its owner's.
TEST_F(CPStrListTest, FromAResource)
{
    for (const Json& row : ListRows("CPStrList of a resource")) {
        SCOPED_TRACE(row.Line());
        const Texts strings = TextsOf(row, "texts");
        const std::string image = kztest::ResImage({{"AAAA", 1, row["bytes"].Hex()}}).Bytes();
        RsrcFile file = 0;
        UHandle resource = nullptr;
        ASSERT_EQ(ROpenUPtr(kztest::Bytes(image), image.size(), &file, nullptr, nullptr), 0);
        ASSERT_EQ(RGet(file, kz::FourCharCode("AAAA"), 1, &resource), 0);
        {
            CPStrList list(resource), copy;
            EXPECT_FALSE(RIsLoaded(file, kz::FourCharCode("AAAA"), 1));
            EXPECT_EQ(list.Count(), static_cast<int32>(strings.size()));
            EXPECT_EQ(DSCheckHandle(resource) != kzErrNone, row["bytes"].Hex().size() < 4) << "no count, no handle";
            EXPECT_EQ(copy.Copy(list), 0);
            EXPECT_EQ(BlockOf(copy), PackedBytes(strings)) << "without what lies";
            EXPECT_EQ(list.Insert(nullptr, 0), kzErrArgument);
            EXPECT_EQ(list.Insert(PStrValue("x"), 0), 0);
            EXPECT_TRUE(strings.empty() || list.Delete(1) == 0);
            EXPECT_EQ(BlockOf(list), PackedBytes(strings.size() < 2 ? Texts{"x"} : Texts{"x", ""}));
        }
        EXPECT_EQ(DSCheckHandle(resource), kzErrBadZone) << "disposed with the list";
        EXPECT_EQ(RCloseFile(file), 0);
    }
    CPStrHandle plain(Texts{"a"});
    EXPECT_EQ(CPStrList(reinterpret_cast<UHandle>(plain.handle)).Count(), 0);
    EXPECT_EQ(plain.Bytes(), PackedBytes({"a"}));
}

// Streams that end too early, or tell a count that they don't have: the strings before the fault stay.
TEST_F(CPStrListTest, HostileStreams)
{
    const std::string whole("\0\0\0\3\1a\2bb\3ccc", 13);
    const size_t ends[] = {6, 9, 13};
    CPStrList list;
    EXPECT_EQ(UnFlatten(list, std::string(4, '\0') + "more"), 0) << "nothing to cut, and no handle";
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        Fill(list, {"old"});
        EXPECT_EQ(UnFlatten(list, whole.substr(0, cut)), cut == whole.size() ? kzErrNone : kzErrCorrupt);
        EXPECT_EQ(reports.Take(kDbgWarning, "MemInputBuf finished with 74 error"), cut != whole.size());
        Texts texts = {"a", "bb", "ccc"};
        texts.resize(static_cast<size_t>(std::upper_bound(ends, ends + 3, cut) - ends));
        EXPECT_EQ(BlockOf(list), PackedBytes(texts));
    }
    EXPECT_EQ(UnFlatten(list, std::string("\xFF\xFF\xFF\xFF\1a", 6)), 0);
    EXPECT_EQ(list.Count(), 0);
    // A million strings take few resizes, and no more room than they have bytes.
    uInt64 before[2], after[2];
    DSReadCounters(before);
    EXPECT_EQ(UnFlatten(list, "\x7F\xFF\xFF\xFF" + std::string(1000000, '\0')), kzErrCorrupt);
    EXPECT_TRUE(reports.Take(kDbgWarning, "MemInputBuf finished with 74 error"));
    DSReadCounters(after);
    EXPECT_LE(static_cast<uInt32>(after[1] - before[1]), 25u);
    EXPECT_EQ(BlockOf(list), PackedBytes(Texts(1000000)));
    MemInputBuf buffer(whole.data(), whole.size());
    BinDataReader reader(&buffer, BigEndianizer());
    reader.SetError(kzErrIO);
    EXPECT_EQ(list.UnFlatten(&reader), kzErrIO);
    EXPECT_EQ(list.Count(), 0);
}

TEST_F(CPStrListTest, TellsThatTheStreamIsFull)
{
    {
        CPStrList list;
        Fill(list, {"one", "", "three"});
        char small[8];
        StaticOutputBuf buffer(small, sizeof small);
        BinDataWriter writer(&buffer, BigEndianizer());
        EXPECT_EQ(list.Flatten(&writer), kzErrCorrupt);
    }
    EXPECT_EQ(reports.TakeAll().size(), 2u) << "of the buffer and the writer";
}

}  // namespace
