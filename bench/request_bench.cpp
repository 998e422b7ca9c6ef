#include <ace/Log_Msg.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "bench/hand_over_chain.h"
#include "tests/support/agent_root.h"
#include "tests/support/answering_modules.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kProcess = 7;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The loaded modules, for as long as the process runs.
AnsweringModules& modules() {
  static const AgentRoot root("request_bench");
  static const bool configured = [] {
    root.writeConfig(5);
    setenv("QOV_ROOT", root.path().c_str(), 1);
    ACE_Log_Msg::instance()->priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
    return true;
  }();
  static AnsweringModules loaded(root);
  static_cast<void>(configured);
  return loaded;
}

/// A worker of the first module that asks the second one.
class Requester {
 public:
  Requester() : task_(modules().first()) {}

  void request() {
    auto message = std::make_unique<CQOV_MsgPackage>();
    QOVMsgHead& head = message->head();
    head.type_ = 1;
    head.spid_ = kProcess;
    head.smid_ = AnsweringModules::kFirst;
    head.rpid_ = kProcess;
    head.rmid_ = AnsweringModules::kSecond;
    head.opc_ = 1;
    ACE_Time_Value limit(10);
    CQOV_MsgPackage* response = nullptr;
    if (task_.send(message.release(), response, &limit, true) != 0) {
      std::fprintf(stderr, "request_bench: a request failed\n");
      std::exit(1);
    }
    delete response;
  }

 private:
  CQOV_Task task_;
};

/// A requester of the bare chain.
class ChainRequester {
 public:
  explicit ChainRequester(HandOverChain& chain) : chain_(chain) {}
  void request() { chain_.request(message_); }

 private:
  HandOverChain& chain_;
  HandOverChain::Message message_;
};

/// Appends the duration of each of `count` requests.
template <class Any>
void sample(Any& requester, int count, std::vector<double>& seconds) {
  for (int i = 0; i < count; ++i) {
    const auto start = Clock::now();
    requester.request();
    seconds.push_back(secondsSince(start));
  }
}

double medianOf(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Every allocation of 1,024 bytes or more a mapping of its own, and no fast bins: what an agent
/// process runs with. Benchmarks run in the order of their registration, so it is set for the later
/// ones.
void useAgentAllocator(bool use) {
  if (use) {
    mallopt(M_MMAP_THRESHOLD, 1024);
    mallopt(M_MXFAST, 0);
  }
}

/// Median latency of one request against one pass through the chain. Target: at most 1.15.
void latency(benchmark::State& state) {
  useAgentAllocator(state.range(0) != 0);
  Requester requester;
  HandOverChain chain;
  ChainRequester chainRequester(chain);
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    constexpr int kBatch = 100;
    const auto start = Clock::now();
    sample(requester, kBatch, ours);
    state.SetIterationTime(secondsSince(start));
    sample(chainRequester, kBatch, theirs);
  }
  const double our = medianOf(ours);
  const double their = medianOf(theirs);
  state.counters["ours_us"] = our * 1e6;
  state.counters["theirs_us"] = their * 1e6;
  state.counters["ratio"] = our / their;
}
BENCHMARK(latency)->ArgName("agent_allocator")->Arg(0)->Arg(1)->UseManualTime();

/// Seconds that 64 requesters need for `each` requests each.
template <class MakeRequester>
double secondsOfAll(int each, MakeRequester makeRequester) {
  constexpr int kRequesters = 64;
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < kRequesters; ++i) {
    threads.emplace_back([&] {
      auto requester = makeRequester();
      while (!go) {
        std::this_thread::yield();
      }
      for (int n = 0; n < each; ++n) {
        requester->request();
      }
    });
  }
  const auto start = Clock::now();
  go = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  return secondsSince(start);
}

/// Requests per second of 64 requesters against passes through the chain. Target: at least 1.
void throughput(benchmark::State& state) {
  useAgentAllocator(state.range(0) != 0);
  HandOverChain chain;
  double ours = 0;
  double theirs = 0;
  for (auto _ : state) {
    constexpr int kEach = 100;
    const double seconds = secondsOfAll(kEach, [] { return std::make_unique<Requester>(); });
    state.SetIterationTime(seconds);
    ours += seconds;
    theirs += secondsOfAll(kEach, [&] { return std::make_unique<ChainRequester>(chain); });
  }
  state.counters["ratio"] = theirs / ours;
}
BENCHMARK(throughput)->ArgName("agent_allocator")->Arg(0)->Arg(1)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
