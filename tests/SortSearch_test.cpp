#include "SortSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

using Keys = std::vector<int>;

struct Shape {
    const char* name;
    std::function<Keys(int)> make;
};

Keys Generated(int count, const std::function<int(int)>& key)
{
    Keys keys(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        keys[static_cast<size_t>(i)] = key(i);
    }
    return keys;
}

std::vector<Shape> Shapes()
{
    const auto random = [](int values) {
        return [values](int count) {
            std::mt19937 engine(static_cast<unsigned>(count * 31 + values));
            return Generated(count, [&](int) { return static_cast<int>(engine() % static_cast<unsigned>(values)); });
        };
    };
    return {
        {"ascending", [](int count) { return Generated(count, [](int i) { return i; }); }},
        {"descending", [](int count) { return Generated(count, [count](int i) { return count - i; }); }},
        {"equal", [](int count) { return Generated(count, [](int) { return 5; }); }},
        {"organ pipe", [](int count) { return Generated(count, [count](int i) { return std::min(i, count - i); }); }},
        {"saw", [](int count) { return Generated(count, [](int i) { return i % 7; }); }},
        {"last is least", [](int count) { return Generated(count, [count](int i) { return (i + 1) % count; }); }},
        {"two values", random(2)},
        {"few values", random(16)},
        {"random", random(30000)},
    };
}

// `size` bytes, all of them told by the key, which stands in the first two: equal keys are equal elements.
std::string Element(int key, int size)
{
    if (size == 1) {
        return std::string(1, static_cast<char>(key));
    }
    std::string bytes;
    for (int i = 0; i < size; ++i) {
        bytes += static_cast<char>(i == 0 ? key >> 8 : i == 1 ? key : key * 31 + i);
    }
    return bytes;
}

int32 CompareElements(const void* a, const void* b, void* size)
{
    return std::memcmp(a, b, std::min<size_t>(*static_cast<size_t*>(size), 2));
}

// Elements side by side with gaps between them that must stay as they are, from an odd address on.
std::string Spread(const std::vector<std::string>& elements, size_t gap)
{
    std::string bytes = "#";
    for (const std::string& element : elements) {
        bytes += element + std::string(gap, '-');
    }
    return bytes + "#";
}

class SortOfSize : public testing::TestWithParam<int> {};

TEST_P(SortOfSize, SortsEveryShapeAsTheStandardDoes)
{
    const int size = GetParam();
    const int gap = size % 3;
    for (const Shape& shape : Shapes()) {
        for (const int count : {0, 1, 2, 3, 4, 5, 6, 7, 8, 16, 33, 100, 1000}) {
            std::vector<std::string> elements;
            for (const int key : shape.make(count)) {
                elements.push_back(Element(key, size));
            }
            std::string actual = Spread(elements, static_cast<size_t>(gap));
            std::sort(elements.begin(), elements.end());
            size_t context = static_cast<size_t>(size);
            QSort2Ex(actual.data() + 1, count, size, size + gap, &CompareElements, &context);
            ASSERT_EQ(actual, Spread(elements, static_cast<size_t>(gap))) << shape.name << ", " << count << " elements";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, SortOfSize, testing::Values(1, 2, 3, 4, 5, 7, 8, 12, 16, 17, 20, 24, 31, 32, 40));

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
        {{}, ""},
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
        EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
        EXPECT_EQ(gTrace, each.trace) << keys.size() << " elements";
    }
}

// An order on which each median is among the least that are left: the most uneven parts there are.
TEST(SortSearch, SortsWhatDefeatsTheMedian)
{
    struct Adversary {
        Keys values;
        int solid = 0;
        int candidate = 0;
    };
    // Decides each value only when it is compared, so that what stands as pivot turns out small.
    constexpr int kCount = 3000;
    constexpr int kGas = kCount;
    Adversary adversary{Keys(kCount, kGas)};
    std::vector<int> order(kCount);
    std::iota(order.begin(), order.end(), 0);
    QSortEx(
        order.data(), kCount, sizeof(int),
        [](const void* a, const void* b, void* context) -> int32 {
            Adversary& self = *static_cast<Adversary*>(context);
            const int x = *static_cast<const int*>(a);
            const int y = *static_cast<const int*>(b);
            auto value = [&](int i) -> int& { return self.values[static_cast<size_t>(i)]; };
            if (value(x) == kGas && value(y) == kGas) {
                value(x == self.candidate ? x : y) = self.solid++;
            }
            if (value(x) == kGas) {
                self.candidate = x;
            } else if (value(y) == kGas) {
                self.candidate = y;
            }
            return value(x) - value(y);
        },
        &adversary);

    Keys keys = adversary.values;
    Keys expected = keys;
    std::sort(expected.begin(), expected.end());
    QSort(keys.data(), kCount, sizeof(int), &CompareInt32s);
    EXPECT_EQ(keys, expected);
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
        for (int count = 0; count < 200; ++count) {
            Keys keys = Generated(count, [](int i) { return i; });
            keys.shrink_to_fit();
            QSort(keys.data(), count, sizeof(int), compare);
            std::sort(keys.begin(), keys.end());
            ASSERT_EQ(keys, Generated(count, [](int i) { return i; }));
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
        {3, 20, 1}, {3, 10, 0}, {3, 30, 2},  {3, 25, ~2}, {3, 5, ~0}, {3, 15, ~1}, {3, 35, ~3},
        {1, 10, 0}, {1, 5, ~0}, {1, 11, ~1}, {0, 10, -1}, {4, 40, 3}, {4, 45, ~4}, {2, 15, ~1},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(BinSearch(elements, each.count, sizeof(int), &each.key, &CompareInt32s), each.result)
            << each.key << " in " << each.count;
    }

    // The key comes first, whatever it is; the context is handed on.
    int calls = 0;
    const std::string key = "30";
    EXPECT_EQ(BinSearchEx(
                  elements, 4, sizeof(int), &key,
                  [](const void* wanted, const void* element, void* context) -> int32 {
                      ++*static_cast<int*>(context);
                      return std::stoi(*static_cast<const std::string*>(wanted)) - *static_cast<const int*>(element);
                  },
                  &calls),
              2);
    EXPECT_EQ(calls, 2);
}

TEST(SortSearch, CompareProcedures)
{
    const int16 shorts[] = {std::numeric_limits<int16>::min(), std::numeric_limits<int16>::max(), 3};
    EXPECT_EQ(CompareInt16s(&shorts[0], &shorts[1]), -65535);
    EXPECT_EQ(CompareInt16s(&shorts[2], &shorts[2]), 0);
    const int32 words[] = {std::numeric_limits<int32>::min(), std::numeric_limits<int32>::max(), 3};
    EXPECT_EQ(CompareInt32s(&words[1], &words[0]), -1);
    EXPECT_EQ(CompareInt32s(&words[2], &words[2]), 0);
    const uintptr_t pointers[] = {0, std::numeric_limits<uintptr_t>::max()};
    EXPECT_EQ(CompareUIntPtrTs(&pointers[0], &pointers[1]), -1);
    EXPECT_EQ(CompareUIntPtrTs(&pointers[1], &pointers[0]), 1);
    EXPECT_EQ(CompareUIntPtrTs(&pointers[1], &pointers[1]), 0);
}

}  // namespace
