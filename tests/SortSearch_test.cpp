#include "SortSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

// Keys of one byte, at most 250 of them.
template <typename Key>
std::string Keys(int count, Key&& key)
{
    std::string keys;
    for (int i = 0; i < count; ++i) {
        keys += static_cast<char>(key(i));
    }
    return keys;
}

// Orders of `count` keys that quicksorts find easy and hard.
std::vector<std::string> Shapes(int count)
{
    std::mt19937 engine(static_cast<unsigned>(count));
    return {
        Keys(count, [](int i) { return i; }),
        Keys(count, [&](int i) { return count - i; }),
        Keys(count, [](int) { return 5; }),
        Keys(count, [&](int i) { return std::min(i, count - i); }),
        Keys(count, [&](int) { return engine() % 2; }),
        Keys(count, [&](int) { return engine() % 250; }),
    };
}

// Elements of `size` bytes, all of them the key, with gaps between them that must stay as they are, from an odd address
// on.
std::string Spread(const std::string& keys, size_t size, size_t gap)
{
    std::string bytes = "#";
    for (size_t i = 0; i < keys.size(); ++i) {
        bytes += std::string(size, keys[i]) + std::string(gap, static_cast<char>('!' + i % 90));
    }
    return bytes + "#";
}

int32 CompareElements(const void* a, const void* b, void* size)
{
    return std::memcmp(a, b, *static_cast<size_t*>(size));
}

