// Lists in one block: of objects, of short and of long strings, and of string handles; and the owner of one.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <map>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "BinDataReader.h"
#include "BinDataWriter.h"
#include "ByteOrder.h"
#include "CPStrList.h"
#include "HObjList.h"
#include "JsonLines.h"
#include "ListTesting.h"
#include "PackedList.h"
#include "PointerList.h"
#include "ResImage.h"
#include "ResourceManager.h"
#include "StringCLStr.h"
#include "StringLStr.h"
#include "StringLStrArray.h"
#include "StringPStr.h"
#include "TestStrings.h"

namespace kztest {
namespace {

// ---- Kinds of lists ----

Texts TextsOf(const Json& row, const char* member)
{
    Texts texts;
    for (const Json& text : row[member].Items()) {
        texts.push_back(text.Str());
    }
    return texts;
}

using kztest::TextOf;
std::string TextOf(const unsigned char* string)
{
    return string == nullptr ? std::string() : Text(string);
}

std::string CountBytes(size_t count)
{
    std::string bytes(4, '\0');
    kz::StoreNative(bytes.data(), static_cast<int32>(count));
    return bytes;
}

std::string DrawRoom(Draw& draw, char fill)
{
    return std::string(draw() % 2 * (draw() % 100), fill);
}

// Where an index that is pinned leads to: between entries for an insertion, else to an entry.
long Between(int32 i, size_t count)
{
    return std::clamp<long>(i, 0, static_cast<long>(count));
}
size_t Pinned(int32 i, size_t count)
{
    return static_cast<size_t>(std::clamp<long>(i, 0, std::max(static_cast<long>(count) - 1, 0l)));
}

// The removal of an entry, by an index that is pinned; there is none in an empty list.
void RemovePinned(ListStep& step, int32 i)
{
    if (step.texts.empty()) {
        step.code = kzErrArgument;
    } else {
        step.texts.erase(step.texts.begin() + static_cast<long>(Pinned(i, step.texts.size())));
    }
}

// The handle of a list, disposed at the end; the variable is public for calls that take its address.
template <typename List>
struct ListHandle {
    ListHandle() = default;
    explicit ListHandle(const std::string& bytes) : handle(reinterpret_cast<List**>(HandleOf(bytes))) {}
    ~ListHandle() { DSDisposeHandle(handle); }
    ListHandle(const ListHandle&) = delete;
    ListHandle& operator=(const ListHandle&) = delete;

    bool IsMade() const { return handle != nullptr; }
    size_t Block() const { return DSGetHandleSize(handle); }
    std::string Bytes() const { return handle == nullptr ? "" : BytesOf(handle); }

    List** handle = nullptr;
};

// What a change is made with: an index, and a text, which is drawn or stands in the list, at `own` if that isn't -1.
struct Entry {
    int32 i;
    int32 own;
    std::string text;
    KzBool isExact = 1;
};

// What the kinds have in common that insert and remove by an index that is pinned to the list.
template <typename Kind>
class PinnedList {
public:
    void Change(Draw& draw, ListStep& step)
    {
        Kind& list = static_cast<Kind&>(*this);
        const size_t count = step.texts.size(), own = draw() % (4 * count + 1);
        const int32 i = DrawIndex(draw, count);
        const std::string drawn = DrawText(draw, Kind::kLongest);
        const auto isExact = static_cast<KzBool>(draw() % 2);
        const Entry entry =
            own < count ? Entry{i, static_cast<int32>(own), step.texts[own], isExact} : Entry{i, -1, drawn, isExact};
        const auto kind = draw() % 12;
        if (kind < 2) {
            step.err = list.Remove(i, step.texts);
            RemovePinned(step, i);
            step.block = Kind::BlockAfter(step.block, count, step.texts, true);
        } else if (kind < 8) {
            step.err = list.Insert(entry);
            step.texts.insert(step.texts.begin() + Kind::PlaceOf(i, count), entry.text);
            step.block = Kind::BlockAfter(step.block, count, step.texts, entry.isExact != 0);
        } else {
            list.ChangeOwn(draw, step, entry);
        }
    }

    void Look(Draw& draw, const Texts& texts) const
    {
        const Kind& list = static_cast<const Kind&>(*this);
        const int32 i = DrawIndex(draw, texts.size());
        ASSERT_EQ(list.At(i) == nullptr, texts.empty());
        EXPECT_EQ(TextOf(list.At(i)), texts.empty() ? "" : texts[Pinned(i, texts.size())]) << i;
        list.LookOwn(texts);
    }

    static std::string ImageOf(const Texts& texts)
    {
        std::string bytes = CountBytes(texts.size());
        for (const std::string& text : texts) {
            bytes += Kind::RecordOf(text);
        }
        return bytes;
    }
    static size_t BlockAfter(size_t before, size_t /*count*/, const Texts& texts, bool isExact)
    {
        return std::max(isExact ? 0 : before, Kind::ImageOf(texts).size());
    }
    static long PlaceOf(int32 i, size_t count) { return Between(i, count); }
    static constexpr bool kReliesOnCount = false;
};

// Objects are told apart by a letter; no letter is a null one.
class Objects : public ListHandle<ObjList>, public PinnedList<Objects> {
public:
    static constexpr char kFault[] = "the count of the list tells more entries than the block holds";
    static constexpr unsigned kLongest = 1;

