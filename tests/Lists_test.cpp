// Lists in one block: of objects, of short and of long strings, and of string handles.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "HObjList.h"
#include "ListTesting.h"
#include "PackedList.h"
#include "PointerList.h"
#include "ResImage.h"
#include "RunningMemory.h"
#include "StringCLStr.h"
#include "StringLStr.h"
#include "StringLStrArray.h"
#include "StringPStr.h"

namespace {

using kztest::Between;
using kztest::CPStrHandle;
using kztest::Draw;
using kztest::DrawIndex;
using kztest::DrawText;
using kztest::Json;
using kztest::ListHandle;
using kztest::ListRows;
using kztest::ListStep;
using kztest::LStrValue;
using kztest::PackedBytes;
using kztest::Pinned;
using kztest::PStrValue;
using kztest::RemovePinned;
using kztest::Texts;
using kztest::TextsOf;

std::string DrawRoom(Draw& draw, char fill)
{
    return std::string(draw() % 2 * (draw() % 100), fill);
}

// Objects are told apart by a letter; no letter is a null one.
class Objects : public ListHandle<ObjList> {
public:
    using Library = kztest::RunningMemory;
    static constexpr bool kIsExact = false;
    static constexpr char kFault[] = "the count of the list tells more entries than the block holds";

    explicit Objects(Draw& draw) : ListHandle(std::string(4, '\0') + DrawRoom(draw, '\0')) {}
    explicit Objects(const std::string& bytes) : ListHandle(bytes) {}

    static std::string ImageOf(const Texts& texts)
    {
        std::string bytes(texts.empty() ? 4 : 8, '\0');
        kz::StoreNative(bytes.data(), static_cast<int32>(texts.size()));
        for (const std::string& text : texts) {
            void* const object = Object(text);
            bytes.append(reinterpret_cast<const char*>(&object), sizeof object);
        }
        return bytes;
    }
    static std::string DrawEntry(Draw& draw) { return draw() % 3 == 0 ? "" : std::string(1, "abcd"[draw() % 4]); }
    const char* Fault() const { return kz::PointerListFault(handle); }

    KzErr Insert(const std::string& text, int32 i) { return HObjListInsert(handle, Object(text), i); }
    KzErr Remove(int32 i)
    {
        const std::string before = Bytes();
        HObjListDelete(handle, i);
        return Bytes() == before ? kzErrArgument : kzErrNone;  // the object may be null in both cases
    }

    // A block that lacks room grows to the next step of 16 bytes.
    void Change(Draw& draw, ListStep& step)
    {
        Texts& texts = step.texts;
        const size_t count = texts.size();
        const std::string text = DrawEntry(draw);
        const auto last = std::find(texts.rbegin(), texts.rend(), text);
        const bool isThere = last != texts.rend();
        const int32 i = DrawIndex(draw, count);
        const auto kind = draw() % 10;
        if (kind == 0) {
            step.err = HCompactObjList(handle);
            std::erase(texts, "");
            step.block = std::min(step.block, (8 + texts.size() * 8 + 11) / 16 * 16);
        } else if (kind < 3) {
            EXPECT_EQ(HObjListDelete(handle, i), count == 0 ? nullptr : Object(texts[Place(i, count)]));
            Erase(step, Place(i, count));
        } else if (kind == 3) {
            EXPECT_EQ(HObjListSearchDelete(handle, Object(text)) != 0, isThere);
            Erase(step, isThere ? static_cast<size_t>(texts.rend() - last) - 1 : count);
        } else if (kind == 4 && isThere) {
            EXPECT_EQ(HObjListBringToFront(handle, Object(text)) != 0, last + 1 != texts.rend());
            std::rotate(texts.begin(), last.base() - 1, last.base());
        } else if (kind == 5 && count != 0) {
            const int32 j = DrawIndex(draw, count);
            std::swap(texts[Place(i, count)], texts[Place(j, count)]);
            step.err = HObjListSwap(handle, static_cast<int32>(Place(i, count)), static_cast<int32>(Place(j, count)));
        } else {
            step.err = Insert(text, i);
            texts.insert(texts.begin() + Between(i, count), text);
            step.block = step.block < 16 + count * 8 ? (step.block + 16) / 16 * 16 : step.block;
        }
    }

