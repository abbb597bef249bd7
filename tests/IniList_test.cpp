// The growable arrays of the INI engine.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>

#include "IniList.h"
#include "ListTesting.h"

namespace kztest {
namespace {

constexpr int kNoMemory = -12;
constexpr size_t kSize = 5;  // of an element

int CompareElements(const void* a, const void* b)
{
    return std::memcmp(a, b, kSize);
}

// Elements of a few different bytes. How much room a list has can't be asked, so its block is not looked at.
class Elements {
public:
    explicit Elements(Draw& /*draw*/) : mList(qkini_ListCreate(kSize)) {}
    ~Elements() { qkini_ListDispose(mList); }
    Elements(const Elements&) = delete;
    Elements& operator=(const Elements&) = delete;

    static std::string ImageOf(const Texts& texts)
    {
        return std::accumulate(texts.begin(), texts.end(), std::string());
    }
    bool IsMade() const { return mList != nullptr; }
    const char* Fault() const { return nullptr; }
    size_t Block() const { return 0; }
    std::string Bytes() const
    {
        const auto size = kSize * static_cast<size_t>(qkini_ListNumItems(mList));
        return size == 0 ? "" : std::string(static_cast<char*>(qkini_ListGetPtrToItem(mList, 1)), size);
    }

    void Change(Draw& draw, ListStep& step)
    {
        Texts& texts = step.texts;
        const int count = static_cast<int>(texts.size()), position = DrawIndex(draw, texts.size());
        const Texts some(draw() % 4, DrawElement(draw));
        // More than can be counted is asked for only where that is seen before it is allocated.
        const int n = draw() % 16 != 0 ? static_cast<int>(some.size()) : count == 0 || draw() % 2 == 0 ? -1 : INT_MAX;
        const auto compare = draw() % 2 == 0 ? nullptr : &CompareElements;
        const auto kind = draw() % 12;
        const int place = Place(position, kind < 4 ? count - 1 : count);
        int result = 1;
        if (kind == 0) {
            qkini_ListQuickSort(mList, compare);
            std::sort(texts.begin(), texts.end());
        } else if (kind < 4) {
            result = n == 1 ? qkini_ListRemoveItem(mList, position) : qkini_ListRemoveItems(mList, position, n);
            step.code = place < 0 || n < 0 || n > count - place ? kzErrArgument : kzErrNone;
            if (step.code == kzErrNone) {
                texts.erase(texts.begin() + place, texts.begin() + place + n);
            }
        } else if (kind < 6 && std::is_sorted(texts.begin(), texts.end())) {
            // Behind those that are equal.
            const std::string text = DrawElement(draw);
            const auto above = std::upper_bound(texts.begin(), texts.end(), text) - texts.begin();
            result = qkini_ListInsertInOrder(mList, text.data(), compare);
            EXPECT_TRUE(result == above + 1 || result == kNoMemory) << result;
            result = std::min(result, 1);
            texts.insert(texts.begin() + above, text);
        } else {
            result = n == 1 ? qkini_ListInsertItem(mList, some[0].data(), position)
                            : qkini_ListInsertItems(mList, ImageOf(some).data(), position, n);
            step.code = place < 0 || n < 0 ? kzErrArgument : n == INT_MAX ? kzErrMemoryFull : kzErrNone;
            texts.insert(texts.begin() + std::max(place, 0), some.begin(), some.end());
        }
        step.err = result == 1 ? kzErrNone : result == kNoMemory ? kzErrMemoryFull : kzErrArgument;
    }

