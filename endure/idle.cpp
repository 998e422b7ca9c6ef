// An agent with many modules that nobody sends anything: no thread of it runs, but for the main one
// when it looks at the size of the log file, and once an hour the one that looks for messages whose
// handling hangs.
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "endure/campaign.h"
#include "tests/process/agent_process.h"
#include "tests/support/counts.h"

namespace qov::endure {
namespace {

using test::AgentProcess;
using test::numberBehind;
using test::readFile;
using test::waitUntil;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr int kModules = QOV_ENDURE_MODULES;
constexpr seconds kLogCheck(5);
/// Of a thread for one look: it wakes, may wait for the disk, and others may take the processor.
constexpr long kMostWaits = 4;
constexpr std::chrono::hours kWatchLooks(1);
/// In kilobytes, of all the time.
constexpr long kMostGrowth = 64;

/// How often each thread of a process has waited for something: one that has not since the last
/// look, and waits, has not run, so it has made no system call.
struct Standstill {
  std::map<int, long> waits_;
  bool othersWait_ = true;  ///< all but the main thread and the watch
  int watch_ = 0;           ///< the thread that looks for messages whose handling hangs
};

Standstill lookAt(pid_t process) {
  Standstill found;
  const std::filesystem::path folder = "/proc/" + std::to_string(process);
  for (const auto& thread : std::filesystem::directory_iterator(folder / "task")) {
    const int id = std::stoi(thread.path().filename());
    const std::string status = readFile(thread.path() / "status");
    if (status.empty()) {
      continue;  // it has just ended
    }
    found.waits_[id] = numberBehind("\nvoluntary_ctxt_switches:", status) +
                       numberBehind("\nnonvoluntary_ctxt_switches:", status);
    const bool isWatch = status.find("Name:\tqov-overdue\n") == 0;
    if (isWatch) {
      found.watch_ = id;
    }
    found.othersWait_ = found.othersWait_ && (id == process || isWatch ||
                                              status.find("\nState:\tS") != std::string::npos);
  }
  return found;
}

/// Without pages of files, which the system takes and gives as it likes.
long residentOf(pid_t process) {
  return numberBehind("\nAnonymous:",
                      readFile("/proc/" + std::to_string(process) + "/smaps_rollup"));
}

class IdleCampaign {
 public:
  explicit IdleCampaign(Campaign& campaign)
      : campaign_(campaign), libraries_(campaign.folder() / "lib") {}
  ~IdleCampaign() { campaign_.keepIfLost(agent_.root().path()); }
  IdleCampaign(const IdleCampaign&) = delete;
  IdleCampaign& operator=(const IdleCampaign&) = delete;

  void run() {
    copyModules();
    const char* const others = std::getenv("LD_LIBRARY_PATH");
    const std::string before = others != nullptr ? std::string(":") + others : "";
    agent_.setEnvironment("LD_LIBRARY_PATH", libraries_.string() + before);
    configure();
    agent_.start({"-n"});
    if (agent_.waitForLog("Successed to init /") && standsStill(agent_.pid())) {
      watch(agent_.pid());
      end();
    } else {
      campaign_.fail("the agent does not come to rest");
    }
  }

 private:
  static std::string nameOf(int module) {
    return "idle" + std::string(module < 10 ? "0" : "") + std::to_string(module);
  }

  /// Copies: each has its own code and data, as modules have.
  void copyModules() const {
    std::filesystem::create_directories(libraries_);
    for (int module = 0; module < kModules; ++module) {
      std::filesystem::copy_file(QOV_ENDURE_IDLE_MODULE,
                                 libraries_ / ("libqovp_" + nameOf(module) + ".so"));
    }
  }

  void configure() {
    AgentRoot::write(agent_.root().cfgFile(),
                     "[QOV_GLOBAL]\nPROC_PID=7\n[LOG_CFG]\nSendTerminal=0\nChkInterval=" +
                         std::to_string(kLogCheck.count()) +
                         "\nLogFileMaxSize=10240\nLogFileMaxCnt=3\nLogLevel=2\n");
    std::vector<std::string> modules;
    modules.reserve(kModules);
    for (int module = 0; module < kModules; ++module) {
      modules.push_back(nameOf(module));
    }
    agent_.useModules(modules);
  }

