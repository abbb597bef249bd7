#include "SortSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

struct Numbered {
    int32 key;
    int32 number;
};
using Elements = std::vector<Numbered>;

// Orders of n keys, some of which quicksorts find hard. Each makes numbers below n + 1, the first ones large numbers of
// different keys.
int32 (*const kOrders[])(int32 i, int32 n) = {
    [](int32 i, int32 n) { return (i < n / 2 ? n / 2 : n) - i; },                     // two descending runs
    [](int32 i, int32 n) { return std::min(i, n - i); },                              // organ pipe
    [](int32 i, int32 n) { return i < n / 2 ? 2 * i : 2 * i - n + 1; },               // evens, then odds
    [](int32 i, int32 n) { return static_cast<int32>(i * 7919LL % 64) * (n / 64); },  // few values
    [](int32 i, int32) { return i; },
    [](int32 i, int32 n) { return n - i; },
    [](int32, int32) { return 5; },
    [](int32 i, int32 n) { return static_cast<int32>(static_cast<uint32_t>(i) * 2654435761u >> 24) % (n + 1); },
};
constexpr int kRunsAndValues = 4;

// The bytes of elements of `size`, which begin with the key, with gaps between them, from an odd address on.
std::string Spread(const Elements& elements, size_t size, size_t gap)
{
    std::string bytes = "#";
    for (const Numbered& each : elements) {
        bytes.append(reinterpret_cast<const char*>(&each), std::min(size, sizeof each));
        bytes.append(size - std::min(size, sizeof each), static_cast<char>(each.number * 7));
        bytes.append(gap, static_cast<char>('!' + bytes.size() % 90));
    }
    return bytes + "#";
}

// Which pairs a sort compares, as a hash over their places in bytes from `base` on.
struct PairLog {
    const char* base;
    size_t size;
    ptrdiff_t stride;
    uint64_t hash = 0;

    void Add(ptrdiff_t a, ptrdiff_t b)
    {
        hash = (hash + static_cast<uint64_t>(a * 0x10000001 + b)) * 0x9E3779B97F4A7C15;
    }
    static int32 Compare(const void* a, const void* b, void* context)
    {
        auto& log = *static_cast<PairLog*>(context);
        log.Add(static_cast<const char*>(a) - log.base, static_cast<const char*>(b) - log.base);
        int32 keys[2] = {};
        for (int32* key = keys; key != keys + 2; std::swap(a, b), ++key) {
            if (log.size < sizeof *key) {
                std::memcpy(key, a, log.size);
            } else {
                std::memcpy(key, a, sizeof *key);
            }
        }
        return keys[0] - keys[1];
    }
};

// The documented steps with nothing beside them, and so without an end for orders that they are bad at.
struct StepSort {
    Numbered* first;
    PairLog log;

    int32 Compare(const Numbered* a, const Numbered* b)
    {
        log.Add((a - first) * log.stride, (b - first) * log.stride);
        return a->key - b->key;
    }
    void Order(Numbered* a, Numbered* b)
    {
        if (Compare(a, b) > 0) {
            std::swap(*a, *b);
        }
    }
    void Sort(Numbered* lo, Numbered* hi)
    {
        while (lo < hi) {
            if (hi - lo == 1) {
                return Order(lo, hi);
            }
            Numbered* const mid = lo + (hi - lo) / 2;
            Order(lo, mid);
            Order(lo, hi);
            Order(mid, hi);
            if (hi - lo == 2) {
                return;
            }
            Numbered *const pivot = hi - 1, *i = lo + 1, *j = pivot;
            std::swap(*mid, *pivot);
            for (; i != j; ++i) {
                if (Compare(i, pivot) >= 0) {
                    while (--j != i && Compare(j, pivot) > 0) {
                    }
                    if (j == i) {
                        break;
                    }
                    std::swap(*i, *j);
                }
            }
            std::swap(*i, *pivot);
            const bool leftFirst = i - lo <= hi - i;
            leftFirst ? Sort(lo, i) : Sort(i, hi);
            (leftFirst ? lo : hi) = leftFirst ? i + 1 : i - 1;
        }
    }
};

