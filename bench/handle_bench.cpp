// Makes and disposals of handles, zeroed and big ones, and resizes, beside the allocators that a user would pick.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "Harness.h"
#include "PeerAllocators.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Measure;
using kzbench::Medians;

constexpr unsigned long kMega = 1024 * 1024;
volatile unsigned long gSize;

void TouchEnds(unsigned char* data, unsigned long size)
{
    data[0] = 1;
    data[size - 1] = 2;
    benchmark::ClobberMemory();
}

void TouchPages(unsigned char* data, unsigned long size)
{
    for (unsigned long i = 0; i < size; i += 4096) {
        data[i] = 1;
    }
    benchmark::ClobberMemory();
}

void MeasureSizes(const std::vector<kzbench::Allocator>& peers)
{
    for (const unsigned long size : {64ul, 2048ul, 20000ul, kMega}) {
        const std::string suffix = "/" + std::to_string(size);
        Measure(("kz" + suffix).c_str(), [size] {
            UHandle const handle = DSNewHandle(size);
            TouchEnds(*handle, size);
            DSDisposeHandle(handle);
        });
        for (const auto& peer : peers) {
            Measure((peer.name + suffix).c_str(), [size, peer] {
                void* const block = peer.allocate(size);
                TouchEnds(static_cast<unsigned char*>(block), size);
                peer.release(block);
            });
        }
    }
    Measure("kz pointer", [] {
        void* const block = DSNewPtr(64);
        TouchEnds(static_cast<unsigned char*>(block), 64);
        DSDisposePtr(block);
    });
    Measure("kz zeroed", [] {
        UHandle const handle = DSNewHClr(kMega);
        benchmark::DoNotOptimize(**handle);
        DSDisposeHandle(handle);
    });
    Measure("calloc", [] {
        void* const block = std::calloc(kMega, 1);
        TouchEnds(static_cast<unsigned char*>(block), kMega);
        std::free(block);
    });
    static unsigned char* const sArea = static_cast<unsigned char*>(std::malloc(kMega));
    Measure("memset", [] {
        std::memset(sArea, 0, kMega);
        benchmark::ClobberMemory();
    });
}

void MeasureResizes()
{
    static UHandle sHandle = DSNewHandle(1000);
    Measure("kz resize", [] {
        DSSetHandleSize(sHandle, 2000);
        DSSetHandleSize(sHandle, 1000);
    });
    static unsigned char* sBlock = static_cast<unsigned char*>(std::malloc(1000));
    Measure("new+copy+free", [] {
        for (const unsigned long size : {2000ul, 1000ul}) {
            auto* const block = static_cast<unsigned char*>(std::malloc(size));
            std::memcpy(block, sBlock, 1000);
            std::free(sBlock);
            sBlock = block;
            benchmark::ClobberMemory();
        }
    });
}

void MeasureBigBlocks(const std::vector<kzbench::Allocator>& peers)
{
    for (const unsigned long megas : {8ul, 40ul}) {
        const unsigned long size = megas * kMega;
        const std::string suffix = " pages/" + std::to_string(megas);
        Measure(("kz cached" + suffix).c_str(), [size] {
            UHandle const handle = DSNewHandleCache(size);
            TouchPages(*handle, size);
            DSDisposeHandleCache(handle);
        });
        for (const auto& peer : peers) {
            Measure((peer.name + suffix).c_str(), [size, peer] {
                void* const block = peer.allocate(size);
                TouchPages(static_cast<unsigned char*>(block), size);
                peer.release(block);
            });
        }
    }
}

void MeasureLive(const char* name, unsigned count)
{
    benchmark::RegisterBenchmark(name, [count](benchmark::State& state) {
        std::vector<UHandle> live(count);
        for (UHandle& handle : live) {
            handle = DSNewHandle(64);
        }
        for (auto _ : state) {
            DSDisposeHandle(live.back());
            live.back() = DSNewHandle(64);
        }
        for (UHandle handle : live) {
            DSDisposeHandle(handle);
        }
    });
}

// The bytes that one of 10,000 blocks of this size takes.
template <typename Make, typename Drop>
double BytesEach(Make make, Drop drop)
{
    constexpr unsigned kCount = 10000;
    std::vector<decltype(make())> blocks(kCount);
    const auto before = mallinfo2().uordblks;
    for (auto& block : blocks) {
        block = make();
    }
    const auto after = mallinfo2().uordblks;
    for (auto& block : blocks) {
        drop(block);
    }
    return static_cast<double>(after - before) / kCount;
}

void AddSizes(Medians& medians)
{
    for (const unsigned long size : {64ul, 2048ul}) {
        const std::string suffix = " bytes/" + std::to_string(size);
        // The master stands in a block that is there already: 8 bytes more.
        medians.Add("kz" + suffix, 8 + BytesEach([size] { return DSNewHandle(size); },
                                                 [](UHandle handle) { DSDisposeHandle(handle); }));
        medians.Add("malloc" + suffix, BytesEach([size] { return std::malloc(size); }, &std::free));
    }
}