    void LookAt(const Texts& texts) const
    {
        for (const char* text : {"", "a", "b", "c", "d"}) {
            const auto last = std::find(texts.rbegin(), texts.rend(), text);
            EXPECT_EQ(HObjListSearch(handle, Object(text)), static_cast<int32>(texts.rend() - last) - 1);
        }
    }
    void Look(Draw& /*draw*/, const Texts& texts) const
    {
        LookAt(texts);
        EXPECT_EQ(Bytes().find_first_not_of('\0', ImageOf(texts).size()), std::string::npos) << "room is zero";
    }

private:
    static void* Object(const std::string& text)
    {
        static char objects[4];
        return text.empty() ? nullptr : &objects[text[0] - 'a'];
    }
    static size_t Place(int32 i, size_t count) { return static_cast<size_t>(Pinned(i, count)); }

    // A block of which more than 12 bytes are left behind the entries that stay loses what is over a step, or a step.
    static void Erase(ListStep& step, size_t i)
    {
        const size_t count = step.texts.size();
        if (i < count) {
            step.texts.erase(step.texts.begin() + static_cast<long>(i));
            step.block = step.block > 8 * count + 12 ? (step.block - 1) / 16 * 16 : step.block;
        }
    }
};

class ShortStrings : public ListHandle<CPStr> {
public:
    using Library = kztest::RunningMemory;
    static constexpr bool kIsExact = true;
    static constexpr char kFault[] = "the count of the list tells more records than the block holds";

    explicit ShortStrings(Draw& draw) : ListHandle(PackedBytes({}) + DrawRoom(draw, '#')) {}
    explicit ShortStrings(const std::string& bytes) : ListHandle(bytes) {}

    static std::string ImageOf(const Texts& texts) { return PackedBytes(texts); }
    static std::string DrawEntry(Draw& draw) { return DrawText(draw, 255); }
    const char* Fault() const { return kz::CPStrFault(handle); }

    KzErr Insert(const std::string& text, int32 i) { return CPStrInsert(handle, PStrValue(text), i); }
    KzErr Remove(int32 i) { return CPStrRemove(handle, i); }

    // The block has the list's size, unless an insertion uses its room or a string gives way to one as long.
    void Change(Draw& draw, ListStep& step)
    {
        Texts& texts = step.texts;
        const size_t count = texts.size(), block = step.block, own = draw() % (4 * count + 1);
        const int32 i = DrawIndex(draw, count);
        const std::string text = own < count ? texts[own] : DrawEntry(draw);
        const PStrValue value(text);
        const unsigned char* const string = own < count ? CPStrIndex(handle, static_cast<int32>(own)) : value;
        const auto kind = draw() % 24;
        size_t least = 0;
        if (kind == 0) {
            step.err = CPStrClear(handle);
            texts.clear();
        } else if (kind == 1) {
            texts.assign(draw() % 9, "");
            step.err = CPStrSetToNEmptyStrings(&handle, static_cast<int32>(texts.size()));
        } else if (kind == 2) {
            step.err = LSort(handle, nullptr);
            std::sort(texts.begin(), texts.end());
            least = block;
        } else if (kind < 7) {
            step.err = Remove(i);
            RemovePinned(step, i);
        } else if (kind < 11) {
            step.err = CPStrReplace(handle, string, i);
            const std::string old = count == 0 ? "" : std::exchange(texts[static_cast<size_t>(Pinned(i, count))], text);
            least = count == 0 ? 5 + text.size() : old.size() == text.size() ? block : 0;
        } else {
            const KzBool isExact = kind < 18;
            step.err = kind < 14 ? CPStrInsert(handle, string, i) : CPStrInsertEfficient(handle, string, i, isExact);
            texts.insert(texts.begin() + Between(i, count), text);
            least = isExact ? 0 : block;
        }
        step.block = std::max(least, PackedBytes(texts).size());
    }

