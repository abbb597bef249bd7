#include "CPStrList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "BinDataReader.h"
#include "BinDataWriter.h"
#include "FaultLoop.h"
#include "KzErr.h"
#include "ListTesting.h"
#include "ReportCatcher.h"
#include "ResImage.h"
#include "ResourceManager.h"
#include "TestHost.h"

namespace {

using kztest::CPStrHandle;
using kztest::FailAllocation;
using kztest::FaultLoop;
using kztest::PStrValue;
using kztest::Texts;

Texts StringsOf(const CPStrList& list)
{
    Texts texts;
    for (int32 i = 0; i < list.Count(); ++i) {
        texts.push_back(kztest::Text(list[i]));
    }
    return texts;
}

void Fill(CPStrList& list, const Texts& texts)
{
    for (const std::string& text : texts) {
        EXPECT_EQ(list.Insert(PStrValue(text), -1), 0);
    }
}

class CPStrListTest : public ::testing::Test {
protected:
    // Reads a list from a big-endian stream. Reports of the stream's end are not looked at.
    KzErr UnFlatten(CPStrList& list, const std::string& bytes)
    {
        KzErr err = kzErrGeneric;
        {
            MemInputBuf buffer(bytes.data(), bytes.size());
            BinDataReader reader(&buffer, BigEndianizer());
            err = list.UnFlatten(&reader);
        }
        reports.TakeAll();
        return err;
    }

    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
};

TEST_F(CPStrListTest, Editing)
{
    CPStrList list;
    EXPECT_EQ(list.Clear(), 0);
    EXPECT_EQ(list.Delete(0), kzErrArgument);
    EXPECT_EQ(list[0], nullptr);
    EXPECT_EQ(list.Insert(nullptr, 0), kzErrArgument);
    EXPECT_EQ(list.Insert(PStrValue("b"), 7), 0);
    EXPECT_EQ(list.Insert(PStrValue("d"), -1), 0);
    EXPECT_EQ(list.Insert(PStrValue("a"), 0), 0);
    EXPECT_EQ(list.Insert(PStrValue("c"), 2), 0);
    EXPECT_EQ(list.Insert(list[0], -7), 0);
    EXPECT_EQ(StringsOf(list), (Texts{"a", "b", "c", "d", "a"}));
    EXPECT_EQ(kztest::Text(list[99]), "a");
    EXPECT_EQ(kztest::Text(list[-1]), "a");
    EXPECT_EQ(list.Delete(-1), 0);
    EXPECT_EQ(list.Delete(1), 0);
    EXPECT_EQ(list.Delete(9), 0);
    EXPECT_EQ(StringsOf(list), (Texts{"b", "d"}));
    EXPECT_EQ(list.Clear(), 0);
    EXPECT_EQ(list[0], nullptr);
    EXPECT_EQ(list.Delete(0), kzErrArgument);
    EXPECT_EQ(list.ForceAllocate(), 0);
    EXPECT_EQ(list.Count(), 0);
}

TEST_F(CPStrListTest, Copies)
{
    CPStrHandle block(Texts{"one", "two"});
    CPStrList list(*block.handle);
    EXPECT_EQ(StringsOf(list), (Texts{"one", "two"}));
    CPStrList other;
    EXPECT_EQ(other.Copy(list), 0);
    EXPECT_TRUE(other.Equal(list));
    EXPECT_EQ(list.Insert(PStrValue("three"), -1), 0);
    EXPECT_EQ(list.Copy(list), 0);
    EXPECT_EQ(list.Copy(reinterpret_cast<const CPStr*>(list[0] - 4)), 0) << "its own block";
    EXPECT_EQ(StringsOf(list), (Texts{"one", "two", "three"}));
    EXPECT_EQ(StringsOf(other), (Texts{"one", "two"}));
    EXPECT_EQ(list.Copy(*block.handle), 0);
    EXPECT_EQ(StringsOf(list), (Texts{"one", "two"}));
    EXPECT_EQ(list.Copy(CPStrList()), 0);
    EXPECT_EQ(list.Count(), 0);
    EXPECT_EQ(other.Copy(nullptr), 0);
    EXPECT_EQ(other.Count(), 0);
}

TEST_F(CPStrListTest, Comparisons)
{
    const struct {
        Texts a, b;
        int32 order, caseless;
        int32 common;  // the first n for which EqualNEltsFS is true, and n + 1 is not
    } cases[] = {
        {{}, {}, 0, 0, 0},
        {{"a"}, {"a"}, 0, 0, 1},
        {{"a"}, {}, 1, 1, 0},
        {{}, {"a", "b"}, -2, -2, 0},
        {{"a", "B"}, {"A", "b"}, 'a' - 'A', 0, 2},
        {{"a", "b"}, {"a", "B", "c"}, 'b' - 'B', -1, 2},
        {{"a", "x"}, {"a", "Y", "c"}, 'x' - 'Y', 'x' - 'y', 1},
        {{"ab"}, {"a", "a"}, 1, 1, 0},
    };
    for (const auto& c : cases) {
        CPStrList a, b;
        Fill(a, c.a);
        Fill(b, c.b);
        EXPECT_EQ(a.Compare(b), c.order);
        EXPECT_EQ(a.CompareNC(b), c.caseless);
        EXPECT_EQ(a.CompareFS(b), c.caseless);
        EXPECT_EQ(a.Equal(b), c.order == 0);
        EXPECT_EQ(a.EqualNC(b), c.caseless == 0);
        EXPECT_EQ(a.EqualFS(b), c.caseless == 0);
        for (int32 n = -1; n <= 4; ++n) {
            EXPECT_EQ(a.EqualNEltsFS(b, n), n <= c.common) << n;
        }
    }
}

// A loaded resource goes over to the list; one that isn't a resource's stays its owner's.
TEST_F(CPStrListTest, FromAResource)
{
    const struct {
        std::string data;
        Texts strings;
    } cases[] = {
        {std::string("\0\0\0\2\1a\0", 7), {"a", ""}},
        {std::string("\0\0\0\2\1a\5", 7), {"a"}},
        {std::string("\x7F\xFF\xFF\xFF\1a", 6), {"a"}},
        {std::string("\xFF\xFF\xFF\xFF\1a", 6), {}},
        {std::string("\0\0\1", 3), {}},
    };
    for (const auto& c : cases) {
        const std::string image = kztest::ResImage({{"AAAA", 1, c.data}}).Bytes();
        RsrcFile file = 0;
        UHandle resource = nullptr;
        ASSERT_EQ(ROpenUPtr(kztest::Bytes(image), image.size(), &file, nullptr, nullptr), 0);
        ASSERT_EQ(RGet(file, kz::FourCharCode("AAAA"), 1, &resource), 0);
        {
            CPStrList list(resource);
            EXPECT_FALSE(RIsLoaded(file, kz::FourCharCode("AAAA"), 1));
            EXPECT_EQ(StringsOf(list), c.strings);
            EXPECT_EQ(list.Insert(PStrValue("x"), -1), 0);
        }
        EXPECT_EQ(DSCheckHandle(resource), kzErrBadZone) << "disposed with the list";
        EXPECT_EQ(RCloseFile(file), 0);
    }
    CPStrHandle plain(Texts{"a"});
    {
        CPStrList list(reinterpret_cast<UHandle>(plain.handle));
        EXPECT_EQ(list.Count(), 0);
    }
    EXPECT_EQ(plain.Strings(), Texts{"a"});
}

TEST_F(CPStrListTest, FlattenedForm)
{
    const Texts texts = {"one", "", std::string(255, 'x')};
    CPStrList list, back;
    Fill(list, texts);
    Fill(back, {"old", "strings"});
    std::string bytes(400, '#');
    StaticOutputBuf buffer(bytes.data(), bytes.size());
    BinDataWriter writer(&buffer, BigEndianizer());
    EXPECT_EQ(list.Flatten(&writer), 0);
    bytes.resize(buffer.GetBytesWritten());
    EXPECT_EQ(bytes, std::string("\0\0\0\3\3one\0\xFF", 10) + std::string(255, 'x'));
    EXPECT_EQ(UnFlatten(back, bytes), 0);
    EXPECT_TRUE(back.Equal(list));
    EXPECT_EQ(UnFlatten(back, bytes + "more"), 0);
    EXPECT_EQ(back.Count(), 3);
    {
        char small[8];
        StaticOutputBuf tight(small, sizeof small);
        BinDataWriter failing(&tight, BigEndianizer());
        EXPECT_EQ(list.Flatten(&failing), kzErrCorrupt);
    }
    reports.TakeAll();
}

// Streams that end too early, or tell a count that they don't have: the strings before the fault stay.
TEST_F(CPStrListTest, HostileStreams)
{
    const std::string whole("\0\0\0\3\1a\2bb\3ccc", 13);
    const size_t ends[] = {6, 9, 13};
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        CPStrList list;
        Fill(list, {"old"});
        EXPECT_EQ(UnFlatten(list, whole.substr(0, cut)), cut == whole.size() ? kzErrNone : kzErrCorrupt);
        Texts texts = {"a", "bb", "ccc"};
        texts.resize(static_cast<size_t>(std::upper_bound(ends, ends + 3, cut) - ends));
        EXPECT_EQ(StringsOf(list), texts);
    }
    CPStrList list;
    EXPECT_EQ(UnFlatten(list, std::string("\xFF\xFF\xFF\xFF\1a", 6)), 0);
    EXPECT_EQ(list.Count(), 0);
    // A million strings take few resizes, and no more room than they have bytes.
    uInt64 before[2], after[2];
    DSReadCounters(before);
    EXPECT_EQ(UnFlatten(list, "\x7F\xFF\xFF\xFF" + std::string(1000000, '\0')), kzErrCorrupt);
    DSReadCounters(after);
    EXPECT_LE(static_cast<uInt32>(after[1] - before[1]), 25u);
    EXPECT_EQ(list.Count(), 1000000);
    EXPECT_EQ(DSGetHandleSize(DSRecoverHandle(list[0] - 4)), 1000004u);
    MemInputBuf buffer(whole.data(), whole.size());
    BinDataReader reader(&buffer, BigEndianizer());
    reader.SetError(kzErrIO);
    EXPECT_EQ(list.UnFlatten(&reader), kzErrIO);
    EXPECT_EQ(list.Count(), 0);
}

