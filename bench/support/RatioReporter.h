// Prints the benchmarks of a run as usual, and collects the rows of the table that scripts/bench shows at the end:
// ours, each peer, how many times faster ours is, and whether the goal is met.
#ifndef KZCORE_BENCH_RATIOREPORTER_H
#define KZCORE_BENCH_RATIOREPORTER_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kzbench {

// The median times of the run by the benchmarks' names, in ns; 0 for one that did not run.
class Medians {
public:
    void Add(const std::string& name, double time) { mTimes[name].push_back(time); }

    double operator()(const std::string& name) const
    {
        const auto found = mTimes.find(name);
        if (found == mTimes.end()) {
            return 0.0;
        }
        std::vector<double> times = found->second;
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    }

private:
    std::map<std::string, std::vector<double>> mTimes;
};

// One row: `ours` and `peers` name benchmarks. `limit` gives what ours may be at most, in words `goal`; it is 0, and
// the row is left out, when something that it needs did not run.
struct Row {
    std::string work;
    std::string ours;
    std::string goal;
    std::function<double(const Medians&)> limit;
    std::vector<std::string> peers = {};
    std::string unit = "ns";
};

// The limit for being at least `times` as fast as a peer.
inline Row Faster(std::string work, std::string ours, double times, const std::string& peer)
{
    char goal[64];
    std::snprintf(goal, sizeof goal, ">= %.3gx faster", times);
    return {std::move(work),
            std::move(ours),
            goal + (" than " + peer),
            [times, peer](const Medians& t) { return t(peer) / times; },
            {peer}};
}

// The limit for taking at most `times` as long as another benchmark.
inline Row AtMost(std::string work, std::string ours, double times, const std::string& other)
{
    char goal[64];
    std::snprintf(goal, sizeof goal, "<= %.3gx ", times);
    return {std::move(work),
            std::move(ours),
            goal + other,
            [times, other](const Medians& t) { return t(other) * times; },
            {other}};
}

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                medians.Add(run.run_name.function_name, run.GetAdjustedRealTime());
            }
        }
        benchmark::ConsoleReporter::ReportRuns(runs);
    }

    Medians medians;
};

inline void PrintRow(std::FILE* out, const Row& row, const Medians& medians)
{
    const double ours = medians(row.ours);
    const double limit = row.limit(medians);
    if (ours <= 0.0 || limit <= 0.0) {
        return;
    }
    std::fprintf(out, "%-46s %11.1f %-2s %11.1f %-2s  %-8s %s", row.work.c_str(), ours, row.unit.c_str(), limit,
                 row.unit.c_str(),
                 ours <= limit          ? "met"
                 : ours <= limit * 1.05 ? "within 5%"
                                        : "NOT MET",
                 row.goal.c_str());
    for (const std::string& peer : row.peers) {
        std::fprintf(out, "; %s %.1f (%.2fx)", peer.c_str(), medians(peer), medians(peer) / ours);
    }
    std::fprintf(out, "\n");
}

// Runs what the command line selects, each three times, and adds the rows whose sides ran to the file that
// KZ_BENCH_TABLE names, or prints them. `more` adds what is no benchmark: sizes, counts.
inline int RunWithGoals(int argc, char** argv, const std::vector<Row>& rows,
                        const std::function<void(Medians&)>& more = {})
{
    std::vector<char*> arguments(argv, argv + argc);
    char repetitions[] = "--benchmark_repetitions=3";
    arguments.insert(arguments.begin() + 1, repetitions);
    argc = static_cast<int>(arguments.size());
    benchmark::Initialize(&argc, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(argc, arguments.data())) {
        return 2;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    if (more) {
        more(reporter.medians);
    }
    const char* const name = std::getenv("KZ_BENCH_TABLE");
    std::FILE* const out = name == nullptr ? stdout : std::fopen(name, "a");
    for (const Row& row : rows) {
        PrintRow(out, row, reporter.medians);
    }
    return out == stdout ? 0 : std::fclose(out);
}

}  // namespace kzbench

#endif