    void LookAt(const Texts& texts) const
    {
        for (const int32 i : {INT_MIN, -1, 0, 1, static_cast<int32>(texts.size()) - 1, INT_MAX}) {
            const unsigned char* const string = CPStrIndex(handle, i);
            ASSERT_EQ(string == nullptr, texts.empty());
            if (string != nullptr) {
                EXPECT_EQ(kztest::Text(string), texts[static_cast<size_t>(Pinned(i, texts.size()))]) << i;
            }
        }
        EXPECT_EQ(CPStrSearch(handle, PStrValue("none"), &PStrCmp), -1);
    }
    void Look(Draw& draw, const Texts& texts) const
    {
        LookAt(texts);
        EXPECT_EQ(CPStrSize(*handle), static_cast<int32>(PackedBytes(texts).size()));
        const std::string text = texts.empty() ? "" : texts[draw() % texts.size()];
        const auto first = std::find(texts.begin(), texts.end(), text);
        EXPECT_EQ(CPStrSearch(handle, PStrValue(text), &PStrCmp), first == texts.end() ? -1 : first - texts.begin());
    }
};

std::string CountBytes(size_t count)
{
    std::string bytes(4, '\0');
    kz::StoreNative(bytes.data(), static_cast<int32>(count));
    return bytes;
}

std::string PaddingOf(const std::string& text)
{
    return std::string((4 - text.size() % 4) % 4, '\0');
}

class LongStrings : public ListHandle<CLStr> {
public:
    using Library = kztest::RunningMemory;
    static constexpr bool kIsExact = true;
    static constexpr const char* kFault = ShortStrings::kFault;

    explicit LongStrings(Draw& draw) : ListHandle(ImageOf({}) + DrawRoom(draw, '#')) {}
    explicit LongStrings(const std::string& bytes) : ListHandle(bytes) {}

    static std::string ImageOf(const Texts& texts)
    {
        std::string bytes = CountBytes(texts.size());
        for (const std::string& text : texts) {
            bytes += CountBytes(text.size()) + text + PaddingOf(text);
        }
        return bytes;
    }
    static std::string DrawEntry(Draw& draw) { return DrawText(draw, 400); }
    const char* Fault() const { return kz::CLStrFault(handle); }

    KzErr Insert(const std::string& text, int32 i) { return CLStrInsert(handle, LStrValue(text).Get(), i, 1); }
    KzErr Remove(int32 i) { return CLStrRemove(handle, i); }

    void Change(Draw& draw, ListStep& step)
    {
        Texts& texts = step.texts;
        const size_t count = texts.size(), own = draw() % (4 * count + 1);
        const int32 i = DrawIndex(draw, count);
        const std::string text = own < count ? texts[own] : DrawEntry(draw);
        LStrValue value(text);
        const LStr* const string = own < count ? CLStrIndex(*handle, static_cast<int32>(own)) : value.Get();
        const KzBool isExact = draw() % 2, areTwo = draw() % 2;
        const auto kind = draw() % 6;
        if (kind < 2) {
            step.err = Remove(i);
            RemovePinned(step, i);
            step.block = ImageOf(texts).size();
            return;
        }
        auto place = texts.begin() + Between(i, count);
        if (kind == 2) {
            // Before the first string that is not below, wherever the list is out of order.
            place = std::find_if(texts.begin(), texts.end(), [&](const std::string& each) { return each >= text; });
            const bool isKeptOut = !areTwo && place != texts.end() && *place == text;
            int32 index = -1;
            KzBool inserted = -1;
            step.err = CLStrInsertSort(handle, string, areTwo, &index, &inserted, isExact);
            EXPECT_EQ(index, place - texts.begin());
            EXPECT_EQ(inserted, !isKeptOut && step.err == kzErrNone);
            if (isKeptOut) {
                return;
            }
        } else {
            step.err = CLStrInsert(handle, string, i, isExact);
        }
        texts.insert(place, text);
        step.block = std::max(isExact ? 0 : step.block, ImageOf(texts).size());
    }

