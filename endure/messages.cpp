// Three modules that send each other whatever modules can send, for as long as it takes: life after
// life of a few seconds, each with pools of other sizes.
#include <ace/DLL_Manager.h>
#include <ace/Reactor.h>
#include <ace/Time_Value.h>
#include <qovpub/qov_app.h>
#include <qovpub/qov_module_loader.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "endure/campaign.h"
#include "endure/flatness.h"
#include "endure/own_process.h"
#include "endure/traffic.h"
#include "tests/support/agent_root.h"
#include "tests/support/process_end.h"
#include "tests/support/sanitizers.h"

namespace qov::endure {
namespace {

using Clock = std::chrono::steady_clock;

/// Records of WARNING and ERROR, of which there are many; files that rotate all the time.
constexpr const char* kConfiguration =
    "[QOV_GLOBAL]\nPROC_PID=7\n"
    "[LOG_CFG]\nSendTerminal=0\nChkInterval=1\nLogFileMaxSize=2048\nLogFileMaxCnt=3\nLogLevel=4\n";

constexpr const char* kTrafficLibraries[] = {"qove_traffic_40", "qove_traffic_41",
                                             "qove_traffic_42"};

/// How late all but one time-out in a thousand may be, on a machine that is busy with nothing else.
/// On one that is, four threads in turn wait for a processor: the one that asks, the leader for the
/// request and for its time-out, and the one that has asked.
constexpr std::chrono::milliseconds kMostLate(250);
constexpr int kThreadsOfTimeOut = 4;
/// Of fewer, the few latest would decide.
constexpr std::int64_t kFewestTimeOuts = 3000;

CQOV_Module_Loader& moduleLoader() {
  return *ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance();
}

/// Notes, as long as it lives, how late a thread goes on that waits for time alone.
class LateThread {
 public:
  explicit LateThread(Lateness& lateness)
      : thread_([this, &lateness] {
          while (!stop_) {
            const Clock::time_point then = Clock::now() + std::chrono::milliseconds(10);
            std::this_thread::sleep_until(then);
            lateness.note(
                std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - then));
          }
        }) {}
  ~LateThread() {
    stop_ = true;
    thread_.join();
  }
  LateThread(const LateThread&) = delete;
  LateThread& operator=(const LateThread&) = delete;

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

class MessagesCampaign {
 public:
  explicit MessagesCampaign(Campaign& campaign) : campaign_(campaign) {}
  ~MessagesCampaign() { campaign_.keepIfLost(root_.path()); }
  MessagesCampaign(const MessagesCampaign&) = delete;
  MessagesCampaign& operator=(const MessagesCampaign&) = delete;

  void run() {
    ::setenv("QOV_ROOT", root_.path().c_str(), 1);
    AgentRoot::write(root_.cfgFile(), kConfiguration);
    for (const char* const module : kTrafficLibraries) {
      root_.addModule(module);
    }
    {
      CQOVapp app;
      do {
        live(app);
        hasNoThreadLeft();
        measure();
      } while (campaign_.goesOn());
    }
    hasNoThreadLeft();
    judge();
  }

 private:
  void live(CQOVapp& app) {
    Traffic traffic(campaign_.random()(), lateness_,
                    [this](const std::string& what) { campaign_.fail(what); });
    if (begin(app)) {
      traffic.feed();
      flow();
      traffic.dryUp();
      for (const std::string& difference : settle(traffic.counts())) {
        campaign_.fail(difference);
      }
      note(traffic.counts());
    }
    moduleLoader().unload();
    ++lives_;
  }

  /// The frame loads the modules of the first life.
  bool begin(CQOVapp& app) {
    char program[] = "endure_messages";
    char foreground[] = "-n";
    char* words[] = {program, foreground, nullptr};
    const bool begun = lives_ == 0 ? app.init(2, words) == 0 : moduleLoader().load();
    if (!begun) {
      campaign_.fail("the modules were not loaded");
    }
    if (QOV_TEST_TSAN != 0 && lives_ == 0) {
      keepLibraries();
    }
    return begun;
  }

