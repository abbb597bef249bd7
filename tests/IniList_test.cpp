// The growable arrays of the INI engine.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "FaultLoop.h"
#include "IniList.h"

namespace {

using kztest::FaultLoop;

constexpr int kNoMemory = -12;

std::vector<int> Content(qkini_List list)
{
    std::vector<int> content;
    for (int i = 1; i <= qkini_ListNumItems(list); ++i) {
        content.push_back(*static_cast<int*>(qkini_ListGetPtrToItem(list, i)));
    }
    return content;
}

int CompareInts(const void* a, const void* b)
{
    const int x = *static_cast<const int*>(a);
    const int y = *static_cast<const int*>(b);
    return x < y ? -1 : x > y ? 1 : 0;
}

// By tens only, so that equal elements can be told apart.
int CompareTens(const void* a, const void* b)
{
    const int x = *static_cast<const int*>(a) / 10;
    const int y = *static_cast<const int*>(b) / 10;
    return x - y;
}

class IniListTest : public testing::Test {
protected:
    IniListTest() : list(qkini_ListCreate(sizeof(int))) {}
    ~IniListTest() override { qkini_ListDispose(list); }

    void Fill(const std::vector<int>& values)
    {
        ASSERT_EQ(1, qkini_ListInsertItems(list, values.data(), 0, static_cast<int>(values.size())));
    }

    qkini_List list;
};

TEST_F(IniListTest, PositionsOfInsertions)
{
    const struct {
        int position;
        int result;
        std::vector<int> content;
    } rows[] = {
        {0, 1, {1, 2, 3, 9}}, {-1, 1, {9, 1, 2, 3}}, {1, 1, {9, 1, 2, 3}}, {3, 1, {1, 2, 9, 3}},
        {4, 1, {1, 2, 3, 9}}, {5, 0, {1, 2, 3}},     {-2, 0, {1, 2, 3}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.position);
        qkini_ListRemoveItems(list, 1, qkini_ListNumItems(list));
        Fill({1, 2, 3});
        const int nine = 9;
        EXPECT_EQ(row.result, qkini_ListInsertItem(list, &nine, row.position));
        EXPECT_EQ(row.content, Content(list));
    }
}

TEST_F(IniListTest, PositionsOfElements)
{
    Fill({1, 2, 3});
    int value = 0;
    for (const auto& [position, expected] : {std::pair{0, 3}, {-1, 1}, {1, 1}, {3, 3}}) {
        EXPECT_EQ(1, qkini_ListGetItem(list, &value, position));
        EXPECT_EQ(expected, value);
        EXPECT_EQ(expected, *static_cast<int*>(qkini_ListGetPtrToItem(list, position)));
    }
    for (const int position : {4, -2, 1000}) {
        EXPECT_EQ(0, qkini_ListGetItem(list, &value, position));
        EXPECT_EQ(nullptr, qkini_ListGetPtrToItem(list, position));
        EXPECT_EQ(0, qkini_ListRemoveItem(list, position));
    }
    int two[2] = {};
    EXPECT_EQ(1, qkini_ListGetItems(list, two, 2, 2));
    EXPECT_EQ(2, two[0]);
    EXPECT_EQ(0, qkini_ListGetItems(list, two, 3, 2)) << "behind the end";
    EXPECT_EQ(0, qkini_ListRemoveItems(list, 2, 3));
    EXPECT_EQ(1, qkini_ListRemoveItems(list, -1, 2));
    EXPECT_EQ((std::vector<int>{3}), Content(list));
}

TEST_F(IniListTest, SearchesGiveTheFirstOfEqualElementsAndInsertionsTheLast)
{
    Fill({11, 20, 21, 22, 40});
    const int key = 29;
    EXPECT_EQ(2, qkini_ListBinSearch(list, &key, &CompareTens));
    EXPECT_EQ(2, qkini_ListFindItem(list, &key, -1, &CompareTens));
    EXPECT_EQ(3, qkini_ListFindItem(list, &key, 3, &CompareTens));
    EXPECT_EQ(0, qkini_ListFindItem(list, &key, 5, &CompareTens));
    EXPECT_EQ(0, qkini_ListFindItem(list, &key, 6, &CompareTens));
    EXPECT_EQ(5, qkini_ListInsertInOrder(list, &key, &CompareTens));
    EXPECT_EQ((std::vector<int>{11, 20, 21, 22, 29, 40}), Content(list));
    const int missing = 35;
    EXPECT_EQ(0, qkini_ListBinSearch(list, &missing, &CompareTens));
    const int twenty = 20;
    EXPECT_EQ(2, qkini_ListFindItem(list, &twenty, -1, nullptr)) << "as bytes";

    const int sorted[] = {10, 20, 20, 30};
    const struct {
        int key;
        int result;
    } rows[] = {{5, ~0}, {10, 0}, {15, ~1}, {20, 1}, {25, ~3}, {30, 3}, {35, ~4}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.result, qkini_BinSearch(sorted, 4, sizeof(int), &row.key, &CompareInts)) << row.key;
    }
    EXPECT_EQ(~0, qkini_BinSearch(sorted, 0, sizeof(int), &key, &CompareInts));
}