// Equal elements too end in the places that the steps give them, whatever their size, and what is between elements
// stays. No order that callers meet runs out of the budget of splits: runs in both directions, one behind the other or
// interleaved, need the most.
TEST(SortSearch, KeepsToTheSteps)
{
    for (const int32 count : {0, 1, 2, 3, 4, 5, 6, 7, 8, 33, 250, 1'000, 100'000, 2'000'000}) {
        for (size_t size : {1U, 2U, 3U, 4U, 7U, 8U, 16U, 23U, 40U}) {
            const size_t gap = count > 250 ? 0 : size % 3;
            for (const auto& order : kOrders) {
                if (count > 250 && (size != 8 || &order - kOrders >= kRunsAndValues)) {
                    continue;
                }
                Elements elements(static_cast<size_t>(count));
                for (int32 i = 0; i < count; ++i) {
                    elements[static_cast<size_t>(i)] = {order(i, count), i};
                }
                std::string actual = Spread(elements, size, gap);
                PairLog log{actual.data() + 1, size, static_cast<ptrdiff_t>(size + gap)};
                StepSort expected{elements.data(), log};
                expected.Sort(elements.data(), elements.data() + std::max(count - 1, 0));
                QSort2Ex(actual.data() + 1, count, static_cast<int32>(size), static_cast<int32>(size + gap),
                         &PairLog::Compare, &log);
                ASSERT_TRUE(actual == Spread(elements, size, gap) && log.hash == expected.log.hash)
                    << &order - kOrders << ", " << count << " elements of " << size;
            }
        }
    }
}

// Which pairs were compared, in order.
std::string gTrace;

int32 TracingCompare(const void* a, const void* b)
{
    const char pair[] = {*static_cast<const char*>(a), *static_cast<const char*>(b), ' '};
    gTrace.append(pair, 3);
    return pair[0] - pair[1];
}

TEST(SortSearch, ComparesInTheDocumentedOrder)
{
    char keys[] = "54321";
    QSort(keys, 5, 1, &TracingCompare);
    EXPECT_EQ(gTrace, "53 31 53 43 23 12 13 23 45 ");
    gTrace.clear();
    for (const int32 none : {0, -1}) {
        QSort2(keys, 2, none, 1, &TracingCompare);
        QSort2(keys, 2, 1, none, &TracingCompare);
        QSort(keys, none, 1, &TracingCompare);
    }
    EXPECT_EQ(gTrace, "");
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
            std::vector<unsigned char> ascending(static_cast<size_t>(count));
            std::iota(ascending.begin(), ascending.end(), static_cast<unsigned char>(0));
            std::vector<unsigned char> keys = ascending;
            QSort(keys.data(), count, 1, compare);
            std::sort(keys.begin(), keys.end());
            ASSERT_EQ(keys, ascending);
        }
    }
}

// How many compares a sort of `keys` makes; fails if they are not in order after it.
int64_t CountCompares(std::vector<int32> keys)
{
    int64_t compares = 0;
    const KzCompareExProc compare = [](const void* a, const void* b, void* context) -> int32 {
        ++*static_cast<int64_t*>(context);
        return *static_cast<const int32*>(a) - *static_cast<const int32*>(b);
    };
    QSortEx(keys.data(), static_cast<int32>(keys.size()), sizeof keys[0], compare, &compares);
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    return compares;
}

// Decides the order of its elements while they are being sorted, each answer against a sort that splits: M. D. McIlroy,
// "A Killer Adversary for Quicksort", 1999. The order is a consistent one, which a later sort can be given again.
struct Adversary {
    static constexpr int32 kUndecided = std::numeric_limits<int32>::max();

    explicit Adversary(int32 count) : ranks(static_cast<size_t>(count), kUndecided)
    {
        std::vector<int32> elements(ranks.size());  // their numbers
        std::iota(elements.begin(), elements.end(), 0);
        QSortEx(elements.data(), count, sizeof elements[0], &Answer, this);
    }
    static int32 Answer(const void* a, const void* b, void* context)
    {
        return static_cast<Adversary*>(context)->Answer(*static_cast<const int32*>(a), *static_cast<const int32*>(b));
    }
    int32 Answer(int32 a, int32 b)
    {
        ++compares;
        int32& rankA = ranks[static_cast<size_t>(a)];
        int32& rankB = ranks[static_cast<size_t>(b)];
        if (rankA == kUndecided && rankB == kUndecided) {
            (a == candidate ? rankA : rankB) = decided++;
        }
        if (rankA == kUndecided) {
            candidate = a;
        } else if (rankB == kUndecided) {
            candidate = b;
        }
        return rankA - rankB;
    }

