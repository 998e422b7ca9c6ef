#ifndef QOV_BENCH_TABLE_H
#define QOV_BENCH_TABLE_H

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

/// Registers one row: `measure(state, arguments...)` runs one round, in which it measures two
/// things by turns, and sets the counter "ratio". `wanted` says which ratio is good, as "<= 0.95".
template <class Measure, class... Arguments>
void row(const std::string& path, const std::string& wanted, Measure measure,
         Arguments... arguments) {
  const auto round = [=](benchmark::State& state) {
    state.SetLabel(wanted);
    measure(state, arguments...);
  };
  benchmark::RegisterBenchmark(path.c_str(), round)->UseManualTime();
}

/// Sets the counters of a round from the durations of single calls, in seconds. The ratio is that
/// of the medians: ours to theirs, or how many of ours are done in the time of one of theirs.
void reportCost(benchmark::State& state, std::vector<double>& ours, std::vector<double>& theirs);
void reportRate(benchmark::State& state, std::vector<double>& ours, std::vector<double>& theirs);

/// Runs the registered rows, nine rounds of each unless the arguments say otherwise, and prints
///
///   | path | median ratio (lowest to highest) | wanted |
///
/// The arguments are Google Benchmark's. The result is that of main().
int runTable(int argc, char** argv);

/// Registers `rows` and runs them in a plain program's process and then, with ", agent's allocator"
/// behind each path, in one with the settings of an agent: an allocation of 1,024 bytes or more
/// tends to be a mapping of its own there.
int runTableWithBothAllocators(int argc, char** argv, void (*rows)(const std::string& behindPath));

#endif