    explicit Objects(Draw& draw) : ListHandle(std::string(4, '\0') + DrawRoom(draw, '\0')) {}
    explicit Objects(const std::string& bytes) : ListHandle(bytes) {}

    static std::string ImageOf(const Texts& texts)
    {
        std::string bytes = CountBytes(texts.size()) + std::string(texts.empty() ? 0 : 4, '\0');
        for (const std::string& text : texts) {
            void* const object = ObjectOf(text);
            bytes.append(reinterpret_cast<const char*>(&object), sizeof object);
        }
        return bytes;
    }
    // A block that lacks room grows to the next step of 16 bytes. One of which more than 12 bytes are left behind the
    // entries that stay loses what is over a step, or a step.
    static size_t BlockAfter(size_t before, size_t count, const Texts& texts, bool /*isExact*/)
    {
        const size_t entries = 8 * count;
        return texts.size() > count && before < entries + 16   ? (before + 16) / 16 * 16
               : texts.size() < count && before > entries + 12 ? (before - 1) / 16 * 16
                                                               : before;
    }
    const char* Fault() const { return kz::PointerListFault(handle); }

    KzErr Insert(const Entry& entry) { return HObjListInsert(handle, ObjectOf(entry.text), entry.i); }
    KzErr Remove(int32 i, const Texts& texts)
    {
        const std::string gone = texts.empty() ? "" : texts[Pinned(i, texts.size())];
        EXPECT_EQ(HObjListDelete(handle, i), ObjectOf(gone));
        return texts.empty() ? kzErrArgument : kzErrNone;
    }
    void ChangeOwn(Draw& draw, ListStep& step, const Entry& entry)
    {
        EXPECT_EQ(Bytes().find_first_not_of('\0', ImageOf(step.texts).size()), std::string::npos) << "room is zero";
        Texts& texts = step.texts;
        void* const object = ObjectOf(entry.text);
        const size_t count = texts.size(), i = Pinned(entry.i, count);
        const auto behind = std::find(texts.rbegin(), texts.rend(), entry.text).base();
        const bool isThere = behind != texts.begin();
        const auto kind = draw() % 4;
        if (kind == 0) {
            step.err = HCompactObjList(handle);
            std::erase(texts, "");
            step.block = std::min(step.block, (8 + texts.size() * 8 + 11) / 16 * 16);
        } else if (kind == 1) {
            EXPECT_EQ(HObjListSearchDelete(handle, object) != 0, isThere);
            texts.erase(behind - isThere, behind);
            step.block = BlockAfter(step.block, count, texts, true);
        } else if (kind == 2 && isThere) {
            EXPECT_EQ(HObjListBringToFront(handle, object) != 0, behind - 1 != texts.begin());
            std::rotate(texts.begin(), behind - 1, behind);
        } else if (count != 0) {
            const size_t j = Pinned(DrawIndex(draw, count), count);
            step.err = HObjListSwap(handle, static_cast<int32>(i), static_cast<int32>(j));
            std::swap(texts[i], texts[j]);
        }
    }
    void Look(Draw& /*draw*/, const Texts& texts) const
    {
        for (const char* text : {"", "a", "B", "c", "C"}) {
            const auto last = std::find(texts.rbegin(), texts.rend(), text);
            EXPECT_EQ(HObjListSearch(handle, ObjectOf(text)), static_cast<int32>(texts.rend() - last) - 1);
        }
    }

private:
    static void* ObjectOf(const std::string& text)
    {
        static char objects[128];
        return text.empty() ? nullptr : &objects[static_cast<size_t>(text[0])];
    }
};

class ShortStrings : public ListHandle<CPStr>, public PinnedList<ShortStrings> {
public:
    static constexpr char kFault[] = "the count of the list tells more records than the block holds";
    static constexpr unsigned kLongest = 255;

    ShortStrings() = default;
    explicit ShortStrings(Draw& draw) : ListHandle(ImageOf({}) + DrawRoom(draw, '#')) {}
    explicit ShortStrings(const std::string& bytes) : ListHandle(bytes) {}
    explicit ShortStrings(const Texts& texts) : ListHandle(ImageOf(texts)) {}

    static std::string RecordOf(const std::string& text) { return static_cast<char>(text.size()) + text; }
    const char* Fault() const { return kz::CPStrFault(handle); }

