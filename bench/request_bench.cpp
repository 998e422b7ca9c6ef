// A synchronous request between two modules, against the bare chain of hand-overs that it is.
#include <qovpub/qov_trace.h>

#include <algorithm>
#include <cstdint>
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

/// How often a request comes by the trace of messages.
std::size_t stepsOf(Requester& requester) {
  const std::uint64_t first = QOVMessageTrace::start();
  requester.request();
  // The answering worker may be about to note its last step.
  std::size_t steps = 0;
  for (bool hasEnded = false; !hasEnded;) {
    const auto events = QOVMessageTrace::read(first).events_;
    steps = events.size();
    hasEnded = std::any_of(events.begin(), events.end(), [](const QOVTraceEvent& event) {
      return event.step_ == QOVTraceEvent::Step::kHandleEnd;
    });
  }
  QOVMessageTrace::stop();
  return steps;
}

/// What the trace costs a request while it is off: a request and so many looks at whether it is on
/// as the request has steps, to the request alone. From outside a look is dearer than from inside.
void traceOff(benchmark::State& state) {
  if (!useProcessors(state, 1)) {
    return;
  }
  Requester requester;
  const std::size_t steps = stepsOf(requester);
  constexpr int kBatch = 100;
  std::vector<double> requests;
  std::vector<double> looks;
  for (auto _ : state) {
    state.SetIterationTime(sample([&] { requester.request(); }, kBatch, requests));
    const Stopwatch watch;
    for (std::size_t i = 0; i < kBatch * steps; ++i) {
      benchmark::DoNotOptimize(QOVMessageTrace::isOn());
    }
    looks.push_back(watch.seconds() / kBatch);
  }
  const double request = medianOf(requests);
  state.counters["ratio"] = (request + medianOf(looks)) / request;
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
  row("request with a trace that is off, against one without", "<= 1.01", traceOff);
  return runTable(argc, argv);
}