// Random lists and edits of them survive the way through a stream.
TEST_F(CPStrListTest, AFullMemory)
{
    const std::string bytes = std::string("\0\0\0\4\1a\2bb\3ccc\4dddd", 18);
    const Texts all = {"a", "bb", "ccc", "dddd"};
    CPStrHandle block(all);
    FaultLoop(
        [&](const auto& failed) {
            CPStrList list, copy;
            MemInputBuf buffer(bytes.data(), bytes.size());
            BinDataReader reader(&buffer, BigEndianizer());
            const KzErr read = list.UnFlatten(&reader);
            EXPECT_TRUE(read == 0 || (read == kzErrMemoryFull && failed()));
            const Texts strings = StringsOf(list);
            EXPECT_EQ(strings, Texts(all.begin(), all.begin() + static_cast<long>(strings.size())));
            EXPECT_TRUE(read != 0 || strings.size() == 4);
            EXPECT_TRUE(copy.Copy(list) == 0 ? copy.Equal(list) : failed() && copy.Count() == 0);
            EXPECT_TRUE(copy.Clear() == 0 ? copy.Count() == 0 : failed() && copy.Equal(list));
            const int32 count = copy.Count();
            const KzErr inserted = copy.Insert(PStrValue("x"), 0);
            EXPECT_EQ(copy.Count(), count + (inserted == 0));
            CPStrList made(*block.handle);
            EXPECT_TRUE(made.Count() == 4 || (failed() && made.Count() == 0));
        },
        FailAllocation::kBlocks);
    reports.TakeAll();
}

}  // namespace