    void LookAt(const Texts& /*texts*/) const {}  // all calls that only look rely on the count
    void Look(Draw& draw, const Texts& texts) const
    {
        const int32 i = DrawIndex(draw, texts.size());
        const LStr* const string = CLStrIndex(*handle, i);
        ASSERT_EQ(string == nullptr, texts.empty());
        EXPECT_EQ(kztest::TextOf(string), texts.empty() ? "" : texts[static_cast<size_t>(Pinned(i, texts.size()))]);
        EXPECT_EQ(CLStrSize(*handle), static_cast<int32>(ImageOf(texts).size()));
    }
};

// Strings in handles of their own, which the array disposes. An empty one is null.
class StringHandles {
public:
    using Library = kztest::RunningMemory;

    explicit StringHandles(Draw& /*draw*/) {}
    explicit StringHandles(const Texts& texts)
    {
        EXPECT_EQ(CPStrPtrToLStrArray(*CPStrHandle(texts).handle, &handle), 0);
    }
    ~StringHandles() { ReallocLStrArrayHandle(&handle, 0); }
    StringHandles(const StringHandles&) = delete;
    StringHandles& operator=(const StringHandles&) = delete;

    static std::string ImageOf(const Texts& texts) { return LongStrings::ImageOf(texts); }
    bool IsMade() const { return true; }
    const char* Fault() const { return kz::LStrArrayFault(handle); }
    size_t Block() const { return handle == nullptr ? 0 : DSGetHandleSize(handle); }
    Texts Strings() const
    {
        Texts texts;
        for (int32 i = 0; handle != nullptr && i < (*handle)->cnt; ++i) {
            LStr** const entry = (*handle)->str[i];
            EXPECT_TRUE(entry == nullptr || DSGetHandleSize(entry) == 4 + kztest::TextOf(*entry).size());
            texts.push_back(entry == nullptr ? std::string() : kztest::TextOf(*entry));
        }
        return texts;
    }
    std::string Bytes() const { return ImageOf(Strings()); }

