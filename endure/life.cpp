// Campaign "life": the modules of one process are loaded and unloaded again and again, in sets and
// at instants of the seed's, while they talk to one another and threads of the program send to
// them. Every other load or so is to fail, in each of the ways in which one can. Nothing hangs or
// crashes, and once a set is gone it has left nothing: no thread, descriptor or mapping, and no
// memory.
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <qovpub/qov_logging_strategy.h>
#include <qovpub/qov_module_loader.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "endure/campaign.h"
#include "endure/flatness.h"
#include "endure/life_module.h"
#include "endure/own_process.h"
#include "tests/process/modules/own_message.h"
#include "tests/support/agent_root.h"
#include "tests/support/counts.h"
#include "tests/support/process_end.h"
#include "tests/support/sanitizers.h"

namespace qov::endure {
namespace {

/// The last one is let go by ACE when it is unloaded.
constexpr std::array kGood{"qove_life_100", "qove_life_101", "qove_life_102", "qove_life_103",
                           "qove_life_104"};
// Of which ThreadSanitizer reports an inversion of ACE's own locks.
constexpr std::size_t kGoodOnes = kGood.size() - QOV_TEST_TSAN;
constexpr std::array kBad{"qove_life_refusing",  "qove_life_throwing", "qove_life_gid256",
                          "qove_life_twin",      "qovt_no_entry",      "qovt_null_object",
                          "qovt_throwing_entry", "qovp_needing",       "qove_nowhere"};
/// Has the gid of the first of the good ones.
constexpr const char* kTwin = "qove_life_twin";

/// Ends the process if what it is made for takes more than ten seconds, with ThreadSanitizer more
/// than a minute. On the main thread.
class Watch {
 public:
  explicit Watch(const char* step) {
    step_ = step;
    std::signal(SIGALRM, &tell);
    ::alarm(QOV_TEST_TSAN != 0 ? 60 : 10);
  }
  ~Watch() { ::alarm(0); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

 private:
  static void tell(int) {
    constexpr const char* kText = "FAILED: has not ended in time: ";
    static_cast<void>(!::write(STDOUT_FILENO, kText, std::strlen(kText)));
    static_cast<void>(!::write(STDOUT_FILENO, step_, std::strlen(step_)));
    static_cast<void>(!::write(STDOUT_FILENO, "\n", 1));
    std::abort();
  }

  static const char* step_;
};
const char* Watch::step_ = nullptr;

/// What of the process a module could leave behind.
struct Left {
  std::ptrdiff_t threads = test::entriesOf("/proc/self/task");
  std::ptrdiff_t descriptors = test::entriesOf("/proc/self/fd");
  long files = 0;      ///< mappings of libraries
  long anonymous = 0;  ///< other mappings: stacks, of which the C library keeps some, and heaps
  Left() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
      ++(line.find('/') != std::string::npos ? files : anonymous);
    }
  }
  std::string text() const {
    return std::to_string(threads) + " threads, " + std::to_string(descriptors) + " descriptors, " +
           std::to_string(files) + " mappings of files";
  }
};

using ProcessLoader = ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>;

/// Sends to the modules of a loader, from two threads, as long as there is one.
class Sending {
 public:
  explicit Sending(Figure& sent) : sent_(sent) {
    for (std::thread& thread : threads_) {
      thread = std::thread([this] { send(); });
    }
  }
  ~Sending() {
    stop_ = true;
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;

  /// Null for none. No thread is in the former one afterwards.
  void sendTo(CQOV_Module_Loader* loader) {
    const std::lock_guard<std::mutex> lock(mutex_);
    loader_ = loader;
  }

 private:
  void send() {
    for (unsigned turn = 0; !stop_; ++turn) {
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (int count = 0; loader_ != nullptr && count < 8; ++count) {
          sendOne(*loader_, turn + static_cast<unsigned>(count));
        }
      }
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

  void sendOne(CQOV_Module_Loader& loader, unsigned turn) {
    const auto gid = static_cast<u_short>(kFirstGid + turn % kGids);
    const auto put = [&](ACE_Message_Block* block) {
      if (turn % 64 == 0) {
        loader.sendMsg2All(block);
        return true;
      }
      return loader.sendMsg(gid, block) == 0;
    };
    sent_ += test::putAMessageTo(gid, put, 1 + turn / kGids % kLastOfThem) ? 1 : 0;
  }

  Figure& sent_;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  CQOV_Module_Loader* loader_ = nullptr;  ///< guarded by mutex_
  std::array<std::thread, 2> threads_;
};

class Life {
 public:
  explicit Life(Campaign& campaign) : campaign_(campaign) {
    ::prctl(PR_SET_TIMERSLACK, 1);
    root_.writeConfig(5);
    ::setenv("QOV_ROOT", root_.path().c_str(), 1);
    log_.initLogStrategy(root_.cfgFile().c_str(), root_.logFile().c_str());
  }

  ~Life() { campaign_.keepIfLost(root_.path()); }
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  void run() {
    // Each once, for what the process makes once and keeps: a library that has failed stays open.
    for (const char* const bad : kBad) {
      load({kGood[0], bad}, false);
    }
    for (int cycle = 0; cycle < kWarmUp && !campaign_.failed(); ++cycle) {
      live();
    }
    before_.emplace();
    campaign_.beginTime();
    while (campaign_.goesOn()) {
      live();
    }
    memory_.judge();
    if (sent_ == 0) {
      campaign_.fail("no message reached a module");
    }
  }

 private:
  static constexpr int kWarmUp = 100;
  /// Cycles from one look at the memory to the next.
  static constexpr int kCyclesOfRest = 100;
  /// What the C library keeps of stacks and heaps differs by some.
  static constexpr long kAnonymousSlack = 100;

  void live() {
    std::vector<const char*> modules;
    for (std::size_t good = 0; good < kGoodOnes; ++good) {
      if (campaign_.between(0, 1) == 1) {
        modules.push_back(kGood[good]);
      }
    }
    const bool fails = campaign_.between(0, 1) == 1;
    if (fails) {
      modules.push_back(kBad[static_cast<std::size_t>(campaign_.between(0, kBad.size() - 1))]);
      if (modules.back() == std::string_view(kTwin) &&
          modules.front() != std::string_view(kGood[0])) {
        modules.push_back(kGood[0]);
      }
    } else if (modules.empty()) {
      modules.push_back(kGood[0]);
    }
    load(modules, !fails);
    ++(fails ? failing_ : good_);
    ++cycles_;
    if (before_) {
      compare();
      if (cycles_ % kCyclesOfRest == 0) {
        const OwnMemory memory = ownMemory();
        memory_.add(memory.resident_, memory.heap_);
      }
    }
  }

  void load(const std::vector<const char*>& modules, bool succeeds) {
    root_.removeModules();
    for (const char* const module : modules) {
      root_.addModule(module);
    }
    // What a failed load has loaded goes with the loader alone.
    auto own = std::make_unique<CQOV_Module_Loader>();
    CQOV_Module_Loader& loader = succeeds ? *ProcessLoader::instance() : *own;
    sending_.sendTo(&loader);
    bool loaded = false;
    {
      const Watch watch("a load");
      loaded = loader.load();
    }
    if (loaded != succeeds) {
      std::string names;
      for (const char* const module : modules) {
        names += std::string(" ") + module;
      }
      campaign_.fail((loaded ? "loaded were" : "not loaded were") + names);
    }
    pause();
    {
      const Watch watch("an unload");
      loader.unload();
      sending_.sendTo(nullptr);
    }
    const Watch watch("the end of a loader");
    own.reset();
  }

  void pause() {
    const timespec time{0, campaign_.between(0, 3'000'000)};
    ::clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
  }

  void compare() {
    std::optional<Left> now;
    // A thread that was joined may still be leaving, also when it was counted first.
    const bool same = test::waitUntil(
        [&] {
          now.emplace();
          before_->threads = std::min(before_->threads, now->threads);
          return now->threads == before_->threads && now->descriptors == before_->descriptors &&
                 now->files == before_->files;
        },
        std::chrono::seconds(10));
    if (!same) {
      campaign_.fail("there were " + before_->text() + "; there are " + now->text());
    }
    if (now->anonymous > before_->anonymous + kAnonymousSlack) {
      campaign_.fail("there were " + std::to_string(before_->anonymous) +
                     " mappings of no file; there are " + std::to_string(now->anonymous));
    }
  }

  Campaign& campaign_;
  Figure& cycles_ = campaign_.figure("cycles");
  Figure& good_ = campaign_.figure("good_loads");
  Figure& failing_ = campaign_.figure("failing_loads");
  Flatness memory_{campaign_};
  AgentRoot root_{"endure_life"};
  CQOV_Logging_Strategy log_;
  Figure& sent_ = campaign_.figure("sent");
  Sending sending_{sent_};
  std::optional<Left> before_;
};

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign<qov::endure::Life>(argc, argv);
}