    KzErr Insert(const Entry& entry)
    {
        const PStrValue value(entry.text);
        const unsigned char* const string = entry.own < 0 ? value : At(entry.own);
        return entry.isExact ? CPStrInsert(handle, string, entry.i) : CPStrInsertEfficient(handle, string, entry.i, 0);
    }
    KzErr Remove(int32 i, const Texts& /*texts*/) { return CPStrRemove(handle, i); }
    void ChangeOwn(Draw& draw, ListStep& step, const Entry& entry)
    {
        Texts& texts = step.texts;
        const size_t count = texts.size();
        const auto kind = draw() % 10;
        size_t least = 0;
        if (kind == 0) {
            step.err = CPStrClear(handle);
            texts.clear();
        } else if (kind == 1) {
            texts.assign(draw() % 9, "");
            step.err = CPStrSetToNEmptyStrings(&handle, static_cast<int32>(texts.size()));
        } else if (kind < 5) {
            Sort(draw, step);
            least = step.block;
        } else {
            // In an empty list the text goes where the first one would be, which is not counted.
            const PStrValue value(entry.text);
            step.err = CPStrReplace(handle, entry.own < 0 ? value : At(entry.own), entry.i);
            const std::string old = count == 0 ? "" : std::exchange(texts[Pinned(entry.i, count)], entry.text);
            least = count == 0 ? 5 + entry.text.size() : old.size() == entry.text.size() ? step.block : 0;
        }
        step.block = std::max(least, ImageOf(texts).size());
    }

    const unsigned char* At(int32 i) const { return CPStrIndex(handle, i); }
    void LookOwn(const Texts& texts) const
    {
        const std::string text = texts.empty() ? "" : texts[texts.size() / 2];
        const auto first = std::find(texts.begin(), texts.end(), text);
        EXPECT_EQ(CPStrSearch(handle, PStrValue(text), &PStrCmp), first == texts.end() ? -1 : first - texts.begin());
        EXPECT_EQ(CPStrSearch(handle, PStrValue("none"), &PStrCmp), -1);
        EXPECT_TRUE(Fault() != nullptr || CPStrSize(*handle) == static_cast<int32>(ImageOf(texts).size()));
    }

private:
    // Strings are sorted without regard to case, and each takes its entry along, of which there may be more.
    void Sort(Draw& draw, ListStep& step)
    {
        std::vector<uInt64> order(step.texts.size() + draw() % 2);
        std::iota(order.begin(), order.end(), 0);
        const size_t size = order.size() * sizeof(uInt64);
        const ListHandle<uInt64> parallel(std::string(reinterpret_cast<char*>(order.data()), size));
        if (!parallel.IsMade()) {
            step.err = kzErrMemoryFull;
            return;
        }
        step.err = LSort(handle, reinterpret_cast<UHandle>(parallel.handle));
        std::copy_n(*parallel.handle, order.size(), order.begin());
        Texts sorted;
        for (size_t i = 0; i < step.texts.size(); ++i) {
            sorted.push_back(step.texts.at(order[i]));
        }
        const auto isBelow = [](const std::string& a, const std::string& b) {
            return PStrCaseCmp(PStrValue(a), PStrValue(b)) < 0;
        };
        const bool isSorted = std::is_sorted(sorted.begin(), sorted.end(), isBelow);
        EXPECT_TRUE(step.err == kzErrNone ? isSorted : sorted == step.texts);
        EXPECT_TRUE(std::is_permutation(sorted.begin(), sorted.end(), step.texts.begin())) << "each string once";
        EXPECT_TRUE(order.size() == sorted.size() || order.back() == sorted.size()) << "an entry without a string";
        step.texts = sorted;
    }
};

class LongStrings : public ListHandle<CLStr>, public PinnedList<LongStrings> {
public:
    static constexpr const char* kFault = ShortStrings::kFault;
    static constexpr unsigned kLongest = 400;
    static constexpr bool kReliesOnCount = true;  // in the calls that only look

    explicit LongStrings(Draw& draw) : ListHandle(ImageOf({}) + DrawRoom(draw, '#')) {}
    explicit LongStrings(const std::string& bytes) : ListHandle(bytes) {}
    explicit LongStrings(const Texts& texts) : ListHandle(ImageOf(texts)) {}

    static std::string RecordOf(const std::string& text)
    {
        return CountBytes(text.size()) + text + std::string((4 - text.size() % 4) % 4, '\0');
    }
    const char* Fault() const { return kz::CLStrFault(handle); }

    KzErr Insert(const Entry& entry)
    {
        LStrValue value(entry.text);
        return CLStrInsert(handle, entry.own < 0 ? value.Get() : At(entry.own), entry.i, entry.isExact);
    }
    KzErr Remove(int32 i, const Texts& /*texts*/) { return CLStrRemove(handle, i); }
    // Before the first string that is not below, wherever the list is out of order.
    void ChangeOwn(Draw& draw, ListStep& step, const Entry& entry)
    {
        Texts& texts = step.texts;
        const auto place =
            std::find_if(texts.begin(), texts.end(), [&](const auto& each) { return each >= entry.text; });
        const KzBool areTwo = draw() % 2;
        const bool isKeptOut = !areTwo && place != texts.end() && *place == entry.text;
        LStrValue value(entry.text);
        int32 index = -1;
        KzBool inserted = -1;
        step.err = CLStrInsertSort(handle, entry.own < 0 ? value.Get() : At(entry.own), areTwo, &index, &inserted,
                                   entry.isExact);
        EXPECT_EQ(index, place - texts.begin());
        EXPECT_EQ(inserted, !isKeptOut && step.err == kzErrNone);
        if (!isKeptOut) {
            texts.insert(place, entry.text);
            step.block = BlockAfter(step.block, 0, texts, entry.isExact != 0);
        }
    }

