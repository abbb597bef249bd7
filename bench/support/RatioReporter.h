// Prints the benchmarks of a run as usual, and behind them how many times faster ours is than each peer.
#ifndef KZCORE_BENCH_RATIOREPORTER_H
#define KZCORE_BENCH_RATIOREPORTER_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace kzbench {

// One comparison: what stands on which side, and the ratio wanted.
struct Goal {
    const char* work;
    const char* ours;
    const char* peer;
    double atLeast;  // peer time / our time
};

// Collects the real time of each run by benchmark name; repetitions give a median.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                mTimes[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
            }
        }
        benchmark::ConsoleReporter::ReportRuns(runs);
    }

    double Median(const std::string& name) const
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

// Runs what the command line selects, then prints a line for each goal whose two sides ran.
inline int RunWithGoals(int argc, char** argv, const std::vector<Goal>& goals)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n%-44s %12s %12s %8s %8s\n", "work", "ours", "peer", "ratio", "goal");
    for (const Goal& goal : goals) {
        const double ours = reporter.Median(goal.ours);
        const double peer = reporter.Median(goal.peer);
        if (ours > 0.0 && peer > 0.0) {
            std::printf("%-44s %9.1f ns %9.1f ns %7.1fx %7.1fx  %s\n", goal.work, ours, peer, peer / ours, goal.atLeast,
                        peer / ours >= goal.atLeast ? "met" : "not met");
        }
    }
    return 0;
}

}  // namespace kzbench

#endif