    void Change(Draw& draw, ListStep& step)
    {
        Texts& texts = step.texts;
        const size_t count = texts.size(), n = draw() % 12;
        const auto kind = draw() % 5;
        if (kind == 0) {
            step.err = ReallocLStrArrayHandle(&handle, static_cast<int32>(n));
            texts.resize(n);
        } else if (kind == 1) {
            Texts all(n);
            std::generate(all.begin(), all.end(), [&] { return DrawText(draw, 255); });
            const CPStrHandle list(all);
            texts.assign(all.begin(), all.begin() + static_cast<long>(draw() % (n + 1)));
            step.err = !list.IsMade() ? kzErrMemoryFull
                       : texts == all ? CPStrPtrToLStrArray(*list.handle, &handle)
                                      : CPStrPtrToLStrArray(*list.handle, static_cast<int32>(texts.size()), &handle);
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
        CPStrHandle list;
        if (n % 2 == 0 && (step.err = CPStrSetToNEmptyStrings(&list.handle, 3)) != kzErrNone) {
            return;
        }
        CPStr** const before = list.handle;
        step.code = n > count && count != 0 ? kzErrArgument : kzErrNone;
        step.err = n == count ? LStrArrayToCPStrHandle(handle, &list.handle)
                              : LStrArrayToCPStrHandle(handle, static_cast<int32>(n), &list.handle);
        if (step.err != kzErrNone) {
            EXPECT_EQ(list.handle, before);
            EXPECT_TRUE(before == nullptr || list.Bytes() == PackedBytes(Texts(3)));
        } else if (n == 0 || count == 0) {
            EXPECT_EQ(list.handle, nullptr);
        } else {
            Texts texts(step.texts.begin(), step.texts.begin() + static_cast<long>(n));
            for (std::string& text : texts) {
                text.resize(std::min<size_t>(text.size(), 255));
            }
            EXPECT_EQ(list.Bytes(), PackedBytes(texts));
        }
    }
};

}  // namespace

namespace kztest {
using Kinds = testing::Types<Objects, ShortStrings, LongStrings, StringHandles>;
INSTANTIATE_TYPED_TEST_SUITE_P(Lists, ListModel, Kinds);
}  // namespace kztest

namespace {

// ---- Blocks that a host or a file made ----

class ListTest : public testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

template <typename Kind>
class ListBlocks : public ListTest {};
using Packed = testing::Types<Objects, ShortStrings, LongStrings>;
TYPED_TEST_SUITE(ListBlocks, Packed);

// A list that is cut anywhere, with any count, is the whole entries in its block. The first change makes that true.
TYPED_TEST(ListBlocks, CountsThatTheBlockDoesNotHold)
{
    Draw draw(3);
    Texts all = {TypeParam::DrawEntry(draw), TypeParam::DrawEntry(draw), TypeParam::DrawEntry(draw)};
    const std::string whole = TypeParam::ImageOf(all);
    const Texts none;
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
            const int32 count = static_cast<int32>(held.size());
            EXPECT_STREQ(grown.Fault(), cut < 4          ? "the block of the list holds no count"
                                        : claim < 0      ? "the count of the list is negative"
                                        : claim != count ? TypeParam::kFault
                                                         : nullptr);
            grown.LookAt(held);
            ListStep less{held, 0};
            RemovePinned(less, INT_MAX);
            EXPECT_EQ(shrunk.Remove(INT_MAX), less.code);
            EXPECT_EQ(grown.Insert("d", INT_MAX), kzErrNone);
            held.push_back("d");
            const std::string more = TypeParam::ImageOf(held), fewer = TypeParam::ImageOf(less.texts);
            EXPECT_EQ(grown.Bytes().substr(0, more.size()), more);
            EXPECT_STREQ(grown.Fault(), nullptr);
            EXPECT_TRUE(less.code != kzErrNone || shrunk.Bytes().compare(0, fewer.size(), fewer) == 0);
            EXPECT_TRUE(less.code != kzErrNone || shrunk.Fault() == nullptr);
            EXPECT_TRUE(!TypeParam::kIsExact || grown.Block() == more.size());
        }
    }
}

TEST_F(ListTest, RecordsThatLie)
{
    const std::string negative("\xFC\xFF\xFF\xFFxxxx", 8);
    ListHandle<CLStr> alone(CountBytes(1) + negative);
    EXPECT_EQ(CLStrRemove(alone.handle, 0), kzErrArgument);
    LStrValue text("xxxx");
    text.Get()->cnt = -4;
    LongStrings list(LongStrings::ImageOf({"a"}) + negative);
    EXPECT_EQ(CLStrInsert(list.handle, text.Get(), 9, 1), kzErrNone);
    EXPECT_EQ(list.Bytes(), LongStrings::ImageOf({"a", ""})) << "a negative count is no text";
    ListHandle<CPStr> none(std::string("\xFF\xFF\xFF\xFF\1a", 6));
    EXPECT_EQ(CPStrReplace(none.handle, PStrValue("bc"), 0), kzErrNone);
    EXPECT_EQ(none.Bytes(), std::string("\0\0\0\0\2bc", 7)) << "in the place of the first, which is not counted";
    ListHandle<CPStr> fewer(std::string("\3\0\0\0\1a", 6));
    EXPECT_EQ(CPStrReplace(fewer.handle, PStrValue("b"), 0), kzErrNone);
    EXPECT_EQ(fewer.Bytes(), PackedBytes({"b"}));
    ListHandle<CPStr> unsorted(std::string("\3\0\0\0\1b\1a\3", 9));
    EXPECT_EQ(LSort(unsorted.handle, nullptr), kzErrNone);
    EXPECT_EQ(unsorted.Bytes(), std::string("\3\0\0\0\1a\1b\3", 9));
}

