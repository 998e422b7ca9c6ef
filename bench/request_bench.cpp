// A synchronous request between two modules, against the bare chain of hand-overs that it is.
#include <vector>

#include "bench/hand_over_chain.h"
#include "bench/requester.h"
#include "bench/stopwatch.h"
#include "bench/table.h"

namespace {

/// Median of one request to that of one pass through the chain.
void latency(benchmark::State& state, int processors) {
  if (!useProcessors(state, processors)) {
    return;
  }
  Requester requester;
  HandOverChain chain(1);
  constexpr int kBatch = 100;
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    state.SetIterationTime(sample([&] { requester.request(); }, kBatch, ours));
    sample([&] { chain.request(0); }, kBatch, theirs);
  }
  reportCost(state, ours, theirs);
}

/// Requests of all requesters per second to passes through the chain per second.
///
/// On one processor neither side ever leaves it idle, so that the time of the process is all that
/// they take, and other programs do not add to it.
void throughput(benchmark::State& state, int count, int processors) {
  if (!useProcessors(state, processors)) {
    return;
  }
  const auto requesters = static_cast<std::size_t>(count);
  std::vector<Requester> ours(requesters);
  HandOverChain chain(requesters);
  const clockid_t clock = processors == 1 ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC;
  const int each = 3200 / count;
  std::vector<double> ratios;
  for (auto _ : state) {
    const double our =
        secondsOfAll(clock, requesters, each, [&](std::size_t i) { ours[i].request(); });
    state.SetIterationTime(our);
    const double their =
        secondsOfAll(clock, requesters, each, [&](std::size_t i) { chain.request(i); });
    ratios.push_back(their / our);
  }
  state.counters["ratio"] = medianOf(ratios);
}

}  // namespace

int main(int argc, char** argv) {
  row("request p50, one CPU", "<= 0.35", latency, 1);
  agentRow("request p50, one CPU", "<= 0.35", latency, 1);
  row("request p50, two CPUs", "<= 0.45", latency, 2);
  row("8 requesters, throughput, one CPU", ">= 1.2", throughput, 8, 1);
  row("8 requesters, throughput, two CPUs", ">= 1.1", throughput, 8, 2);
  row("64 requesters, throughput, one CPU", ">= 1.5", throughput, 64, 1);
  agentRow("64 requesters, throughput, one CPU", ">= 1.5", throughput, 64, 1);
  row("64 requesters, throughput, two CPUs", ">= 1.3", throughput, 64, 2);
  return runTable(argc, argv);
}
