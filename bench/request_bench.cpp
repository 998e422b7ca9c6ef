// A synchronous request between two modules, against the bare chain of hand-overs that it is.
#include <string>
#include <vector>

#include "bench/hand_over_chain.h"
#include "bench/processors.h"
#include "bench/requester.h"
#include "bench/stopwatch.h"
#include "bench/table.h"

namespace {

/// Median of one request to that of one pass through the chain.
void latency(benchmark::State& state, int processors) {
  Requester requester;
  HandOverChain chain(1);
  if (!useProcessors(state, processors)) {
    return;
  }
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
void throughput(benchmark::State& state, int count, int processors) {
  const auto requesters = static_cast<std::size_t>(count);
  std::vector<Requester> ours(requesters);
  HandOverChain chain(requesters);
  if (!useProcessors(state, processors)) {
    return;
  }
  const int each = 3200 / count;
  std::vector<double> ratios;
  for (auto _ : state) {
    const double our = secondsOfAll(requesters, each, [&](std::size_t i) { ours[i].request(); });
    state.SetIterationTime(our);
    const double their = secondsOfAll(requesters, each, [&](std::size_t i) { chain.request(i); });
    ratios.push_back(their / our);
  }
  state.counters["ratio"] = medianOf(ratios);
}

void rows(const std::string& behindPath) {
  row("request p50, one CPU" + behindPath, "<= 0.95", latency, 1);
  row("request p50, two CPUs" + behindPath, "<= 0.95", latency, 2);
  row("8 requesters, throughput, one CPU" + behindPath, ">= 0.9", throughput, 8, 1);
  row("8 requesters, throughput, two CPUs" + behindPath, ">= 0.9", throughput, 8, 2);
  row("64 requesters, throughput, one CPU" + behindPath, ">= 1.15", throughput, 64, 1);
  row("64 requesters, throughput, two CPUs" + behindPath, ">= 1.0", throughput, 64, 2);
}

}  // namespace

int main(int argc, char** argv) {
  return runTableWithBothAllocators(argc, argv, rows);
}