TEST_F(ListTest, Walkers)
{
    StringHandles array(Texts{"a", "b"});
    EXPECT_STREQ(kz::CPStrFault(nullptr), "the list has no handle in use");
    EXPECT_STREQ(kz::CLStrFault(nullptr), "the list has no handle in use");
    EXPECT_STREQ(kz::PointerListFault(nullptr), "the list has no handle in use");
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

TEST_F(ListTest, StandardOrder)
{
    for (const Json& row : ListRows("StdToCLStr")) {
        SCOPED_TRACE(row.Line());
        const LongStrings list(row["bytes"].Hex());
        EXPECT_EQ(StdToCLStr(list.handle), row["error"].Int());
        EXPECT_EQ(reports.Take(kDbgFatal, ""), row["error"].Int() != kzErrNone);
        const std::string bytes = LongStrings::ImageOf(TextsOf(row, "texts"));
        EXPECT_TRUE(list.Block() < 4 || list.Bytes().substr(0, bytes.size()) == bytes);
    }
}

TEST_F(ListTest, ResourceLists)
{
    for (const Json& row : ListRows("StrPoundToCPStr")) {
        SCOPED_TRACE(row.Line());
        const std::string data = row["bytes"].Hex();
        const std::string strings = data.substr(std::min<size_t>(data.size(), 2)) + "#";
        const ListHandle<unsigned char> resource(data);
        const ListHandle<CPStr> list(std::string(4 + strings.size(), '#'));
        EXPECT_EQ(StrPoundToCPStr(resource.handle, *list.handle), 0);
        EXPECT_EQ(list.Bytes(), CountBytes(row["texts"].size()) + strings);
    }
}

// ---- Refusals ----

// A list of each kind, for the calls.
struct Lists {
    UHandle seven;  // bytes
    CPStr** shorts;
    CLStr** longs;
    HObjList objects;
    _LStrArray** array;
};

int32 IsThere(const void* result)
{
    return result != nullptr;
}

KzErr InsertSorted(CLStr** list, const LStr* string)
{
    return CLStrInsertSort(list, string, 1, nullptr, nullptr, 0);
}

TEST_F(ListTest, Refusals)
{
    static const PStrValue a("a");
    static LStrValue b("b"), huge("x");
    huge.Get()->cnt = INT_MAX;  // refused before a byte of it is read
    constexpr char kShort[] = "Bad inputs to CPStrInsertEfficient";
    constexpr char kLong[] = "Invalid dest buffer or insert buffer passed to CLStrInsert";
    constexpr char kSorted[] = "Invalid dest buffer or insert buffer passed to CLStrInsertSort";
    constexpr char kSwap[] = "HObjListSwap: pos out of range";
    constexpr char kFront[] = "HObjListBringToFront: object not found!!!";
    const struct {
        int32 (*call)(Lists& x);
        int32 answer;
        int level = 0;  // of the report, if there is one
        const char* report = "";
    } rows[] = {
        {[](Lists&) { return IsThere(CPStrIndex(nullptr, 0)); }, 0, kDbgFatal},
        {[](Lists&) { return CPStrRemove(nullptr, 0); }, kzErrArgument, kDbgFatal},
        {[](Lists&) { return CPStrReplace(nullptr, a, 0); }, kzErrArgument, kDbgFatal},
        {[](Lists& x) { return CPStrReplace(x.shorts, nullptr, 0); }, kzErrArgument},
        {[](Lists&) { return CPStrSearch(nullptr, a, &PStrCmp); }, -1, kDbgFatal},
        {[](Lists&) { return CPStrInsert(nullptr, a, 0); }, kzErrGeneric, kDbgWarning, kShort},
        {[](Lists& x) { return CPStrInsertEfficient(x.shorts, nullptr, 0, 0); }, kzErrGeneric, kDbgWarning, kShort},
        {[](Lists&) { return CPStrClear(nullptr); }, kzErrArgument},
        {[](Lists&) { return LSort(nullptr, nullptr); }, kzErrArgument},
        {[](Lists& x) { return LSort(x.shorts, x.seven); }, kzErrArgument},
        {[](Lists&) { return CPStrSetToNEmptyStrings(nullptr, 1); }, kzErrArgument},
        {[](Lists& x) { return CPStrSetToNEmptyStrings(&x.shorts, -1); }, kzErrArgument},
        {[](Lists& x) { return StrPoundToCPStr(nullptr, *x.shorts); }, kzErrArgument},
        {[](Lists& x) { return StrPoundToCPStr(x.seven, nullptr); }, kzErrArgument},
        {[](Lists&) { return CLStrSize(nullptr); }, 4},
        {[](Lists&) { return IsThere(CLStrIndex(nullptr, 0)); }, 0, kDbgFatal, "invalid buffer passed to CLStrIndex"},
        {[](Lists&) { return CLStrInsert(nullptr, b.Get(), 0, 0); }, kzErrArgument, kDbgFatal, kLong},
        {[](Lists& x) { return CLStrInsert(x.longs, nullptr, 0, 0); }, kzErrArgument, kDbgFatal, kLong},
        {[](Lists& x) { return CLStrInsert(x.longs, huge.Get(), 0, 0); }, kzErrMemoryFull},
        {[](Lists&) { return InsertSorted(nullptr, b.Get()); }, kzErrArgument, kDbgFatal, kSorted},
        {[](Lists& x) { return InsertSorted(x.longs, nullptr); }, kzErrArgument, kDbgFatal, kSorted},
        {[](Lists&) { return CLStrRemove(nullptr, 0); }, kzErrArgument},
        {[](Lists&) { return StdToCLStr(nullptr); }, kzErrArgument},
        {[](Lists&) { return HObjListInsert(nullptr, &b, 0); }, kzErrArgument, kDbgFatal},
        {[](Lists&) { return IsThere(HObjListDelete(nullptr, 0)); }, 0, kDbgFatal},
        {[](Lists&) { return HObjListSearch(nullptr, &b); }, -1, kDbgFatal},
        {[](Lists&) { return HObjListSearchDelete(nullptr, &b); }, 0, kDbgFatal},
        {[](Lists&) { return HObjListBringToFront(nullptr, &b); }, 0, kDbgFatal},
        {[](Lists& x) { return HObjListBringToFront(x.objects, &b); }, 0, kDbgWarning, kFront},
        {[](Lists&) { return HObjListSwap(nullptr, 0, 0); }, kzErrArgument, kDbgFatal},
        {[](Lists& x) { return HObjListSwap(x.objects, 0, 1); }, kzErrArgument, kDbgWarning, kSwap},
        {[](Lists& x) { return HObjListSwap(x.objects, 1, 0); }, kzErrArgument, kDbgWarning, kSwap},
        {[](Lists& x) { return HObjListSwap(x.objects, -1, 0); }, kzErrArgument, kDbgWarning, kSwap},
        {[](Lists& x) { return HObjListSwap(x.objects, 0, -1); }, kzErrArgument, kDbgWarning, kSwap},
        {[](Lists&) { return HCompactObjList(nullptr); }, kzErrArgument, kDbgFatal},
        {[](Lists&) { return ReallocLStrArrayHandle(nullptr, 1); }, kzErrArgument},
        {[](Lists& x) { return ReallocLStrArrayHandle(&x.array, -1); }, kzErrArgument},
        {[](Lists& x) { return LStrArrayToCPStrHandle(x.array, -1, &x.shorts); }, kzErrArgument},
        {[](Lists& x) { return LStrArrayToCPStrHandle(x.array, 1, nullptr); }, kzErrArgument},
        {[](Lists& x) { return CPStrPtrToLStrArray(*x.shorts, 2, &x.array); }, kzErrArgument},
        {[](Lists& x) { return CPStrPtrToLStrArray(nullptr, 1, &x.array); }, kzErrArgument},
        {[](Lists& x) { return CPStrPtrToLStrArray(*x.shorts, nullptr); }, kzErrGeneric, kDbgWarning,
         "Null not allowed"},
    };
    const Texts one = {"a"};
    const ShortStrings shorts(PackedBytes(one));
    const LongStrings longs(LongStrings::ImageOf(one));
    const Objects objects(Objects::ImageOf(one));
    const StringHandles array(one);
    const ListHandle<unsigned char> seven("1234567");
    Lists lists{seven.handle, shorts.handle, longs.handle, objects.handle, array.handle};
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(row.call(lists), row.answer);
        EXPECT_TRUE(row.level == 0 || reports.Take(row.level, row.report));
        EXPECT_TRUE(reports.TakeAll().empty());
    }
    EXPECT_EQ(shorts.Bytes() + longs.Bytes() + objects.Bytes(),
              PackedBytes(one) + LongStrings::ImageOf(one) + Objects::ImageOf(one));
    EXPECT_EQ(array.Strings(), one);
}