TEST(SortSearch, SortsEveryShapeAsTheStandardDoes)
{
    for (size_t size : {1U, 2U, 3U, 4U, 7U, 8U, 16U, 23U, 40U}) {
        const size_t gap = size % 3;
        for (const int count : {0, 1, 2, 3, 4, 5, 6, 7, 8, 33, 250}) {
            for (std::string keys : Shapes(count)) {
                std::string actual = Spread(keys, size, gap);
                QSort2Ex(actual.data() + 1, count, static_cast<int32>(size), static_cast<int32>(size + gap),
                         &CompareElements, &size);
                std::sort(keys.begin(), keys.end(), std::less<unsigned char>());
                ASSERT_EQ(actual, Spread(keys, size, gap)) << count << " elements of " << size;
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
    const struct {
        std::string keys;
        const char* trace;
    } cases[] = {
        {"1", ""},
        {"21", "21 "},
        {"321", "32 21 32 "},
        {"54321", "53 31 53 43 23 12 13 23 45 "},
        {"2222", "22 22 22 22 22 22 "},
    };
    for (const auto& each : cases) {
        std::string keys = each.keys;
        gTrace.clear();
        QSort(keys.data(), static_cast<int32>(keys.size()), 1, &TracingCompare);
        EXPECT_EQ(gTrace, each.trace) << each.keys;
    }
    gTrace.clear();
    char keys[] = "21";
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
            const std::string ascending = Shapes(count).front();
            std::vector<char> keys(ascending.begin(), ascending.end());  // without a byte behind the last
            QSort(keys.data(), count, 1, compare);
            std::sort(keys.begin(), keys.end(), std::less<unsigned char>());
            ASSERT_EQ(std::string(keys.begin(), keys.end()), ascending);
        }
    }
}

struct Numbered {
    int32 key;
    int32 number;
    bool operator==(const Numbered& other) const { return key == other.key && number == other.number; }
};

// Which pairs a sort compares, as a hash over their places in the array.
struct PairLog {
    const Numbered* base;
    uint64_t hash = 0;

    int32 Compare(const Numbered* a, const Numbered* b)
    {
        hash = (hash + static_cast<uint64_t>((a - base) * 0x10000001 + (b - base))) * 0x9E3779B97F4A7C15;
        return a->key - b->key;
    }
};

// The documented steps with nothing beside them, and so without an end for orders that they are bad at.
void SortByTheSteps(Numbered* first, int32 count, PairLog& log)
{
    const auto order = [&log](Numbered* a, Numbered* b) {
        if (log.Compare(a, b) > 0) {
            std::swap(*a, *b);
        }
    };
    std::vector<std::pair<Numbered*, Numbered*>> pending = {{first, first + count - 1}};
    while (!pending.empty()) {
        auto [lo, hi] = pending.back();
        pending.pop_back();
        while (lo < hi) {
            if (hi - lo == 1) {
                order(lo, hi);
                break;
            }
            Numbered* const mid = lo + (hi - lo) / 2;
            order(lo, mid);
            order(lo, hi);
            order(mid, hi);
            if (hi - lo == 2) {
                break;
            }
            Numbered *const pivot = hi - 1, *i = lo + 1, *j = pivot;
            std::swap(*mid, *pivot);
            for (; i != j; ++i) {
                if (log.Compare(i, pivot) >= 0) {
                    while (--j != i && log.Compare(j, pivot) > 0) {
                    }
                    if (j == i) {
                        break;
                    }
                    std::swap(*i, *j);
                }
            }
            std::swap(*i, *pivot);
            const bool leftFirst = i - lo <= hi - i;
            pending.push_back(leftFirst ? std::pair{i + 1, hi} : std::pair{lo, i - 1});
            (leftFirst ? hi : lo) = i;
        }
    }
}

// Equal elements too end in the places that the steps give them, and no order that callers meet runs out of the budget
// of splits: runs in both directions, one behind the other or interleaved, need the most.
TEST(SortSearch, KeepsToTheSteps)
{
    int32 (*const orders[])(int32 i, int32 n) = {
        [](int32 i, int32 n) { return (i < n / 2 ? n / 2 : n) - i; },                     // two descending runs
        [](int32 i, int32 n) { return std::min(i, n - i); },                              // organ pipe
        [](int32 i, int32 n) { return i < n / 2 ? 2 * i : 2 * i - n + 1; },               // evens, then odds
        [](int32 i, int32 n) { return static_cast<int32>(i * 7919LL % 64) * (n / 64); },  // few values
    };
    const KzCompareExProc compare = [](const void* a, const void* b, void* log) {
        return static_cast<PairLog*>(log)->Compare(static_cast<const Numbered*>(a), static_cast<const Numbered*>(b));
    };
    for (const auto& order : orders) {
        for (const int32 count : {5, 10, 100, 1'000, 100'000, 2'000'000}) {
            std::vector<Numbered> elements(static_cast<size_t>(count));
            for (int32 i = 0; i < count; ++i) {
                elements[static_cast<size_t>(i)] = {order(i, count), i};
            }
            std::vector<Numbered> expected = elements;
            PairLog log{elements.data()}, expectedLog{expected.data()};
            SortByTheSteps(expected.data(), count, expectedLog);
            QSortEx(elements.data(), count, sizeof elements[0], compare, &log);
            EXPECT_TRUE(elements == expected && log.hash == expectedLog.hash) << &order - orders << ", " << count;
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
class Adversary {
public:
    explicit Adversary(int32 count) : mRanks(static_cast<size_t>(count), kUndecided) {}

    // Sorts the numbers from 0 up, each of which stands for an element; the compares that it took.
    int64_t SortAgainst()
    {
        std::vector<int32> elements(mRanks.size());
        std::iota(elements.begin(), elements.end(), 0);
        QSortEx(elements.data(), static_cast<int32>(elements.size()), sizeof elements[0], &Answer, this);
        return mCompares;
    }

    const std::vector<int32>& Ranks() const { return mRanks; }

private:
    static constexpr int32 kUndecided = std::numeric_limits<int32>::max();

    static int32 Answer(const void* a, const void* b, void* context)
    {
        return static_cast<Adversary*>(context)->Answer(*static_cast<const int32*>(a), *static_cast<const int32*>(b));
    }

    int32 Answer(int32 a, int32 b)
    {
        ++mCompares;
        int32& rankA = mRanks[static_cast<size_t>(a)];
        int32& rankB = mRanks[static_cast<size_t>(b)];
        if (rankA == kUndecided && rankB == kUndecided) {
            (a == mCandidate ? rankA : rankB) = mDecided++;
        }
        if (rankA == kUndecided) {
            mCandidate = a;
        } else if (rankB == kUndecided) {
            mCandidate = b;
        }
        return rankA - rankB;
    }

    std::vector<int32> mRanks;
    int32 mDecided = 0;
    int32 mCandidate = 0;
    int64_t mCompares = 0;
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
        Adversary adversary(count);
        // The budget of the splits, which is 8, the heap's 2, and n for each of the rest.
        const double most = 10 * nLogN + 9 * n;
        EXPECT_LE(static_cast<double>(adversary.SortAgainst()), most);
        EXPECT_LE(static_cast<double>(CountCompares(adversary.Ranks())), most);
        // The splits end long before a quarter of the order is decided: what is left for the heap gets a random one.
        std::vector<int32> ranks = adversary.Ranks();
        std::vector<int32> later(ranks.size());
        std::iota(later.begin(), later.end(), count / 4);
        std::shuffle(later.begin(), later.end(), engine);
        for (size_t i = 0; i < ranks.size(); ++i) {
            ranks[i] = ranks[i] < count / 4 ? ranks[i] : later[i];
        }
        EXPECT_LE(static_cast<double>(CountCompares(ranks)), most);
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