    const LStr* At(int32 i) const { return CLStrIndex(*handle, i); }
    void LookOwn(const Texts& texts) const { EXPECT_EQ(CLStrSize(*handle), static_cast<int32>(ImageOf(texts).size())); }
};

// The handle that a list owns; null where it has no string.
CPStr** HandleIn(const CPStrList& list)
{
    return list[0] == nullptr ? nullptr : reinterpret_cast<CPStr**>(DSRecoverHandle(list[0] - 4));
}

std::string BlockOf(const CPStrList& list)
{
    return list[0] == nullptr ? ShortStrings::ImageOf({}) : BytesOf(HandleIn(list));
}

KzErr UnFlatten(CPStrList& list, const std::string& bytes, KzErr before = kzErrNone)
{
    MemInputBuf buffer(bytes.data(), bytes.size());
    BinDataReader reader(&buffer, BigEndianizer());
    reader.SetError(before);
    return list.UnFlatten(&reader);
}

// The owner of a list of short strings, which is always in a block of its own size.
class OwnedStrings : public PinnedList<OwnedStrings> {
public:
    static constexpr unsigned kLongest = 255;

    explicit OwnedStrings(Draw& /*draw*/) {}

    static std::string RecordOf(const std::string& text) { return ShortStrings::RecordOf(text); }
    static size_t BlockAfter(size_t, size_t, const Texts& texts, bool) { return ImageOf(texts).size(); }
    static long PlaceOf(int32 i, size_t count) { return i < 0 ? static_cast<long>(count) : Between(i, count); }
    bool IsMade() const { return true; }
    size_t Block() const { return Bytes().size(); }
    std::string Bytes() const { return BlockOf(mList); }
    const char* Fault() const { return mList[0] == nullptr ? nullptr : kz::CPStrFault(HandleIn(mList)); }

    KzErr Insert(const Entry& entry)
    {
        const PStrValue value(entry.text);
        return mList.Insert(entry.own < 0 ? value : At(entry.own), entry.i);
    }
    KzErr Remove(int32 i, const Texts& /*texts*/) { return mList.Delete(i); }
    void ChangeOwn(Draw& draw, ListStep& step, const Entry& entry)
    {
        Texts& texts = step.texts;
        const auto kind = draw() % 12;
        if (kind == 0) {
            step.err = draw() % 2 == 0 ? mList.Clear() : mList.Copy(nullptr);
            texts.clear();
        } else if (kind < 4) {
            step.err = mList.ForceAllocate();
        } else if (kind < 6) {
            step.err = kind == 4 || texts.empty() ? mList.Copy(mList) : mList.Copy(*HandleIn(mList));
        } else if (kind < 9) {
            texts = Texts(draw() % 9, entry.text);
            const ShortStrings other(texts);
            const CPStrList owner(other.IsMade() ? *other.handle : nullptr);
            const bool isMade = other.IsMade() && owner.Count() == static_cast<int32>(texts.size());
            step.err = !isMade ? kzErrMemoryFull : kind == 6 ? mList.Copy(*other.handle) : mList.Copy(owner);
        } else {
            step.err = ThereAndBack(texts);
        }
        step.block = ImageOf(texts).size();
    }

    const unsigned char* At(int32 i) const { return mList[i]; }
    void LookOwn(const Texts& texts) const { EXPECT_EQ(mList.Count(), static_cast<int32>(texts.size())); }

private:
    // By a stream into another list, where it takes the place of an old one.
    KzErr ThereAndBack(const Texts& texts)
    {
        std::string expected = ImageOf(texts), bytes(expected.size(), '#');
        kz::StoreBig(expected.data(), static_cast<int32>(texts.size()));
        StaticOutputBuf buffer(bytes.data(), bytes.size());
        BinDataWriter writer(&buffer, BigEndianizer());
        EXPECT_EQ(mList.Flatten(&writer), kzErrNone);
        EXPECT_EQ(bytes, expected);
        CPStrList back;
        if (const KzErr err = back.Insert(PStrValue("old"), 0)) {
            return err;
        }
        const KzErr err = UnFlatten(back, bytes);
        const bool isOldOrPart =
            back.Count() == 0 || TextOf(back[0]) == "old" || back.EqualNEltsFS(mList, back.Count());
        EXPECT_TRUE(err == kzErrNone ? back.Equal(mList) : isOldOrPart) << "those before the fault";
        return err;
    }

    CPStrList mList;
};

// Strings in handles of their own, which the array disposes. An empty one is null.
class StringHandles {
public:
    explicit StringHandles(Draw& /*draw*/) {}
    explicit StringHandles(const Texts& texts)
    {
        EXPECT_EQ(CPStrPtrToLStrArray(*ShortStrings(texts).handle, &handle), 0);
    }
    ~StringHandles() { ReallocLStrArrayHandle(&handle, 0); }
    StringHandles(const StringHandles&) = delete;
    StringHandles& operator=(const StringHandles&) = delete;