  /// ThreadSanitizer reports the order of two locks of ACE's where a library goes for good.
  static void keepLibraries() {
    for (const char* const module : kTrafficLibraries) {
      ACE_DLL_Manager::instance()->open_dll(module, RTLD_LAZY, ACE_SHLIB_INVALID_HANDLE);
    }
  }

  /// What event_loop_done() does meanwhile.
  void flow() {
    const Clock::time_point end =
        Clock::now() + std::chrono::milliseconds(campaign_.between(300, 1500));
    while (Clock::now() < end && campaign_.goesOn()) {
      ACE_Time_Value most(0, 100000);
      ACE_Reactor::instance()->handle_events(most);
    }
  }

  void note(const CountsOfAll& counts) {
    for (std::size_t place = 0; place < kTrafficModules; ++place) {
      const TrafficCounts& own = counts[place];
      std::uint64_t answers = 0;
      for (const TrafficCounts& other : counts) {
        answers += other.answersTo_[place];
      }
      add(requests_, own.asked_);
      add(answered_, own.answered_ + own.refused_);
      add(timedOut_, own.timedOut_);
      add(lateAnswers_, answers - own.answered_ - own.refused_);
      add(noReceiver_, own.noReceiver_ + own.toldNobody_);
      add(noRoom_, own.noRoom_ + own.noRoomLater_ + own.askNotTaken_ + own.tellNotTaken_);
      add(notices_, own.told_);
      add(lostNotices_, lostNotices(counts, place));
    }
    latest_ = lateness_.asked_.allButOneIn(1000).count();
    latestLater_ = lateness_.askedLater_.allButOneIn(1000).count();
    latestThread_ = lateness_.thread_.allButOneIn(1000).count();
  }

  static void add(Figure& figure, std::uint64_t more) { figure += static_cast<std::int64_t>(more); }

  /// The frame's own, which watch over the stop, stay from the first life on.
  void hasNoThreadLeft() {
    const auto none = [this] {
      const OwnThreads threads = ownThreads();
      return threads.modules_ == 0 && (frameThreads_ == 0 || threads.all_ == frameThreads_);
    };
    if (!test::waitUntil(none)) {
      campaign_.fail("there are " + std::to_string(ownThreads().all_) + " threads, not " +
                     std::to_string(frameThreads_));
    }
    frameThreads_ = ownThreads().all_;
  }

  void measure() {
    const OwnMemory memory = ownMemory();
    memory_.add(memory.resident_, memory.heap_);
  }

  void judge() {
    memory_.judge();
    if (QOV_TEST_TSAN != 0) {
      campaign_.notWatched("lateness, with ThreadSanitizer");
    } else if (timedOut_ < kFewestTimeOuts) {
      campaign_.notWatched("lateness, of fewer than 3,000 time-outs");
    } else if (latest_ > kMostLate.count() + kThreadsOfTimeOut * latestThread_) {
      campaign_.fail("one time-out in a thousand was " + std::to_string(latest_) +
                     " ms late or more, one thread in a thousand " + std::to_string(latestThread_) +
                     " ms");
    }
  }

  Campaign& campaign_;
  const AgentRoot root_{"endure_messages"};
  LatenessOfAll lateness_;
  const LateThread lateThread_{lateness_.thread_};
  std::size_t frameThreads_ = 0;
  Figure& lives_ = campaign_.figure("lives");
  Figure& requests_ = campaign_.figure("requests");
  Figure& answered_ = campaign_.figure("answered");
  Figure& timedOut_ = campaign_.figure("timed_out");
  Figure& lateAnswers_ = campaign_.figure("late_answers");
  Figure& noReceiver_ = campaign_.figure("no_receiver");
  Figure& noRoom_ = campaign_.figure("no_room");
  Figure& notices_ = campaign_.figure("notices");
  Figure& lostNotices_ = campaign_.figure("lost_notices");
  Figure& latest_ = campaign_.figure("late_p999_ms");
  Figure& latestLater_ = campaign_.figure("later_p999_ms");
  Figure& latestThread_ = campaign_.figure("thread_p999_ms");
  Flatness memory_{campaign_};
};

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign<qov::endure::MessagesCampaign>(argc, argv);
}
