// Cookie look-ups, makes and disposals, beside a hash map with numbers for keys.
#include <absl/container/flat_hash_map.h>
#include <malloc.h>

#include <algorithm>
#include <random>
#include <shared_mutex>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Medians;

struct Population {
    explicit Population(unsigned count) : jar(MCNewJar())
    {
        for (uInt64 i = 0; i < count; ++i) {
            ordered.push_back(MCNewCookie(jar, &i));
            map.emplace(ordered.back(), i);
        }
        shuffled = ordered;
        std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
    }
    ~Population()
    {
        for (const uInt32 cookie : ordered) {
            MCDisposeCookie(jar, cookie, nullptr);
        }
        MCDisposeJar(jar);
    }
    Population(const Population&) = delete;
    Population& operator=(const Population&) = delete;

    MagicCookieJar jar;
    std::vector<uInt32> ordered;
    std::vector<uInt32> shuffled;
    absl::flat_hash_map<uInt32, uInt64> map;
    mutable std::shared_mutex lock;
};

Population* gPopulation;

void Populate(unsigned count)
{
    if (gPopulation == nullptr || gPopulation->ordered.size() != count) {
        delete gPopulation;
        gPopulation = new Population(count);
    }
}

template <typename Ask>
void MeasureOrder(const char* name, unsigned count, bool isShuffled, Ask ask)
{
    benchmark::RegisterBenchmark(name, [count, isShuffled, ask](benchmark::State& state) {
        Populate(count);
        const std::vector<uInt32>& cookies = isShuffled ? gPopulation->shuffled : gPopulation->ordered;
        std::size_t i = 0;
        for (auto _ : state) {
            benchmark::DoNotOptimize(ask(cookies[i]));
            i = i + 1 == cookies.size() ? 0 : i + 1;
        }
    });
}

uInt64 AskKz(uInt32 cookie)
{
    uInt64 info;
    return MCGetCookieInfo(gPopulation->jar, cookie, &info) == 0 ? info : 0;
}

uInt64 AskMap(uInt32 cookie)
{
    const auto found = gPopulation->map.find(cookie);
    return found != gPopulation->map.end() ? found->second : 0;
}

uInt64 AskLocked(uInt32 cookie)
{
    std::shared_lock<std::shared_mutex> guard(gPopulation->lock);
    return AskMap(cookie);
}

void MeasureMakes()
{
    benchmark::RegisterBenchmark("kz make+dispose", [](benchmark::State& state) {
        Populate(50'000);
        const uInt64 info = 1;
        for (auto _ : state) {
            MCDisposeCookie(gPopulation->jar, MCNewCookie(gPopulation->jar, &info), nullptr);
        }
    });
    benchmark::RegisterBenchmark("locked map make+dispose", [](benchmark::State& state) {
        Populate(50'000);
        static std::mutex sLock;
        uInt32 next = 1;
        for (auto _ : state) {
            {
                std::lock_guard<std::mutex> guard(sLock);
                gPopulation->map.emplace(next, 1);
            }
            std::lock_guard<std::mutex> guard(sLock);
            gPopulation->map.erase(next++);
        }
    });
}

void AddSizes(Medians& medians)
{
    constexpr unsigned kCount = 1'000'000;
    const auto used = [] {
        const struct mallinfo2 info = mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    MagicCookieJar const jar = MCNewJar();
    const double before = used();
    for (uInt64 i = 0; i < kCount; ++i) {
        MCNewCookie(jar, &i);
    }
    medians.Add("kz bytes", (used() - before) / kCount);
    MCDisposeJar(jar);
}

}  // namespace

int main(int argc, char** argv)
{
    const kzbench::RunningProgram program;
    MeasureOrder("kz ordered/1k", 1'000, false, &AskKz);
    MeasureOrder("kz/50k", 50'000, true, &AskKz);
    MeasureOrder("flat_hash_map/50k", 50'000, true, &AskMap);
    MeasureOrder("locked map/50k", 50'000, true, &AskLocked);
    MeasureMakes();
    MeasureOrder("kz/500k", 500'000, true, &AskKz);
    MeasureOrder("flat_hash_map/500k", 500'000, true, &AskMap);
    MeasureOrder("kz ordered/1M", 1'000'000, false, &AskKz);
    MeasureOrder("kz/1M", 1'000'000, true, &AskKz);
    const int result = kzbench::RunWithGoals(
        argc, argv,
        {AtMost("cookie look-up, 50k random", "kz/50k", 1.0, "flat_hash_map/50k"),
         Faster("cookie look-up, 50k random", "kz/50k", 4, "locked map/50k"),
         Faster("cookie look-up, 500k random", "kz/500k", 1.5, "flat_hash_map/500k"),
         Faster("cookie make+dispose, 50k live", "kz make+dispose", 1.5, "locked map make+dispose"),
         AtMost("growth: cookie look-up, 1M in order", "kz ordered/1M", 1.3, "kz ordered/1k"),
         AtMost("growth: cookie look-up, 1M random", "kz/1M", 6, "kz ordered/1k"),
         {"memory: cookie of 8 bytes", "kz bytes", "<= 25", [](const Medians&) { return 25.0; }, {}, "B"}},
        &AddSizes);
    delete gPopulation;
    return result;
}
