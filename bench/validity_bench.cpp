// Is this a handle? Beside sets that a user would keep for it.
#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <random>
#include <set>
#include <shared_mutex>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Measure;

constexpr unsigned kFew = 50'000;
constexpr unsigned kMany = 500'000;

// Handles in two orders, and the peers that know them.
struct Population {
    explicit Population(unsigned count)
    {
        for (unsigned i = 0; i < count; ++i) {
            ordered.push_back(DSNewHandle(8));
        }
        std::sort(ordered.begin(), ordered.end());
        shuffled = ordered;
        std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
        set.insert(ordered.begin(), ordered.end());
        // Ranges of 10,000 words, as the blocks of masters are.
        for (unsigned i = 0; i < count; i += 10'000) {
            ranges.insert(reinterpret_cast<uintptr_t>(ordered[i]));
        }
    }
    ~Population()
    {
        for (UHandle handle : ordered) {
            DSDisposeHandle(handle);
        }
    }
    Population(const Population&) = delete;
    Population& operator=(const Population&) = delete;

    bool InLockedSet(UHandle handle) const
    {
        std::shared_lock<std::shared_mutex> guard(lock);
        return set.contains(handle);
    }

    bool InRanges(UHandle handle) const
    {
        const auto address = reinterpret_cast<uintptr_t>(handle);
        auto range = ranges.upper_bound(address);
        return range != ranges.begin() && address - *--range < 80'000 && *handle != nullptr;
    }

    std::vector<UHandle> ordered;
    std::vector<UHandle> shuffled;
    absl::flat_hash_set<UHandle> set;
    std::set<uintptr_t> ranges;
    mutable std::shared_mutex lock;
};

Population* gPopulation;

void Populate(unsigned count)
{
    if (gPopulation != nullptr && gPopulation->ordered.size() == count) {
        return;
    }
    delete gPopulation;
    gPopulation = new Population(count);
}

// Asks about each handle of an order again and again.
template <typename Ask>
void MeasureOrder(const char* name, unsigned count, bool isShuffled, Ask ask)
{
    benchmark::RegisterBenchmark(name, [count, isShuffled, ask](benchmark::State& state) {
        Populate(count);
        const std::vector<UHandle>& handles = isShuffled ? gPopulation->shuffled : gPopulation->ordered;
        std::size_t i = 0;
        for (auto _ : state) {
            benchmark::DoNotOptimize(ask(handles[i]));
            i = i + 1 == handles.size() ? 0 : i + 1;
        }
    });
}

template <typename Ask>
void MeasurePair(const char* name, Ask ask)
{
    kzbench::MeasureTwoThreads(name, 2'000'000, [ask](int thread, long count) {
        const std::vector<UHandle>& handles = gPopulation->shuffled;
        std::size_t i = thread == 0 ? 0 : handles.size() / 2;
        for (; count > 0; --count) {
            benchmark::DoNotOptimize(ask(handles[i]));
            i = i + 1 == handles.size() ? 0 : i + 1;
        }
    });
}

bool AskKz(UHandle handle)
{
    return AZCheckHandle(handle) == 0;
}

bool AskLocked(UHandle handle)
{
    return gPopulation->InLockedSet(handle);
}

bool AskSet(UHandle handle)
{
    return gPopulation->set.contains(handle);
}

bool AskRanges(UHandle handle)
{
    return gPopulation->InRanges(handle);
}

}  // namespace

int main(int argc, char** argv)
{
    const kzbench::RunningProgram program;
    MeasureOrder("kz recent", 1000, false, &AskKz);
    MeasureOrder("set recent", 1000, false, &AskSet);
    MeasureOrder("locked set recent", 1000, false, &AskLocked);
    MeasureOrder("kz ordered/50k", kFew, false, &AskKz);
    MeasureOrder("kz/50k", kFew, true, &AskKz);
    MeasureOrder("locked set/50k", kFew, true, &AskLocked);
    MeasureOrder("std::set ranges/50k", kFew, true, &AskRanges);
    MeasurePair("kz 2 threads/50k", &AskKz);
    MeasurePair("locked set 2 threads/50k", &AskLocked);
    MeasureOrder("kz ordered/500k", kMany, false, &AskKz);
    MeasureOrder("kz/500k", kMany, true, &AskKz);
    MeasureOrder("locked set/500k", kMany, true, &AskLocked);
    const int result =
        kzbench::RunWithGoals(argc, argv,
                              {Faster("validity, recent blocks", "kz recent", 4, "locked set recent"),
                               AtMost("validity, recent blocks", "kz recent", 1.0, "set recent"),
                               Faster("validity, 50k random", "kz/50k", 2.5, "locked set/50k"),
                               Faster("validity, 50k random", "kz/50k", 2, "std::set ranges/50k"),
                               Faster("validity, 2 threads", "kz 2 threads/50k", 6, "locked set 2 threads/50k"),
                               AtMost("validity, 2 threads", "kz 2 threads/50k", 1.3, "kz/50k"),
                               AtMost("growth: validity, 500k random", "kz/500k", 3, "kz/50k"),
                               AtMost("growth: validity, 500k in order", "kz ordered/500k", 1.1, "kz ordered/50k")});
    delete gPopulation;
    return result;
}