    static std::string ImageOf(const Texts& texts) { return LongStrings::ImageOf(texts); }
    bool IsMade() const { return true; }
    const char* Fault() const { return kz::LStrArrayFault(handle); }
    size_t Block() const { return handle == nullptr ? 0 : DSGetHandleSize(handle); }
    std::string Bytes() const { return ImageOf(Strings()); }
    Texts Strings() const
    {
        Texts texts;
        for (int32 i = 0; handle != nullptr && i < (*handle)->cnt; ++i) {
            LStr** const entry = (*handle)->str[i];
            texts.push_back(entry == nullptr ? std::string() : kztest::TextOf(*entry));
            EXPECT_TRUE(entry == nullptr || DSGetHandleSize(entry) == 4 + texts.back().size());
        }
        return texts;
    }

    void Change(Draw& draw, ListStep& step)
    {
        Texts& texts = step.texts;
        const size_t count = texts.size(), n = draw() % 12;
        const auto kind = draw() % 5;
        if (kind == 0) {
            step.err = ReallocLStrArrayHandle(&handle, static_cast<int32>(n));
            texts.resize(n);
        } else if (kind == 1) {
            texts.resize(n);
            std::generate(texts.begin(), texts.end(), [&] { return DrawText(draw, 255); });
            const ShortStrings list(texts);
            const auto first = static_cast<int32>(n - std::min(n, draw() % 3));
            texts.resize(static_cast<size_t>(first));
            step.err = !list.IsMade()                   ? kzErrMemoryFull
                       : first == static_cast<int32>(n) ? CPStrPtrToLStrArray(*list.handle, &handle)
                                                        : CPStrPtrToLStrArray(*list.handle, first, &handle);
        } else if (kind == 2) {
            ToShortStrings(step, n % 3 == 0 ? count : n);
        } else if (count != 0) {
            std::string& text = texts[n % count] = DrawText(draw, 300);
            step.err = LStrFromPtr(&(*handle)->str[n % count], static_cast<int32>(text.size()), text.data());
        }
        step.block = texts.empty() ? 0 : 8 + 8 * texts.size();
    }
    void Look(Draw& /*draw*/, const Texts& /*texts*/) const {}

