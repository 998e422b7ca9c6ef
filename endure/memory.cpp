// Campaign "memory": each allocation of an agent's start, of a request between two modules, of an
// exchange with the management endpoint, of a reload and of the stop fails once, in an agent of its
// own (memory_agent.cpp). The agent goes on, or ends with the documented result: no other end, no
// hang; and no leak, in a build with AddressSanitizer.
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "endure/campaign.h"
#include "tests/process/agent_process.h"
#include "tests/tools/endpoint_process.h"

namespace qov::endure {
namespace {

using test::AgentProcess;
using test::Ending;

/// A part of the agent's life.
struct Phase {
  const char* name;
  int mayEnd;  ///< how many of its allocations may end the agent: some more than do
  Figure* ended = nullptr;
  int tried = 0;
  int notReached = 0;  ///< refusals that had nothing to refuse
};

struct Refusal {
  Phase* phase;
  long number;         ///< 0: none
  std::uint64_t turn;  ///< in this order
};

class Memory {
 public:
  explicit Memory(Campaign& campaign) : campaign_(campaign) {
    if (!endpoint_.start({"--quiet"})) {
      campaign_.fail("qov-endpoint does not start: " + endpoint_.errors());
    }
  }

  /// All of them, in an order of the seed's, or as many as there is time for.
  void run() {
    std::vector<Refusal> refusals;
    for (Phase& phase : phases_) {
      const long count = allocationsOf(phase);
      campaign_.figure(std::string("of_") + phase.name) = count;
      phase.ended = &campaign_.figure(std::string("ended_of_") + phase.name);
      // Whatever the number of allocations, which threads let differ.
      std::mt19937_64 random(campaign_.random()());
      for (long number = 1; number <= count; ++number) {
        refusals.push_back({&phase, number, random()});
      }
    }
    std::sort(refusals.begin(), refusals.end(),
              [](const Refusal& one, const Refusal& other) { return one.turn < other.turn; });
    left_ = static_cast<std::int64_t>(refusals.size());
    campaign_.beginTime();
    for (const Refusal& refusal : refusals) {
      if (!campaign_.goesOn()) {
        return;
      }
      refuse(refusal);
      --left_;
    }
  }

 private:
  /// How many allocations the phase has. Threads let it differ a little from run to run.
  long allocationsOf(Phase& phase) {
    AgentProcess agent(QOV_ENDURE_MEMORY_AGENT);
    const Refusal none{&phase, 0, 0};
    const Ending ending = live(agent, none);
    const std::string counted = test::readFile(agent.root().path() / "counted");
    const long count = ending.exitStatus != 0 || counted.empty() ? 0 : std::stol(counted);
    if (count == 0) {
      lost(agent, none, "did not end in order, or counted nothing");
    }
    return count;
  }

  Ending live(AgentProcess& agent, const Refusal& refusal) {
    agent.setEnvironment("QOV_ENDURE_PHASE", refusal.phase->name);
    agent.setEnvironment("QOV_ENDURE_REFUSED", std::to_string(refusal.number));
    agent.root().addModule("qove_memory_asking");
    agent.root().addModule("qove_memory_answering");
    AgentRoot::write(agent.root().cfgFile(),
                     test::readFile(agent.root().cfgFile()) +
                         "[MMT]\nMMT_ADDR=127.0.0.1:" + std::to_string(endpoint_.port()) + "\n");
    agent.start({"-n"});
    return agent.waitForEnd();
  }

  void refuse(const Refusal& refusal) {
    AgentProcess agent(QOV_ENDURE_MEMORY_AGENT);
    const Ending ending = live(agent, refusal);
    Phase& phase = *refusal.phase;
    const bool isStart = &phase == &phases_.front();
    ++phase.tried;
    if (test::readFile(agent.root().path() / "refused").empty() && ending.exitStatus == 0) {
      ++notReached_;
      // Threads let the number differ by some.
      if (++phase.notReached > kFewNotReached + phase.tried / 20) {
        lost(agent, refusal, "refused nothing, as too many others of this phase");
      }
    } else if (!ending.ended) {
      lost(agent, refusal, "hangs");
    } else if (ending.exitStatus == 0) {
      ++wentOn_;
      const std::string failed = test::readFile(agent.root().path() / "failed");
      failedOnce_ += failed.empty() ? 0 : 1;
      if (!failed.empty() && !std::regex_search(failed + agent.log() + agent.errors(), kReason)) {
        lost(agent, refusal, "did not say why it failed (" + failed + ")");
      }
    } else if (ending.signal == SIGABRT && endsWith(agent, kUncaught)) {
      if (++*phase.ended > phase.mayEnd) {
        lost(agent, refusal, "ended as too many others of this phase");
      }
    } else if (ending.exitStatus == 1 && isStart && endsWith(agent, kRefusedStart)) {
      ++didNotStart_;
    } else if (ending.exitStatus == 9 && isStart && std::regex_search(agent.log(), kNoWorker)) {
      ++noWorker_;  // so that nobody serves the requests that follow
    } else {
      lost(agent, refusal,
           ending.signal != 0 ? "ended by signal " + std::to_string(ending.signal)
                              : "exit status " + std::to_string(ending.exitStatus));
    }
  }

  /// Whether that is the last that the agent has said.
  static bool endsWith(const AgentProcess& agent, const std::regex& line) {
    return std::regex_search(agent.errors(), line);
  }

  void lost(AgentProcess& agent, const Refusal& refusal, const std::string& how) {
    campaign_.fail(how + ", with allocation " + std::to_string(refusal.number) + " of " +
                   refusal.phase->name + " refused to\n" +
                   test::readFile(agent.root().path() / "refused") + "standard error:\n" +
                   agent.errors() + "log:\n" + agent.log());
  }

  const std::regex kUncaught{"Failed to go on in thread [^\n]+: Cannot allocate memory\n$"};
  const std::regex kReason{R"([Cc]annot allocate memory|no memory|\]\[ERR\]\[)"};
  const std::regex kRefusedStart{"Failed to [^\n]+\n$"};
  const std::regex kNoWorker{"Failed to (create task|start a worker thread) in module "};

  static constexpr int kFewNotReached = 3;

  std::array<Phase, 5> phases_{
      {{"start", 70}, {"request", 0}, {"exchange", 0}, {"reload", 12}, {"stop", 12}}};

  Campaign& campaign_;
  test::EndpointProcess endpoint_;
  Figure& wentOn_ = campaign_.figure("went_on");
  Figure& failedOnce_ = campaign_.figure("failed_once");
  Figure& didNotStart_ = campaign_.figure("did_not_start");
  Figure& noWorker_ = campaign_.figure("without_worker");
  Figure& notReached_ = campaign_.figure("not_reached");
  Figure& left_ = campaign_.figure("left");
};

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign<qov::endure::Memory>(argc, argv);
}