    std::vector<int32> ranks;
    int32 decided = 0;
    int32 candidate = 0;
    int64_t compares = 0;
};

TEST(SortSearch, NeedsNLogNComparesOnEveryOrder)
{
    std::mt19937 engine(7);
    for (const int32 count : {1'000, 100'000}) {
        const double n = count;
        const double nLogN = n * std::log2(n);
        std::vector<int32> random(static_cast<size_t>(count));
        for (int32& key : random) {
            key = static_cast<int32>(engine() >> 1);
        }
        EXPECT_LE(static_cast<double>(CountCompares(random)), 1.25 * nLogN + 2 * n);
        const Adversary adversary(count);
        // The budget of the splits, which is 8, the heap's 2, and n for each of the rest.
        const double most = 10 * nLogN + 9 * n;
        EXPECT_LE(static_cast<double>(adversary.compares), most);
        EXPECT_LE(static_cast<double>(CountCompares(adversary.ranks)), most);
        // The splits end long before a quarter of the order is decided: what is left for the heap gets a random one.
        std::vector<int32> ranks = adversary.ranks;
        std::vector<int32> later(ranks.size());
        std::iota(later.begin(), later.end(), count / 4);
        std::shuffle(later.begin(), later.end(), engine);
        for (size_t i = 0; i < ranks.size(); ++i) {
            ranks[i] = ranks[i] < count / 4 ? ranks[i] : later[i];
        }
        EXPECT_LE(static_cast<double>(CountCompares(ranks)), most);
    }
}

// Among 10, 20, 30 and so on. The key comes first, whatever it is; the context is handed on.
TEST(SortSearch, FindsTheElementOrItsPlace)
{
    const KzCompareExProc compare = [](const void* wanted, const void* element, void* calls) -> int32 {
        ++*static_cast<int*>(calls);
        return std::stoi(*static_cast<const std::string*>(wanted)) - *static_cast<const int*>(element);
    };
    std::vector<int> elements;
    for (int count = 0; count < 40; elements.push_back(10 * ++count)) {
        for (int key = 0; key <= 10 * count + 10; key += 5) {
            const bool isThere = key % 10 == 0 && key > 0 && key <= 10 * count;
            const int32 expected = isThere ? key / 10 - 1 : ~std::clamp((key + 5) / 10 - 1, 0, count);
            ASSERT_EQ(BinSearch(elements.data(), count, sizeof(int), &key, &CompareInt32s), expected) << count;
            const std::string text = std::to_string(key);
            int calls = 0;
            ASSERT_EQ(BinSearchEx(elements.data(), count, sizeof(int), &text, compare, &calls), expected) << count;
            ASSERT_EQ(calls == 0, count == 0);
            ASSERT_LE(calls, std::bit_width(static_cast<unsigned>(count)) + 1);
        }
    }
}

TEST(SortSearch, CompareProceduresAtTheEnds)
{
    const int16 shorts[] = {std::numeric_limits<int16>::min(), std::numeric_limits<int16>::max()};
    EXPECT_EQ(CompareInt16s(&shorts[0], &shorts[1]), -65535);
    const int32 words[] = {std::numeric_limits<int32>::min(), std::numeric_limits<int32>::max()};
    EXPECT_EQ(CompareInt32s(&words[1], &words[0]), -1);  // wraps
    const uintptr_t pointers[] = {0, std::numeric_limits<uintptr_t>::max()};
    EXPECT_EQ(CompareUIntPtrTs(&pointers[0], &pointers[1]), -1);
    EXPECT_EQ(CompareUIntPtrTs(&pointers[1], &pointers[1]), 0);
    EXPECT_EQ(CompareUIntPtrTs(&pointers[1], &pointers[0]), 1);
}

}  // namespace