    _LStrArray** handle = nullptr;

private:
    // The first n strings, cut to what a short one can have, in a handle that was there or not.
    void ToShortStrings(ListStep& step, size_t n) const
    {
        const size_t count = step.texts.size();
        const std::string before(n % 2 == 0 ? "before" : "");
        ShortStrings list;
        list.handle = before.empty() ? nullptr : reinterpret_cast<CPStr**>(HandleOf(before));
        if (!before.empty() && !list.IsMade()) {
            step.err = kzErrMemoryFull;
            return;
        }
        step.code = n > count && count != 0 ? kzErrArgument : kzErrNone;
        step.err = n == count ? LStrArrayToCPStrHandle(handle, &list.handle)
                              : LStrArrayToCPStrHandle(handle, static_cast<int32>(n), &list.handle);
        Texts texts = step.texts;
        texts.resize(n);
        for (std::string& text : texts) {
            text.resize(std::min<size_t>(text.size(), 255));
        }
        const std::string after = n == 0 || count == 0 ? "" : ShortStrings::ImageOf(texts);
        EXPECT_EQ(list.Bytes(), step.err == kzErrNone ? after : before);
    }
};

using Kinds = testing::Types<Objects, ShortStrings, LongStrings, OwnedStrings, StringHandles>;
INSTANTIATE_TYPED_TEST_SUITE_P(Lists, ListModel, Kinds);

// ---- Blocks that a host or a file made ----

using ListTest = MemoryTest;
template <typename Kind>
class ListBlocks : public MemoryTest {};
using Packed = testing::Types<Objects, ShortStrings, LongStrings>;
TYPED_TEST_SUITE(ListBlocks, Packed);

// A list that is cut anywhere, with any count, is the whole entries in its block. The first change makes that true.
TYPED_TEST(ListBlocks, CountsThatTheBlockDoesNotHold)
{
    Draw draw(3);
    const unsigned longest = TypeParam::kLongest;
    const Texts all = {DrawText(draw, longest), DrawText(draw, longest), DrawText(draw, longest)};
    const std::string whole = TypeParam::ImageOf(all);
    for (const int32 claim : {3, 2, 0, 4, INT_MAX, -1, INT_MIN}) {
        for (size_t cut = 0; cut <= whole.size(); ++cut) {
            SCOPED_TRACE(testing::Message() << claim << ", " << cut);
            std::string bytes = whole.substr(0, cut);
            std::memcpy(bytes.data(), &claim, std::min<size_t>(cut, 4));
            Texts held = all;
            while (!held.empty() &&
                   (static_cast<int32>(held.size()) > claim || TypeParam::ImageOf(held).size() > cut)) {
                held.pop_back();
            }
            TypeParam grown(bytes), shrunk(bytes);
            const bool isTrue = claim == static_cast<int32>(held.size());
            EXPECT_STREQ(grown.Fault(), cut < 4     ? "the block of the list holds no count"
                                        : claim < 0 ? "the count of the list is negative"
                                        : isTrue    ? nullptr
                                                    : TypeParam::kFault);
            if (grown.Fault() == nullptr || !TypeParam::kReliesOnCount) {
                grown.Look(draw, held);
            }
            ListStep less{held, 0};
            RemovePinned(less, INT_MAX);
            EXPECT_EQ(shrunk.Remove(INT_MAX, held), less.code);
            EXPECT_EQ(grown.Insert({INT_MAX, -1, "d"}), kzErrNone);
            held.push_back("d");
            const std::string more = TypeParam::ImageOf(held), fewer = TypeParam::ImageOf(less.texts);
            EXPECT_EQ(grown.Bytes().substr(0, more.size()), more);
            EXPECT_STREQ(grown.Fault(), nullptr);
            EXPECT_EQ(grown.Block(), TypeParam::BlockAfter(cut, held.size() - 1, held, true));
            if (less.code == kzErrNone) {
                EXPECT_EQ(shrunk.Bytes().substr(0, fewer.size()), fewer);
                EXPECT_STREQ(shrunk.Fault(), nullptr);
            }
        }
    }
}

TEST_F(ListTest, Walkers)
{
    StringHandles array(Texts{"a", "b"});
    for (const auto fault : {&kz::CPStrFault, &kz::CLStrFault, &kz::PointerListFault}) {
        EXPECT_STREQ(fault(nullptr), "the list has no handle in use");
    }
    EXPECT_STREQ(kz::LStrArrayFault(nullptr), nullptr);
    for (const int i : {0, 1}) {
        LStr** const string = std::exchange((*array.handle)->str[i], reinterpret_cast<LStr**>(&array));
        EXPECT_STREQ(array.Fault(), "an entry of the array is neither null nor a handle in use");
        (*array.handle)->str[i] = nullptr;
        EXPECT_STREQ(array.Fault(), nullptr);
        (*array.handle)->str[i] = string;
    }
    (*array.handle)->cnt = 1;
    EXPECT_STREQ(array.Fault(), "the block of the array does not end with its last entry");
    (*array.handle)->cnt = 3;
    EXPECT_STREQ(array.Fault(), Objects::kFault);
    (*array.handle)->cnt = 2;
    std::string padded = LongStrings::ImageOf({"abc", ""});
    padded[11] = 'x';
    EXPECT_STREQ(LongStrings(padded).Fault(), "a string of the list is not filled up with zeros");
}

// What a call is made with: the handle of a row's bytes, null where it has none, and another for its other argument.
struct AnyHandle : ListHandle<unsigned char> {
    AnyHandle(const Json& row, const char* member) { handle = row.Has(member) ? HandleOf(row[member].Hex()) : nullptr; }
    template <typename List>
    operator List**() const
    {
        return reinterpret_cast<List**>(handle);
    }
    // Its block, or null.
    template <typename Data>
    Data* Block() const
    {
        return handle == nullptr ? nullptr : reinterpret_cast<Data*>(*handle);
    }
};
// The address of a variable with a handle; null for a null handle.
template <typename List>
struct Out {
    operator List***() { return handle == nullptr ? nullptr : &handle; }
    List** handle;
};
struct Arguments {
    const AnyHandle list, other;
    int32 i, j;
};

// Blocks that lie, and refusals: what is answered and reported, and how the list's block begins afterwards.
TEST_F(ListTest, StoredCalls)
{
    using In = const Arguments&;
    static char object;
    const std::map<std::string, int32 (*)(In x)> calls = {
        {"CLStrIndex", [](In x) { return CLStrIndex(x.list.Block<CLStr>(), 0) == nullptr ? 0 : 1; }},
        {"CLStrInsert", [](In x) { return CLStrInsert(x.list, x.other.Block<LStr>(), INT_MAX, 1); }},
        {"CLStrInsertSort", [](In x) { return CLStrInsertSort(x.list, x.other.Block<LStr>(), 1, {}, {}, 0); }},
        {"CLStrRemove", [](In x) { return CLStrRemove(x.list, 0); }},
        {"CLStrSize", [](In x) { return CLStrSize(x.list.Block<CLStr>()); }},
        {"CPStrClear", [](In x) { return CPStrClear(x.list); }},
        {"CPStrCmp", [](In x) { return CPStrCmp(x.list.Block<CPStr>(), x.other.Block<CPStr>()); }},
        {"CPStrIndex", [](In x) { return CPStrIndex(x.list, 0) == nullptr ? 0 : 1; }},
        {"CPStrInsert", [](In x) { return CPStrInsert(x.list, x.other.Block<unsigned char>(), 0); }},
        {"CPStrInsertEfficient",
         [](In x) { return CPStrInsertEfficient(x.list, x.other.Block<unsigned char>(), 0, 0); }},
        {"CPStrPtrToLStrArray",
         [](In x) { return CPStrPtrToLStrArray(x.list.Block<CPStr>(), x.i, Out<_LStrArray>{x.other}); }},
        {"CPStrRemove", [](In x) { return CPStrRemove(x.list, 0); }},
        {"CPStrReplace", [](In x) { return CPStrReplace(x.list, x.other.Block<unsigned char>(), 0); }},
        {"CPStrSearch", [](In x) { return CPStrSearch(x.list, x.other.Block<unsigned char>(), &PStrCaseCmp); }},
        {"CPStrSetToNEmptyStrings", [](In x) { return CPStrSetToNEmptyStrings(Out<CPStr>{x.list}, x.i); }},
        {"HCompactObjList", [](In x) { return HCompactObjList(x.list); }},
        {"HObjListBringToFront", [](In x) { return HObjListBringToFront(x.list, &object); }},
        {"HObjListDelete", [](In x) { return HObjListDelete(x.list, 0) == nullptr ? 0 : 1; }},
        {"HObjListInsert", [](In x) { return HObjListInsert(x.list, &object, 0); }},
        {"HObjListSearch", [](In x) { return HObjListSearch(x.list, &object); }},
        {"HObjListSearchDelete", [](In x) { return HObjListSearchDelete(x.list, &object); }},
        {"HObjListSwap", [](In x) { return HObjListSwap(x.list, x.i, x.j); }},
        {"LSort", [](In x) { return LSort(x.list, x.other); }},
        {"LStrArrayToCPStrHandle", [](In x) { return LStrArrayToCPStrHandle(x.list, x.i, Out<CPStr>{x.other}); }},
        {"ReallocLStrArrayHandle", [](In x) { return ReallocLStrArrayHandle(Out<_LStrArray>{x.list}, x.i); }},
        {"StdToCLStr", [](In x) { return StdToCLStr(x.list); }},
        {"StrPoundToCPStr", [](In x) { return StrPoundToCPStr(x.other, x.list.Block<CPStr>()); }},
    };
    for (const Json& row : ReadJsonLines("vectors/lists.jsonl")) {
        SCOPED_TRACE(row.Line());
        const auto number = [&row](const char* name) {
            return row.Has(name) ? static_cast<int32>(row[name].Int()) : 0;
        };
        const Arguments x{{row, "bytes"}, {row, "other"}, number("i"), number("j")};
        const std::string before = x.list.Bytes(), after = row.Has("after") ? row["after"].Hex() : before;
        EXPECT_EQ(calls.at(row["call"].Str())(x), number("error"));
        EXPECT_EQ(x.list.Bytes().substr(0, after.size()), after);
        EXPECT_EQ(x.other.Bytes(), row.Has("other") ? row["other"].Hex() : "");
        EXPECT_TRUE(!row.Has("level") || reports.Take(number("level"), row["report"].Str()));
        EXPECT_TRUE(reports.TakeAll().empty());
    }
}

// ---- What is one kind's own ----

TEST_F(ListTest, Comparisons)
{
    for (const Json& row : ReadJsonLines("vectors/list_orders.jsonl")) {
        SCOPED_TRACE(row.Line());
        const ShortStrings a(TextsOf(row, "a")), b(TextsOf(row, "b"));
        const CPStrList left(*a.handle), right(*b.handle);
        const auto order = row["order"].Int(), caseless = row["caseless"].Int();
        EXPECT_EQ(CPStrCmp(*a.handle, *b.handle), order);
        EXPECT_EQ(CPStrEqual(*a.handle, *b.handle) != 0, order == 0);
        EXPECT_EQ(left.Compare(right), order);
        EXPECT_EQ(left.CompareNC(right), caseless);
        EXPECT_EQ(left.CompareFS(right), caseless);
        EXPECT_EQ(left.Equal(right), order == 0);
        EXPECT_EQ(left.EqualNC(right), caseless == 0);
        EXPECT_EQ(left.EqualFS(right), caseless == 0);
        for (int32 n = -1; n <= 4; ++n) {
            EXPECT_EQ(left.EqualNEltsFS(right, n), n <= row["common"].Int()) << n;
        }
    }
}

// Arrays that a host has changed: counts, and strings that were disposed.
TEST_F(ListTest, ArraysThatLie)
{
    StringHandles array(Texts{"a", "b"});
    (*array.handle)->cnt = INT_MAX;
    ShortStrings list;
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, 3, &list.handle), kzErrArgument);
    (*(*array.handle)->str[1])->cnt = 100;
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, &list.handle), 0);
    EXPECT_EQ(list.Bytes(), ShortStrings::ImageOf({"a", "b"}));
    (*(*array.handle)->str[1])->cnt = 1;
    EXPECT_EQ(ReallocLStrArrayHandle(&array.handle, 3), 0);
    EXPECT_EQ(array.Strings(), (Texts{"a", "b", ""}));
    LStr** const stale = (*array.handle)->str[1];
    (*array.handle)->cnt = 1;
    EXPECT_EQ(ReallocLStrArrayHandle(&array.handle, 4), 0);
    EXPECT_EQ(array.Strings(), (Texts{"a", "", "", ""})) << "what stood behind the array doesn't join it";
    DSDisposeHandle(stale);
    StringHandles bare(Texts{});
    bare.handle = reinterpret_cast<_LStrArray**>(DSNewHandle(0));
    EXPECT_EQ(ReallocLStrArrayHandle(&bare.handle, 2), 0);
    EXPECT_EQ(bare.Strings(), Texts(2));
}