// ---- What is one kind's own ----

TEST_F(ListTest, Comparisons)
{
    for (const Json& row : ListRows("compare")) {
        SCOPED_TRACE(row.Line());
        const CPStrHandle a(TextsOf(row, "a")), b(TextsOf(row, "b"));
        EXPECT_EQ(CPStrCmp(*a.handle, *b.handle), row["order"].Int());
        EXPECT_EQ(CPStrEqual(*a.handle, *b.handle) != 0, row["order"].Int() == 0);
    }
    const CPStrHandle list(Texts{"One", "two", "one"});
    EXPECT_EQ(CPStrCmp(nullptr, *list.handle), -3);
    EXPECT_EQ(CPStrCmp(*list.handle, nullptr), 3);
    EXPECT_EQ(CPStrSearch(list.handle, PStrValue("one"), &PStrCaseCmp), 0);
}

std::string Folded(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// Strings are sorted without regard to case, and each takes its entry along. What is behind them stays.
TEST_F(ListTest, Sorting)
{
    for (unsigned seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        Draw draw(seed);
        Texts texts(draw() % 60);
        for (std::string& text : texts) {
            std::generate_n(std::back_inserter(text), draw() % 5, [&] { return "aAbBcC"[draw() % 6]; });
        }
        std::vector<uInt64> numbers(texts.size() + 1);
        std::iota(numbers.begin(), numbers.end(), 0);
        const size_t size = numbers.size() * sizeof(uInt64);
        const ListHandle<CPStr> list(PackedBytes(texts) + "behind");
        const ListHandle<uInt64> parallel(std::string(reinterpret_cast<char*>(numbers.data()), size));
        ASSERT_EQ(LSort(list.handle, reinterpret_cast<UHandle>(parallel.handle)), kzErrNone);
        std::memcpy(numbers.data(), *parallel.handle, size);
        Texts sorted;
        for (size_t i = 0; i < texts.size(); ++i) {
            sorted.push_back(texts.at(numbers[i]));
            EXPECT_TRUE(i == 0 || Folded(sorted[i - 1]) <= Folded(sorted[i]));
        }
        EXPECT_EQ(list.Bytes(), PackedBytes(sorted) + "behind");
        EXPECT_EQ(numbers.back(), texts.size()) << "an entry without a string";
        std::sort(numbers.begin(), numbers.end());
        EXPECT_EQ(std::unique(numbers.begin(), numbers.end()), numbers.end());
    }
}

// Arrays that a host has changed: counts, and strings that were disposed.
TEST_F(ListTest, ArraysThatLie)
{
    StringHandles array(Texts{"a", "b"});
    (*array.handle)->cnt = INT_MAX;
    CPStrHandle list;
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, 3, &list.handle), kzErrArgument);
    (*(*array.handle)->str[1])->cnt = 100;
    EXPECT_EQ(LStrArrayToCPStrHandle(array.handle, &list.handle), 0);
    EXPECT_EQ(list.Bytes(), PackedBytes({"a", "b"}));
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
    EXPECT_EQ(bare.Strings(), (Texts{"", ""}));
}

// A disposed string is told of once. Where no list was there, its handle is the one that the string had.
TEST_F(ListTest, ArraysOfADisposedString)
{
    for (const bool isListThere : {true, false}) {
        StringHandles array(Texts{"first", "gone"});
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

}  // namespace
