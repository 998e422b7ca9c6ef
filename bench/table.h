#ifndef QOV_BENCH_TABLE_H
#define QOV_BENCH_TABLE_H

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

using Round = std::function<void(benchmark::State&)>;

// What the templates below pass on to.
void addRow(const std::string& path, const std::string& wanted, Round round);
void addAgentRow(const std::string& path, const std::string& wanted, Round round);

/// Adds a row: `measure(state, arguments...)` runs one round, in which it measures two things by
/// turns, and sets the counter "ratio". `wanted` says which ratio is good, as "<= 0.95".
///
/// Each row runs in a process of its own, so that no row depends on what others leave behind, on
/// the heap or elsewhere.
template <class Measure, class... Arguments>
void row(const std::string& path, const std::string& wanted, Measure measure,
         Arguments... arguments) {
  addRow(path, wanted, [=](benchmark::State& state) { measure(state, arguments...); });
}

/// As row(), with ", agent's allocator" behind the path, in a process with the settings of an
/// agent: an allocation of 1,024 bytes or more tends to be a mapping of its own there.
template <class Measure, class... Arguments>
void agentRow(const std::string& path, const std::string& wanted, Measure measure,
              Arguments... arguments) {
  addAgentRow(path, wanted, [=](benchmark::State& state) { measure(state, arguments...); });
}

/// Confines a row to `count` of the processors that the process may use; to be called before the
/// row starts a thread. Where there are fewer it says so in the row and returns false.
///
/// On one processor, a change between two threads is part of each hand-over, ours and theirs, which
/// brings a ratio nearer to 1. On several, a ratio also tells where the scheduler has put which
/// thread, and varies from run to run.
bool useProcessors(benchmark::State& state, int count);

/// Sets the counters of a round from the durations of single calls, in seconds. The ratio is that
/// of the medians: ours to theirs, or how many of ours are done in the time of one of theirs.
void reportCost(benchmark::State& state, std::vector<double>& ours, std::vector<double>& theirs);
void reportRate(benchmark::State& state, std::vector<double>& ours, std::vector<double>& theirs);

/// Runs the rows that have been added, nine rounds of each unless the arguments say otherwise, and
/// prints
///
///   | path | median ratio (lowest to highest) | wanted |
///
/// The arguments are Google Benchmark's. The result is that of main().
int runTable(int argc, char** argv);

#endif