    void Look(Draw& draw, const Texts& texts) const
    {
        const int count = static_cast<int>(texts.size()), position = DrawIndex(draw, texts.size());
        const int place = Place(position, count - 1), n = static_cast<int>(draw() % 4) - 1;
        const bool isThere = place >= 0, areThere = isThere && n >= 0 && n <= count - place;
        std::string out(2 * kSize, '#');
        EXPECT_EQ(qkini_ListNumItems(mList), count);
        EXPECT_EQ(qkini_ListGetPtrToItem(mList, position) != nullptr, isThere);
        EXPECT_EQ(qkini_ListGetItems(mList, out.data(), position, n), areThere);
        if (areThere) {
            const std::string expected = ImageOf(Texts(texts.begin() + place, texts.begin() + place + n));
            EXPECT_EQ(out, expected + std::string(out.size() - expected.size(), '#'));
        }
        EXPECT_EQ(qkini_ListGetItem(mList, out.data(), position), isThere);
        EXPECT_TRUE(!isThere || out.compare(0, kSize, texts[static_cast<size_t>(place)]) == 0);
        const std::string key = DrawElement(draw);
        const auto compare = draw() % 2 == 0 ? nullptr : &CompareElements;
        const auto found = isThere ? std::find(texts.begin() + place, texts.end(), key) : texts.end();
        EXPECT_EQ(qkini_ListFindItem(mList, key.data(), position, compare),
                  found == texts.end() ? 0 : found - texts.begin() + 1);
        if (std::is_sorted(texts.begin(), texts.end())) {
            const auto first = std::lower_bound(texts.begin(), texts.end(), key);
            const bool isFound = first != texts.end() && *first == key;
            const int index = static_cast<int>(first - texts.begin());
            const std::string bytes = ImageOf(texts);
            EXPECT_EQ(qkini_ListBinSearch(mList, key.data(), compare), isFound ? index + 1 : 0);
            EXPECT_EQ(qkini_BinSearch(bytes.data(), count, kSize, key.data(), compare), isFound ? index : ~index);
        }
    }

private:
    static std::string DrawElement(Draw& draw) { return "el" + std::to_string(100 + draw() % 12); }

    // The index of a position, or -1: 0 is `end`, and -1 the front.
    static int Place(int position, int end)
    {
        const int place = position == 0 ? end : position == -1 ? 0 : position < 0 ? -1 : position - 1;
        return place <= end ? place : -1;
    }

    const qkini_List mList;
};

INSTANTIATE_TYPED_TEST_SUITE_P(IniList, ListModel, Elements);

TEST(IniList, NoListsAndTooLargeOnes)
{
    const int value = 1;
    struct {
        const char* magic;
    } other = {"no list"};
    void* record = &other;
    for (const qkini_List none : {static_cast<qkini_List>(nullptr), reinterpret_cast<qkini_List>(&record)}) {
        int out = 0;
        EXPECT_EQ(0, qkini_ListNumItems(none));
        EXPECT_EQ(nullptr, qkini_ListGetPtrToItem(none, 0));
        EXPECT_EQ(0, qkini_ListGetItem(none, &out, 0));
        EXPECT_EQ(0, qkini_ListRemoveItem(none, 0));
        EXPECT_EQ(0, qkini_ListInsertItem(none, &value, 0));
        EXPECT_EQ(0, qkini_ListInsertInOrder(none, &value, nullptr));
        EXPECT_EQ(0, qkini_ListBinSearch(none, &value, nullptr));
        EXPECT_EQ(0, qkini_ListFindItem(none, &value, -1, nullptr));
        qkini_ListQuickSort(none, nullptr);
        qkini_ListDispose(none);
    }
    EXPECT_EQ(nullptr, qkini_ListCreate(0));
    const qkini_List wide = qkini_ListCreate(INT_MAX);
    EXPECT_EQ(kNoMemory, qkini_ListInsertItems(wide, &value, 0, INT_MAX));
    qkini_ListDispose(wide);
}

TEST(IniList, HandlesTellTheirSize)
{
    void** const handle = qkini_PI_NewHandle(10);
    EXPECT_EQ(10u, qkini_PI_GetHandleSize(handle));
    std::memset(*handle, 7, 10);
    EXPECT_EQ(1, qkini_PI_SetHandleSize(handle, 100000));
    EXPECT_EQ(100000u, qkini_PI_GetHandleSize(handle));
    EXPECT_EQ(7, static_cast<char*>(*handle)[9]);
    EXPECT_EQ(kNoMemory, qkini_PI_SetHandleSize(handle, SIZE_MAX));
    qkini_PI_DisposeHandle(handle);
    EXPECT_EQ(nullptr, qkini_PI_NewHandle(SIZE_MAX));
    EXPECT_EQ(0u, qkini_PI_GetHandleSize(nullptr));
    EXPECT_EQ(0, qkini_PI_SetHandleSize(nullptr, 1));
    qkini_PI_DisposeHandle(nullptr);
}

}  // namespace
}  // namespace kztest