// The fresh pages and the milliseconds that a start of the library takes, in a process that has not run it yet.
void AddStart(Medians& medians)
{
    int ends[2];
    if (pipe(ends) != 0) {
        return;
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl("/proc/self/exe", "handle_bench", "--measure-start", nullptr);
        _exit(1);
    }
    close(ends[1]);
    std::FILE* const in = fdopen(ends[0], "r");
    double pages = 0;
    double milliseconds = 0;
    if (std::fscanf(in, "%lf %lf", &pages, &milliseconds) == 2) {
        medians.Add("start pages", pages);
        medians.Add("start ms", milliseconds);
    }
    std::fclose(in);
    waitpid(child, nullptr, 0);
}

int MeasureStart()
{
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_SELF, &before);
    const auto start = std::chrono::steady_clock::now();
    const kztest::StartedLibrary library;
    const auto end = std::chrono::steady_clock::now();
    getrusage(RUSAGE_SELF, &after);
    std::printf("%ld %f\n", after.ru_minflt - before.ru_minflt,
                std::chrono::duration<double, std::milli>(end - start).count());
    return library.baseResult;
}

kzbench::Row Bound(const char* work, const std::string& ours, const std::string& peer, double factor,
                   std::vector<std::string> peers)
{
    char goal[64];
    std::snprintf(goal, sizeof goal, "<= %.2f x (%s + 2 M)", factor, peer.c_str());
    return {work, ours, goal, [peer, factor](const Medians& t) { return factor * (t(peer) + 2 * t("M")); },
            std::move(peers)};
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && std::strcmp(argv[1], "--measure-start") == 0) {
        return MeasureStart();
    }
    const kzbench::RunningProgram program;
    std::vector<kzbench::Allocator> peers;
    for (const auto& peer : {kzbench::Malloc(), kzbench::Mimalloc(), kzbench::Jemalloc()}) {
        if (peer.allocate != nullptr) {
            peers.push_back(peer);
        }
    }
    static std::mutex sMutex;
    Measure("M", [] {
        sMutex.lock();
        benchmark::ClobberMemory();
        sMutex.unlock();
    });
    MeasureSizes(peers);
    MeasureResizes();
    MeasureBigBlocks(peers);
    MeasureLive("live/1000", 1000);
    MeasureLive("live/1000000", 1000000);
    const auto fixed = [](double limit) { return [limit](const Medians&) { return limit; }; };
    return kzbench::RunWithGoals(
        argc, argv,
        {Bound("handle 64 B", "kz/64", "malloc/64", 1.1, {"malloc/64", "mimalloc/64", "jemalloc/64"}),
         Bound("handle 2 KB", "kz/2048", "malloc/2048", 1.1, {"malloc/2048", "mimalloc/2048", "jemalloc/2048"}),
         Bound("handle 20 KB", "kz/20000", "malloc/20000", 1.1, {"malloc/20000", "mimalloc/20000", "jemalloc/20000"}),
         Bound("handle 1 MB", "kz/1048576", "malloc/1048576", 1.2, {"malloc/1048576"}),
         Faster("handle 1 MB", "kz/1048576", 2.5, "mimalloc/1048576"),
         Faster("handle 1 MB", "kz/1048576", 2.5, "jemalloc/1048576"),
         AtMost("pointer 64 B", "kz pointer", 2.7, "malloc/64"),
         AtMost("zeroed 1 MB", "kz zeroed", 1.1, "memset"),
         Faster("zeroed 1 MB", "kz zeroed", 1.2, "calloc"),
         AtMost("resize 1,000 <-> 2,000 B", "kz resize", 1.3, "new+copy+free"),
         AtMost("8 MB, every page, cached", "kz cached pages/8", 1.05, "malloc pages/8"),
         Faster("8 MB, every page, cached", "kz cached pages/8", 500, "jemalloc pages/8"),
         AtMost("40 MB, every page, past the cache", "kz cached pages/40", 1.01, "malloc pages/40"),
         AtMost("growth: make+dispose, 1,000,000 live", "live/1000000", 1.3, "live/1000"),
         {"memory: handle of 64 B",
          "kz bytes/64",
          "<= 1.3x malloc",
          [](const Medians& t) { return 1.3 * t("malloc bytes/64"); },
          {},
          "B"},
         {"memory: handle of 2,048 B",
          "kz bytes/2048",
          "<= 1.04x malloc",
          [](const Medians& t) { return 1.04 * t("malloc bytes/2048"); },
          {},
          "B"},
         {"start: fresh pages", "start pages", "<= 150", fixed(150), {}, ""},
         {"start: time", "start ms", "<= 3", fixed(3), {}, "ms"}},
        [](Medians& medians) {
            AddSizes(medians);
            AddStart(medians);
        });
}