// A disposed string is told of once. Where no list was there, its handle is the one that the string had.
TEST_F(ListTest, ArraysOfADisposedString)
{
    for (const bool isListThere : {true, false}) {
        StringHandles array(Texts{"first", "gone"});
        ShortStrings list;
        list.handle = isListThere ? reinterpret_cast<CPStr**>(DSNewHandle(5)) : nullptr;
        DSDisposeHandle((*array.handle)->str[1]);
        EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, &list.handle), 0);
        EXPECT_EQ(list.Bytes(), ShortStrings::ImageOf({"first", ""}));
        EXPECT_EQ(reports.TakeAll().size(), 1u);
        EXPECT_EQ(static_cast<void*>(list.handle) != (*array.handle)->str[1], isListThere);
        (*array.handle)->str[1] = nullptr;
    }
}

// A loaded resource goes over to the list; one that isn't a resource's stays its owner's.
TEST(OwnedLists, TakeResources)
{
    ReportCatcher reports;
    const RunningLibrary library;
    for (const Json& row : ReadJsonLines("vectors/list_resources.jsonl")) {
        SCOPED_TRACE(row.Line());
        const Texts strings = TextsOf(row, "texts");
        const std::string image = ResImage({{"AAAA", 1, row["bytes"].Hex()}}).Bytes();
        RsrcFile file = 0;
        UHandle resource = nullptr;
        ASSERT_EQ(ROpenUPtr(Bytes(image), image.size(), &file, nullptr, nullptr), 0);
        ASSERT_EQ(RGet(file, kz::FourCharCode("AAAA"), 1, &resource), 0);
        {
            CPStrList list(resource), copy;
            EXPECT_FALSE(RIsLoaded(file, kz::FourCharCode("AAAA"), 1));
            EXPECT_EQ(list.Count(), static_cast<int32>(strings.size()));
            EXPECT_EQ(DSCheckHandle(resource) != kzErrNone, row["bytes"].Hex().size() < 4) << "no count, no handle";
            EXPECT_EQ(copy.Copy(list), 0);
            EXPECT_EQ(BlockOf(copy), ShortStrings::ImageOf(strings)) << "without what lies";
            EXPECT_EQ(list.Insert(nullptr, 0), kzErrArgument);
            EXPECT_EQ(list.Insert(PStrValue("x"), 0), 0);
            EXPECT_TRUE(strings.empty() || list.Delete(1) == 0);
            EXPECT_EQ(BlockOf(list), ShortStrings::ImageOf(strings.size() < 2 ? Texts{"x"} : Texts{"x", ""}));
        }
        EXPECT_EQ(DSCheckHandle(resource), kzErrBadZone) << "disposed with the list";
        EXPECT_EQ(RCloseFile(file), 0);
    }
    const ShortStrings plain(Texts{"a"});
    EXPECT_EQ(CPStrList(reinterpret_cast<UHandle>(plain.handle)).Count(), 0);
    EXPECT_EQ(plain.Bytes(), ShortStrings::ImageOf({"a"}));
}