TEST_F(IniListTest, Sorts)
{
    Fill({3, 1, 2});
    qkini_ListQuickSort(list, &CompareInts);
    EXPECT_EQ((std::vector<int>{1, 2, 3}), Content(list));
    const int large = 0x0100;  // as bytes in front of 1 where the lowest byte comes first
    Fill({large});
    qkini_ListQuickSort(list, nullptr);
    std::vector<int> expected = {1, 2, 3, large};
    std::sort(expected.begin(), expected.end(), [](int a, int b) { return std::memcmp(&a, &b, sizeof a) < 0; });
    EXPECT_EQ(expected, Content(list));
}

TEST(IniList, NoListIsAnEmptyOne)
{
    const int value = 1;
    qkini_ListDispose(nullptr);
    EXPECT_EQ(nullptr, qkini_ListCreate(0));
    EXPECT_EQ(0, qkini_ListNumItems(nullptr));
    EXPECT_EQ(nullptr, qkini_ListGetPtrToItem(nullptr, 0));
    EXPECT_EQ(0, qkini_ListInsertItem(nullptr, &value, 0));
    EXPECT_EQ(0, qkini_ListInsertInOrder(nullptr, &value, nullptr));
    EXPECT_EQ(0, qkini_ListBinSearch(nullptr, &value, nullptr));
    EXPECT_EQ(0, qkini_ListFindItem(nullptr, &value, -1, nullptr));
    qkini_ListQuickSort(nullptr, nullptr);
}

TEST(IniList, SizesThatWouldOverflow)
{
    const qkini_List list = qkini_ListCreate(1 << 30);
    const char byte = 0;
    EXPECT_EQ(kNoMemory, qkini_ListInsertItems(list, &byte, 0, INT_MAX));
    EXPECT_EQ(0, qkini_ListNumItems(list));
    qkini_ListDispose(list);
    EXPECT_EQ(nullptr, qkini_PI_NewHandle(SIZE_MAX));
}

TEST(IniList, OutOfMemory)
{
    FaultLoop([](auto failed) {
        const qkini_List list = qkini_ListCreate(sizeof(int));
        if (list == nullptr) {
            EXPECT_TRUE(failed());
            return;
        }
        int count = 0;
        for (int i = 0; i < 20; ++i) {
            const int result = qkini_ListInsertItem(list, &i, 0);
            EXPECT_EQ(result == 1 ? 1 : kNoMemory, result);
            count += result == 1 ? 1 : 0;
            EXPECT_EQ(count, qkini_ListNumItems(list));
        }
        EXPECT_EQ(failed(), count < 20);
        qkini_ListDispose(list);
    });
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
    EXPECT_EQ(0u, qkini_PI_GetHandleSize(nullptr));
    EXPECT_EQ(0, qkini_PI_SetHandleSize(nullptr, 1));
    qkini_PI_DisposeHandle(nullptr);
}

}  // namespace
