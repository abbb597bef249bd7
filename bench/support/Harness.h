// What the benchmarks share: the library started through its shared object, a second thread, and loops on two threads.
#ifndef KZCORE_BENCH_HARNESS_H
#define KZCORE_BENCH_HARNESS_H

#include <benchmark/benchmark.h>
#include <kzcore/KZCore.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "RatioReporter.h"
#include "StartedLibrary.h"

namespace kzbench {

// The library runs, beside a thread that sleeps: the C library takes short cuts in programs of one thread.
class RunningProgram {
public:
    RunningProgram()
    {
        if (mLibrary.baseResult != 0) {
            std::fprintf(stderr, "kzcore does not start: %d\n", mLibrary.baseResult);
            std::exit(1);
        }
    }
    ~RunningProgram()
    {
        {
            std::lock_guard<std::mutex> lock(mLock);
            mStop = true;
        }
        mChanged.notify_one();
        mSleeper.join();
    }
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

private:
    kztest::StartedLibrary mLibrary;
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mStop = false;
    std::thread mSleeper{[this] {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait(lock, [this] { return mStop; });
    }};
};

// A benchmark of one operation.
template <typename Operation>
void Measure(const char* name, Operation operation)
{
    benchmark::RegisterBenchmark(name, [operation](benchmark::State& state) mutable {
        for (auto _ : state) {
            operation();
        }
    });
}

// The same, of an operation on two threads at once: `body(thread, count)` does it `count` times. What is measured is
// the time that each thread takes for one.
template <typename Body>
void MeasureTwoThreads(const char* name, long count, Body body)
{
    benchmark::RegisterBenchmark(
        name,
        [body, count](benchmark::State& state) mutable {
            for (auto _ : state) {
                std::atomic<int> ready{0};
                const auto run = [&](int thread) {
                    ++ready;
                    while (ready < 2) {
                    }
                    const auto start = std::chrono::steady_clock::now();
                    body(thread, count);
                    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
                };
                double other = 0;
                std::thread second([&] { other = run(1); });
                const double mine = run(0);
                second.join();
                state.SetIterationTime(std::max(mine, other) / static_cast<double>(count));
            }
        })
        ->UseManualTime()
        ->Iterations(5);
}

}  // namespace kzbench

#endif
