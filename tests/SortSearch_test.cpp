#include "SortSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using Keys = std::vector<int>;

template <typename Key>
Keys Generated(int count, Key&& key)
{
    Keys keys(static_cast<size_t>(count));
    std::generate(keys.begin(), keys.end(), [&, i = 0]() mutable { return key(i++); });
    return keys;
}

// Orders of `count` elements that quicksorts find easy, hard and hardest: the last one leaves two elements on one side
// of every median.
std::vector<Keys> Shapes(int count)
{
    std::mt19937 engine(static_cast<unsigned>(count));
    const auto random = [&](int values) {
        return Generated(count, [&](int) { return static_cast<int>(engine() % static_cast<unsigned>(values)); });
    };
    const int half = count / 2;
    return {
        Generated(count, [](int i) { return i; }),
        Generated(count, [count](int i) { return count - i; }),
        Generated(count, [](int) { return 5; }),
        Generated(count, [count](int i) { return std::min(i, count - i); }),
        random(2),
        random(30000),
        Generated(count, [half](int i) { return i >= half    ? 2 * (i - half) + 1
                                                : i % 2 == 0 ? i
                                                             : i + half - 1; }),
    };
}

// `size` bytes, all of them told by the key, which stands in the first two: equal keys are equal elements.
std::string Element(int key, int size)
{
    std::string bytes;
    for (int i = 0; i < size; ++i) {
        bytes += static_cast<char>(i == 1 || size == 1 ? key : i == 0 ? key >> 8 : key * 31 + i);
    }
    return bytes;
}

int32 CompareElements(const void* a, const void* b, void* size)
{
    return std::memcmp(a, b, std::min<size_t>(*static_cast<size_t*>(size), 2));
}

// Elements with gaps between them that must stay as they are, from an odd address on.
std::string Spread(const std::vector<std::string>& elements, int gap)
{
    std::string bytes = "#";
    for (const std::string& element : elements) {
        bytes += element + std::string(static_cast<size_t>(gap), '-');
    }
    return bytes + "#";
}

TEST(SortSearch, SortsEveryShapeAsTheStandardDoes)
{
    for (const int size : {1, 2, 3, 4, 7, 8, 16, 23, 40}) {
        const int gap = size % 3;
        for (const int count : {0, 1, 2, 3, 4, 5, 6, 7, 8, 33, 1000}) {
            for (const Keys& keys : Shapes(count)) {
                std::vector<std::string> elements;
                for (const int key : keys) {
                    elements.push_back(Element(key, size));
                }
                std::string actual = Spread(elements, gap);
                std::sort(elements.begin(), elements.end());
                size_t context = static_cast<size_t>(size);
                QSort2Ex(actual.data() + 1, count, size, size + gap, &CompareElements, &context);
                ASSERT_EQ(actual, Spread(elements, gap)) << count << " elements of " << size;
            }
        }
    }
}

// Which pairs were compared, in order, as the two digits of each.
std::string gTrace;

int32 TracingCompare(const void* a, const void* b)
{
    gTrace += std::to_string(*static_cast<const int*>(a)) + std::to_string(*static_cast<const int*>(b)) + " ";
    return CompareInt32s(a, b);
}

TEST(SortSearch, ComparesInTheDocumentedOrder)
{
    const struct {
        Keys keys;
        const char* trace;
    } cases[] = {
        {{1}, ""},
        {{2, 1}, "21 "},
        {{3, 2, 1}, "32 21 32 "},
        {{5, 4, 3, 2, 1}, "53 31 53 43 23 12 13 23 45 "},
        {{2, 2, 2, 2}, "22 22 22 22 22 22 "},
    };
    for (const auto& each : cases) {
        Keys keys = each.keys;
        gTrace.clear();
        QSort(keys.data(), static_cast<int32>(keys.size()), sizeof(int), &TracingCompare);
        EXPECT_EQ(gTrace, each.trace) << keys.size() << " elements";
    }
}

// A compare procedure that contradicts itself leaves a wrong order, but the same elements and no others.
TEST(SortSearch, StaysInsideTheArrayWhateverTheAnswers)
{
    constexpr int32 (*kProcs[])(const void*, const void*) = {
        [](const void*, const void*) -> int32 { return 1; },
        [](const void*, const void*) -> int32 { return -1; },
        [](const void*, const void*) -> int32 {
            static std::mt19937 engine(1);
            return static_cast<int32>(engine() % 3) - 1;
        },
    };
    for (const KzCompareProc compare : kProcs) {
        for (int count = 2; count < 200; ++count) {
            const Keys ascending = Shapes(count).front();
            Keys keys = ascending;
            QSort(keys.data(), count, sizeof(int), compare);
            std::sort(keys.begin(), keys.end());
            ASSERT_EQ(keys, ascending);
        }
    }
}

TEST(SortSearch, FindsTheElementOrItsPlace)
{
    const int elements[] = {10, 20, 30, 40};
    const struct {
        int32 count;
        int key;
        int32 result;
    } cases[] = {
        {3, 20, 1},  {3, 10, 0}, {3, 30, 2},  {3, 25, ~2}, {3, 5, ~0},  {3, 15, ~1},
        {3, 35, ~3}, {1, 5, ~0}, {1, 11, ~1}, {0, 10, -1}, {4, 45, ~4}, {2, 15, ~1},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(BinSearch(elements, each.count, sizeof(int), &each.key, &CompareInt32s), each.result)
            << each.key << " in " << each.count;
    }

    // The key comes first, whatever it is; the context is handed on.
    int calls = 0;
    const std::string key = "30";
    const KzCompareExProc compare = [](const void* wanted, const void* element, void* context) -> int32 {
        ++*static_cast<int*>(context);
        return std::stoi(*static_cast<const std::string*>(wanted)) - *static_cast<const int*>(element);
    };
    EXPECT_EQ(BinSearchEx(elements, 4, sizeof(int), &key, compare, &calls), 2);
    EXPECT_EQ(calls, 2);
}

TEST(SortSearch, CompareProcedures)
{
    const int16 shorts[] = {std::numeric_limits<int16>::min(), std::numeric_limits<int16>::max()};
    EXPECT_EQ(CompareInt16s(&shorts[0], &shorts[1]), -65535);
    const int32 words[] = {std::numeric_limits<int32>::min(), std::numeric_limits<int32>::max()};
    EXPECT_EQ(CompareInt32s(&words[1], &words[0]), -1);  // wraps
    const uintptr_t pointers[] = {0, std::numeric_limits<uintptr_t>::max()};
    EXPECT_EQ(CompareUIntPtrTs(&pointers[0], &pointers[1]), -1);
    EXPECT_EQ(CompareUIntPtrTs(&pointers[1], &pointers[0]), 1);
    EXPECT_EQ(CompareUIntPtrTs(&pointers[1], &pointers[1]), 0);
}

}  // namespace