  /// Until every thread but the main one has stood still for two seconds: what the modules have
  /// sent at their start is handled, and the time-outs that were set for that are over.
  static bool standsStill(pid_t process) {
    Standstill last;
    return waitUntil([&] {
      std::this_thread::sleep_for(seconds(2));
      Standstill now = lookAt(process);
      now.waits_.erase(process);
      std::swap(last, now);
      return last.othersWait_ && last.waits_ == now.waits_ && !last.waits_.empty();
    });
  }

  /// From the first look at the log file on, which touches pages that nobody has touched before.
  void watch(pid_t process) {
    std::this_thread::sleep_for(kLogCheck + seconds(1));
    campaign_.beginTime();
    const Clock::time_point begin = Clock::now();
    const Standstill first = lookAt(process);
    threads_ = static_cast<std::int64_t>(first.waits_.size());
    const long resident = residentOf(process);
    while (campaign_.goesOn()) {
      std::this_thread::sleep_for(seconds(1));
      compare(first, lookAt(process), process);
      if (campaign_.failed()) {
        break;  // there may be no process to look at any more
      }
      const auto past = std::chrono::duration_cast<seconds>(Clock::now() - begin);
      checkLooks("the main thread", mainWaits_, past / kLogCheck + 1);
      checkLooks("the watch", watchWaits_, past / kWatchLooks + 1);
      resident_ = residentOf(process);
      growth_ = resident_ - resident;
      if (growth_ > kMostGrowth) {
        campaign_.fail("memory has grown by " + std::to_string(growth_) + " KiB");
      }
    }
  }

  void checkLooks(const std::string& whose, std::int64_t waits, std::int64_t looks) {
    if (waits > looks * kMostWaits) {
      campaign_.fail(whose + " has run " + std::to_string(waits) + " times in the time of " +
                     std::to_string(looks) + " looks");
    }
  }

  void compare(const Standstill& first, const Standstill& now, pid_t process) {
    if (now.waits_.size() != first.waits_.size()) {
      campaign_.fail("there are " + std::to_string(now.waits_.size()) + " threads");
      return;
    }
    if (!now.othersWait_) {
      campaign_.fail("a thread runs");
    }
    std::int64_t others = 0;
    for (const auto& [thread, waits] : now.waits_) {
      const auto before = first.waits_.find(thread);
      const long more = before != first.waits_.end() ? waits - before->second : 1;
      if (thread == process) {
        mainWaits_ = more;
      } else if (thread == now.watch_) {
        watchWaits_ = more;
      } else if (more != 0) {
        others += more;
        campaign_.fail("thread " + name(process, thread) + " has run " + std::to_string(more) +
                       " times");
      }
    }
    otherWaits_ = others;
  }

  static std::string name(pid_t process, int thread) {
    std::string text =
        readFile("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) + "/comm");
    return text.substr(0, text.find('\n'));
  }

  void end() {
    agent_.send(SIGINT);
    if (agent_.waitForEnd().exitStatus != 0) {
      campaign_.fail("the agent has not ended as it should");
    }
  }

  Campaign& campaign_;
  const std::filesystem::path libraries_;
  AgentProcess agent_{QOV_ENDURE_AGENT};
  Figure& threads_ = campaign_.figure("threads");
  Figure& mainWaits_ = campaign_.figure("main_wakes");
  Figure& watchWaits_ = campaign_.figure("watch_wakes");
  Figure& otherWaits_ = campaign_.figure("other_wakes");
  Figure& resident_ = campaign_.figure("anonymous_kb");
  Figure& growth_ = campaign_.figure("growth_kb");
};

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign<qov::endure::IdleCampaign>(argc, argv);
}