// Streams that end too early, or tell a count that they don't have: the strings before the fault stay.
TEST_F(ListTest, HostileStreams)
{
    constexpr char kShort[] = "MemInputBuf finished with 74 error";
    const Texts all = {"a", "bb", "ccc"};
    const std::string whole = std::string("\0\0\0\3", 4) + ShortStrings::ImageOf(all).substr(4);
    CPStrList list;
    EXPECT_EQ(UnFlatten(list, std::string(4, '\0') + "more"), 0) << "nothing to cut, and no handle";
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        EXPECT_EQ(list.Insert(PStrValue("old"), 0), 0);
        EXPECT_EQ(UnFlatten(list, whole.substr(0, cut)), cut == whole.size() ? kzErrNone : kzErrCorrupt);
        EXPECT_EQ(reports.Take(kDbgWarning, kShort), cut != whole.size());
        Texts texts = all;
        while (!texts.empty() && ShortStrings::ImageOf(texts).size() > cut) {
            texts.pop_back();
        }
        EXPECT_EQ(BlockOf(list), ShortStrings::ImageOf(texts));
    }
    char small[8];
    {
        StaticOutputBuf buffer(small, sizeof small);
        BinDataWriter writer(&buffer, BigEndianizer());
        EXPECT_EQ(list.Flatten(&writer), kzErrCorrupt);
    }
    EXPECT_EQ(reports.TakeAll().size(), 2u) << "of the buffer and the writer";
    EXPECT_EQ(UnFlatten(list, std::string("\xFF\xFF\xFF\xFF\1a", 6)), 0);
    EXPECT_EQ(list.Count(), 0);
    // A million strings take few resizes, and no more room than they have bytes.
    uInt64 before[2], after[2];
    DSReadCounters(before);
    EXPECT_EQ(UnFlatten(list, "\x7F\xFF\xFF\xFF" + std::string(1000000, '\0')), kzErrCorrupt);
    EXPECT_TRUE(reports.Take(kDbgWarning, kShort));
    DSReadCounters(after);
    EXPECT_LE(static_cast<uInt32>(after[1] - before[1]), 25u);
    EXPECT_EQ(BlockOf(list), ShortStrings::ImageOf(Texts(1000000)));
    EXPECT_EQ(UnFlatten(list, whole, kzErrIO), kzErrIO);
    EXPECT_EQ(list.Count(), 0);
}

}  // namespace
}  // namespace kztest
