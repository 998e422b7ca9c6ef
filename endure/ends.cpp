// Agents get stop signals, SIGUSR1 and exit() at instants that are drawn to the
// nanosecond over the whole of their lives, from the first instruction to the last. Each ends
// within ten seconds, as documented: in order with status 0 and the record that says so; with the
// status that exit() was given; by the signal where it has come before the frame has begun, or to a
// start that fails. Modules that have started stop first. None crashes, and none leaves a process
// behind.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "endure/campaign.h"
#include "tests/process/agent_process.h"
#include "tests/support/counts.h"

namespace qov::endure {
namespace {

using test::AgentProcess;
using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::nanoseconds;

constexpr const char* kLoading = "Loading module ";
constexpr const char* kStarted = "Successed to init /";
constexpr const char* kStopped = " had shutdown.";
constexpr std::chrono::seconds kHang{10};
constexpr int kSignals[] = {SIGTERM, SIGINT, SIGUSR1};
constexpr const char* kModuleStarted = "Successed to init module ";
constexpr const char* kModuleStopped = "Unload module ";

struct Life {
  const char* name;
  std::vector<std::string> modules;
  std::map<std::string, std::string> environment;
  std::vector<std::string> arguments;
  bool starts;  ///< else a module refuses to, or ends the process
  /// How it ends when it is left alone; the frame's own end is 0.
  int exitStatus;
  bool endsByItself;
  const char* file;  ///< which has a thread call exit(); null: none does
};

const std::vector<Life>& lives() {
  static const std::vector<Life> all{
      {"chatter", {"chatter", "other_chatter"}, {}, {"-n"}, true, 0, false, nullptr},
      {"requests", {"tracing", "traced"}, {}, {"-n"}, true, 0, false, nullptr},
      {"deadlock", {"asking", "asked"}, {}, {"-n"}, true, 0, false, nullptr},
      {"daemon", {"chatter", "tracing", "traced"}, {}, {}, true, 0, false, nullptr},
      {"refusal", {"chatter", "other_chatter", "bad"}, {}, {"-n"}, false, 1, true, nullptr},
      {"refused daemon", {"chatter", "bad"}, {}, {}, false, 1, true, nullptr},
      {"exit", {"chatter"}, {{"QOV_TEST_MAIN", "before"}}, {"-n"}, true, 3, false, "lingering"},
      {"exit of init", {"chatter"}, {{"QOV_TEST_EXIT", "first"}}, {"-n"}, false, 3, true, nullptr},
      {"exit of main", {"chatter"}, {{"QOV_TEST_MAIN", "exit"}}, {"-n"}, true, 0, true, nullptr},
      {"return",
       {"tracing", "traced"},
       {{"QOV_TEST_MAIN", "return"}},
       {"-n"},
       true,
       0,
       true,
       nullptr},
  };
  return all;
}

/// The processes that this one is to collect.
std::vector<pid_t> children() {
  std::istringstream list(test::readFile("/proc/thread-self/children"));
  std::vector<pid_t> pids;
  for (pid_t pid = 0; list >> pid;) {
    pids.push_back(pid);
  }
  return pids;
}

void sleepUntil(Clock::time_point instant) {
  const auto since = std::chrono::duration_cast<Nanoseconds>(instant.time_since_epoch()).count();
  const timespec time{since / 1'000'000'000, since % 1'000'000'000};
  ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

class Ends {
 public:
  explicit Ends(Campaign& campaign) : campaign_(campaign) {
    ::prctl(PR_SET_TIMERSLACK, 1);
    for (const Life& life : lives()) {
      lengths_.push_back(lengthOf(life));
    }
  }

  void run() {
    campaign_.beginTime();
    while (campaign_.goesOn()) {
      live();
    }
  }

 private:
  void live() {
    const auto which = static_cast<std::size_t>(
        campaign_.between(0, static_cast<std::int64_t>(lives().size()) - 1));
    Run run(*this, lives()[which]);
    run.disturb(lengths_[which]);
    run.end();
    ++runs_;
  }

  /// One agent, from its start to the end of its last process.
  class Run {
   public:
    Run(Ends& ends, const Life& life) : ends_(ends), life_(life) {
      for (const auto& [name, value] : life.environment) {
        agent_.setEnvironment(name, value);
      }
      if (life.file != nullptr) {
        // Its own thread, which there is before the frame has begun, must not take signals.
        agent_.prepareChild([] {
          sigset_t signals;
          sigemptyset(&signals);
          for (const int signum : kSignals) {
            sigaddset(&signals, signum);
          }
          ::sigprocmask(SIG_BLOCK, &signals, nullptr);
        });
      }
      agent_.useModules(life.modules);
      agent_.start(life.arguments);
    }

    bool waitForStart() { return agent_.waitForLog(kStarted); }

    /// Up to four signals, or signals that end nothing and the call of exit(), within that time.
    /// Not both: the C library does not bear an exit() while main() returns.
    void disturb(Nanoseconds length) {
      const bool exits = life_.file != nullptr && ends_.campaign_.between(0, 1) == 0;
      std::vector<Clock::time_point> instants(
          static_cast<std::size_t>(ends_.campaign_.between(1, 4)));
      for (Clock::time_point& instant : instants) {
        instant = begin_ + Nanoseconds(ends_.campaign_.between(0, length.count()));
      }
      std::sort(instants.begin(), instants.end());
      for (const Clock::time_point instant : instants) {
        const int signum = kSignals[ends_.campaign_.between(0, 2)];
        sleepUntil(instant);
        if (!exits) {
          send(signum);
        } else if (signum == SIGUSR1) {
          send(SIGUSR1);
        } else if (agent_.log().find(kLoading) != std::string::npos) {
          // Before that the main thread uses what exit() destroys, which nobody promises to bear.
          agent_.makeFile(life_.file);
          isToEnd_ = true;
        }
      }
    }

    /// Ends it, if nothing has, and looks at how it has ended.
    void end() {
      if (!isToEnd_ && !life_.endsByItself) {
        send(SIGTERM);
      }
      const Clock::time_point asked = Clock::now();
      while (collect()) {
        if (Clock::now() > asked + kHang) {
          return lost("is there after ten seconds");
        }
        if (isDaemon()) {
          // One to the starter as it ends has reached nobody.
          send(SIGTERM);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - asked);
      ends_.longest_ = std::max<std::int64_t>(ends_.longest_, took.count());
      judge();
    }

    Nanoseconds length() const { return Clock::now() - begin_; }

   private:
    bool isDaemon() const { return life_.arguments.empty(); }

    void send(int signum) {
      for (const pid_t pid : children()) {
        ::kill(pid, signum);
      }
      sent_.insert(signum);
      isToEnd_ = isToEnd_ || signum != SIGUSR1;
      ++ends_.signals_;
    }

    /// False when none is left.
    bool collect() {
      int status = 0;
      pid_t pid = 0;
      while ((pid = ::waitpid(-1, &status, WNOHANG)) > 0) {
        statuses_.push_back(status);
      }
      return pid == 0;
    }

    void judge() {
      const std::string log = agent_.log();
      const bool hasBegun = log.find(kLoading) != std::string::npos;
      const bool hasStarted = log.find(kStarted) != std::string::npos;
      const bool hasStopped = log.find(kStopped) != std::string::npos;
      if (life_.starts &&
          test::timesOf(kModuleStarted, log) != test::timesOf(kModuleStopped, log)) {
        lost("ended without stopping its modules");
      }
      for (const int status : statuses_) {
        if (WIFSIGNALED(status)) {
          // Before the frame has begun, or by what a start that fails gives back.
          if (sent_.count(WTERMSIG(status)) == 0 || (life_.starts && hasBegun)) {
            lost("ended by signal " + std::to_string(WTERMSIG(status)));
          }
        } else if (!mayEndWith(WEXITSTATUS(status), hasStarted, hasStopped)) {
          lost("ended with status " + std::to_string(WEXITSTATUS(status)));
        }
      }
      if (agent_.errors().find("Failed to go on") != std::string::npos) {
        lost("has crashed");
      }
      const bool bySignal = WIFSIGNALED(statuses_.front());
      ++(hasStopped ? ends_.inOrder_ : bySignal ? ends_.bySignal_ : ends_.otherwise_);
    }

    bool mayEndWith(int status, bool hasStarted, bool hasStopped) const {
      const bool asAlone = status == life_.exitStatus && (status != 0 || life_.endsByItself);
      const bool asStarter = isDaemon() && (status == 0 || (status == 1 && !hasStarted));
      return (status == 0 && hasStopped) || asAlone || (asStarter && hasStarted == hasStopped);
    }

    void lost(const std::string& how) {
      std::string signals;
      for (const int signum : sent_) {
        signals += " " + std::to_string(signum);
      }
      ends_.campaign_.fail(std::string(life_.name) + ": " + how + "; sent were" + signals +
                           "; standard error:\n" + agent_.errors() + "log:\n" + agent_.log());
      for (const pid_t pid : children()) {
        ::kill(pid, SIGKILL);
      }
    }

    Ends& ends_;
    const Life& life_;
    AgentProcess agent_;
    const Clock::time_point begin_ = Clock::now();
    std::set<int> sent_;
    bool isToEnd_ = false;
    std::vector<int> statuses_;  ///< of its processes, the one first that ended first
  };

  /// How long it takes undisturbed to start and stop at once.
  Nanoseconds lengthOf(const Life& life) {
    Run run(*this, life);
    if (life.starts && !run.waitForStart()) {
      campaign_.fail(std::string(life.name) + " does not start");
    }
    run.end();
    return run.length();
  }

  Campaign& campaign_;
  std::vector<Nanoseconds> lengths_;
  Figure& runs_ = campaign_.figure("agents");
  Figure& signals_ = campaign_.figure("signals");
  Figure& inOrder_ = campaign_.figure("in_order");
  Figure& bySignal_ = campaign_.figure("by_signal");
  Figure& otherwise_ = campaign_.figure("otherwise");
  Figure& longest_ = campaign_.figure("longest_end_ms");
};

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign<qov::endure::Ends>(argc, argv);
}
