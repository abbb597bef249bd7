// Records of reports and call chains, beside formatted output and logging libraries.
#include <absl/debugging/stacktrace.h>
#include <execinfo.h>
#include <fmt/format.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <cstring>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Measure;

volatile int gLine = 1234;
volatile int gLevel = 2;
volatile int gError = 42;
volatile int gThreshold = 2;

void Ignore(const char*, int32, const char*, int32, uInt32, const char* text, uInt64)
{
    benchmark::DoNotOptimize(text);
}

// The record that all sides make:
// source/memory/manager.cpp(1234) : level 2: Memory error 42 in cannot resize the handle
void MeasureRecords()
{
    Measure("kz record", [] {
        DebugStream record("source/memory/manager.cpp", gLine, nullptr, kDbgWarning);
        record.Append("source/memory/manager.cpp(");
        ToDebugStream(record, int{gLine});
        record.Append(") : level ");
        ToDebugStream(record, int{gLevel});
        record.Append(": Memory error ");
        ToDebugStream(record, int{gError});
        record.Append(" in cannot resize the handle\n");
        record.Process();
    });
    Measure("snprintf record", [] {
        char text[256];
        std::snprintf(text, sizeof text, "%s(%d) : level %d: Memory error %d in %s\n", "source/memory/manager.cpp",
                      gLine, gLevel, gError, "cannot resize the handle");
        benchmark::DoNotOptimize(text);
    });
    Measure("fmt record", [] {
        char text[256];
        *fmt::format_to_n(text, sizeof text - 1, "{}({}) : level {}: Memory error {} in {}\n",
                          "source/memory/manager.cpp", int{gLine}, int{gLevel}, int{gError}, "cannot resize the handle")
             .out = 0;
        benchmark::DoNotOptimize(text);
    });
    static const auto sLogger =
        std::make_shared<spdlog::logger>("null", std::make_shared<spdlog::sinks::null_sink_mt>());
    Measure("spdlog null record",
            [] { sLogger->warn("Memory error {} in {}", int{gError}, "cannot resize the handle"); });
    Measure("spdlog below the level", [] { sLogger->debug("Memory error {}", int{gError}); });
    Measure("kz below the level", [] {
        if (gLevel > gThreshold) {
            DebugStream record("source/memory/manager.cpp", gLine, nullptr, kDbgWarning);
            record.Append("Memory error ");
            ToDebugStream(record, int{gError});
            record.Process();
        }
    });
}

template <typename Record>
__attribute__((noinline)) void AtDepth(int depth, Record record)
{
    if (depth > 0) {
        AtDepth(depth - 1, record);
    } else {
        record();
    }
    benchmark::ClobberMemory();  // keeps the call a call
}

template <typename Record>
void MeasureChain(const char* name, Record record)
{
    benchmark::RegisterBenchmark(name, [record](benchmark::State& state) {
        AtDepth(20, [&] {
            for (auto _ : state) {
                record();
            }
        });
    });
}

}  // namespace

int main(int argc, char** argv)
{
    const kzbench::RunningProgram program;
    DebugOutputSetHandler(&Ignore);
    MeasureRecords();
    MeasureChain("kz chain", [] {
        StackChainFS<16> chain;
        chain.Record(0);
        benchmark::DoNotOptimize(chain);
    });
    MeasureChain("absl chain", [] {
        void* frames[16];
        benchmark::DoNotOptimize(absl::GetStackTrace(frames, 16, 0));
        benchmark::DoNotOptimize(frames);
    });
    MeasureChain("backtrace", [] {
        void* frames[16];
        benchmark::DoNotOptimize(backtrace(frames, 16));
        benchmark::DoNotOptimize(frames);
    });
    return kzbench::RunWithGoals(argc, argv,
                                 {Faster("report record of 85 bytes", "kz record", 3, "snprintf record"),
                                  Faster("report record of 85 bytes", "kz record", 1.8, "spdlog null record"),
                                  AtMost("report record of 85 bytes", "kz record", 1, "fmt record"),
                                  AtMost("report below the level", "kz below the level", 3, "spdlog below the level"),
                                  AtMost("call chain of 16 frames", "kz chain", 1.1, "absl chain"),
                                  Faster("call chain of 16 frames", "kz chain", 40, "backtrace")});
}
