// Sorting and searching through a compare procedure, beside the C and C++ libraries with the same procedure.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Row;

constexpr int32 kMillion = 1'000'000;

int32 CompareInts(const void* a, const void* b)
{
    const int32 left = *static_cast<const int32*>(a);
    const int32 right = *static_cast<const int32*>(b);
    return (left > right) - (left < right);
}

int32 CompareIntsEx(const void* a, const void* b, void*)
{
    return CompareInts(a, b);
}

// Called through variables that the compiler can't look through, as a library calls its caller.
KzCompareProc volatile gCompare = &CompareInts;
KzCompareExProc volatile gCompareEx = &CompareIntsEx;

std::vector<int32> Order(const std::string& order)
{
    std::mt19937 engine(1);
    std::vector<int32> keys(kMillion);
    for (int32 i = 0; i < kMillion; ++i) {
        int32& key = keys[static_cast<size_t>(i)];
        key = order == "sorted"      ? i
              : order == "reversed"  ? kMillion - i
              : order == "equal"     ? 7
              : order == "16 values" ? static_cast<int32>(engine() % 16)
                                     : static_cast<int32>(engine() >> 1);
    }
    return keys;
}

// Sorts a fresh copy of `keys` in each round; the copy is a small part of the time.
template <typename T, typename Sort>
void MeasureSort(const std::string& name, const std::vector<T>& keys, Sort sort)
{
    benchmark::RegisterBenchmark(name.c_str(), [&keys, sort](benchmark::State& state) {
        std::vector<T> work;
        for (auto _ : state) {
            work = keys;
            sort(work.data(), work.size());
            benchmark::ClobberMemory();
        }
    });
}

struct Block {
    int32 key;
    char rest[60];
};

template <typename T>
void MeasureKzAndPeers(const std::string& order, const std::vector<T>& keys)
{
    MeasureSort("kz/" + order, keys,
                [](T* data, size_t n) { QSort(data, static_cast<int32>(n), sizeof(T), gCompare); });
    MeasureSort("kz context/" + order, keys,
                [](T* data, size_t n) { QSortEx(data, static_cast<int32>(n), sizeof(T), gCompareEx, nullptr); });
    MeasureSort("qsort/" + order, keys, [](T* data, size_t n) { qsort(data, n, sizeof(T), gCompare); });
    MeasureSort("std::sort/" + order, keys, [](T* data, size_t n) {
        const KzCompareProc compare = gCompare;
        std::sort(data, data + n, [compare](const T& a, const T& b) { return compare(&a, &b) < 0; });
    });
}

template <typename Search>
void MeasureSearch(const std::string& name, int32 count, Search search)
{
    benchmark::RegisterBenchmark(name.c_str(), [count, search](benchmark::State& state) {
        std::vector<int32> elements(static_cast<size_t>(count));
        for (int32 i = 0; i < count; ++i) {
            elements[static_cast<size_t>(i)] = 2 * i;
        }
        std::mt19937 engine(3);
        std::vector<int32> keys(4096);
        for (int32& key : keys) {
            key = static_cast<int32>(engine() % static_cast<uInt32>(count)) * 2;
        }
        size_t next = 0;
        for (auto _ : state) {
            benchmark::DoNotOptimize(search(elements, &keys[next++ % keys.size()]));
        }
    });
}

void MeasureSearches(const std::string& size, int32 count)
{
    MeasureSearch("BinSearch/" + size, count, [](const std::vector<int32>& elements, const int32* key) {
        return BinSearch(elements.data(), static_cast<int32>(elements.size()), sizeof *key, key, gCompare);
    });
    MeasureSearch("bsearch/" + size, count, [](const std::vector<int32>& elements, const int32* key) {
        return bsearch(key, elements.data(), elements.size(), sizeof *key, gCompare);
    });
}

}  // namespace

int main(int argc, char** argv)
{
    const kzbench::RunningProgram program;
    const std::string orders[] = {"random", "sorted", "reversed", "equal", "16 values"};
    std::vector<std::vector<int32>> keys;
    for (const std::string& order : orders) {
        keys.push_back(Order(order));
    }
    for (size_t i = 0; i < keys.size(); ++i) {
        MeasureKzAndPeers(orders[i], keys[i]);
    }
    std::mt19937 engine(2);
    std::vector<Block> blocks(100'000);
    for (Block& block : blocks) {
        block.key = static_cast<int32>(engine() >> 1);
    }
    MeasureKzAndPeers("blocks", blocks);
    MeasureSearches("1k", 1'000);
    MeasureSearches("1M", kMillion);

    const std::vector<Row> rows = {
        AtMost("sort 1M int32, random", "kz/random", 0.95, "qsort/random"),
        AtMost("sort 1M int32, random", "kz/random", 1.05, "std::sort/random"),
        AtMost("sort 1M int32, random, with context", "kz context/random", 1.05, "std::sort/random"),
        AtMost("sort 1M int32, sorted", "kz/sorted", 1.3, "std::sort/sorted"),
        AtMost("sort 1M int32, equal", "kz/equal", 1.3, "std::sort/equal"),
        AtMost("sort 1M int32, 16 values", "kz/16 values", 1.3, "std::sort/16 values"),
        AtMost("sort 100,000 of 64 bytes", "kz/blocks", 0.8, "qsort/blocks"),
        AtMost("binary search, 1k", "BinSearch/1k", 1.0, "bsearch/1k"),
        AtMost("binary search, 1M", "BinSearch/1M", 1.0, "bsearch/1M"),
    };
    return kzbench::RunWithGoals(argc, argv, rows);
}
