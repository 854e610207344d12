#ifndef FRAMEHUB_BENCH_BENCH_SUPPORT_H
#define FRAMEHUB_BENCH_BENCH_SUPPORT_H

// What the conversion benchmarks share: naming, counters, the memcpy
// baseline, and a reporter that keeps the table and remembers times so that
// a summary of ratios can follow it.
#include <framehub/frame_hub_type.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace bench {

inline std::string sizeName(const Kelmo::FrameHub::Resolution& r)
{
    return std::to_string(r.width) + "x" + std::to_string(r.height);
}

inline std::string memcpyName(uint64_t bytes) { return "memcpy/" + std::to_string(bytes); }

// Bytes and pixels per second of the run.
inline void count(benchmark::State& state, uint64_t pixels, uint64_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["pixels_per_second"]
        = benchmark::Counter(static_cast<double>(pixels), benchmark::Counter::kIsIterationInvariantRate);
}

// The limit a conversion of that many output bytes is judged against.
inline void memcpyBench(benchmark::State& state, uint64_t bytes)
{
    std::vector<uint8_t> from(bytes, 1), to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::ClobberMemory();
    }
    count(state, 0, bytes);
}

// Adds the fastest repetition to a benchmark's aggregates.
inline benchmark::internal::Benchmark* withMinimum(benchmark::internal::Benchmark* b)
{
    return b->ComputeStatistics(
        "minimum", [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); });
}

// Keeps the console table (without colour codes) and remembers seconds per
// iteration by name; with repetitions the median wins.
class Collector : public benchmark::ConsoleReporter {
public:
    Collector()
        : benchmark::ConsoleReporter(OO_Tabular)
    {
    }

    std::map<std::string, double> seconds;
    // CPU seconds of the timing thread: steadier than real time on a shared
    // machine, and the same thing for single-threaded runs.
    std::map<std::string, double> cpuSeconds;

    // The fastest repetition's CPU seconds, for benchmarks that ask for it
    // (withMinimum): what a run costs when nothing else takes the cache.
    std::map<std::string, double> minimumCpuSeconds;

    double at(const std::string& name) const { return find(seconds, name); }
    double cpuAt(const std::string& name) const { return find(cpuSeconds, name); }
    double minimumCpuAt(const std::string& name) const
    {
        const double minimum = find(minimumCpuSeconds, name);
        return minimum > 0 ? minimum : cpuAt(name);
    }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        benchmark::ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred)
                continue;
            const double unit = benchmark::GetTimeUnitMultiplier(run.time_unit);
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "minimum")
                minimumCpuSeconds[run.run_name.str()] = run.GetAdjustedCPUTime() / unit;
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median")
                continue;
            seconds[run.run_name.str()] = run.GetAdjustedRealTime() / unit;
            cpuSeconds[run.run_name.str()] = run.GetAdjustedCPUTime() / unit;
        }
    }

private:
    static double find(const std::map<std::string, double>& times, const std::string& name)
    {
        const auto it = times.find(name);
        return it == times.end() ? 0.0 : it->second;
    }
};

// Registers, runs with the command line's options, then prints the summary.
inline int runWithSummary(int argc, char** argv, void (*registerAll)(), void (*printSummary)(const Collector&))
{
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    printSummary(collector);
    benchmark::Shutdown();
    return 0;
}

} // namespace bench

#endif
