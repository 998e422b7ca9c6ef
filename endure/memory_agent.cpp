// The agent of campaign "memory". In one phase of its life one allocation fails; what it does in
// that phase, but for start and stop, it then does once more, and that must succeed.
//   QOV_ENDURE_PHASE    start, request, exchange, reload or stop
//   QOV_ENDURE_REFUSED  which allocation of the phase fails: 1 for the first, 0 for none
// How many allocations the phase had stands in the file "counted" of its root directory when it
// ends in order, who asked for the one that failed in the file "refused", and there is a file
// "failed" if what the phase does did not succeed, which says how its request ended. Exit
// status 9: what came after it did not succeed; standard error says what.
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <fcntl.h>
#include <qovpub/qov_app.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_long_socket.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_task_scheduler.h>
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "endure/memory_agent.h"
#include "endure/one_refusal.h"
#include "tests/process/modules/agent_files.h"
#include "tests/process/modules/own_message.h"
#include "tests/support/counts.h"
#include "tests/support/files.h"
#include "tools/common/endpoint_protocol.h"

namespace {

using qov::endure::OneRefusal;

const std::string kPhase = std::getenv("QOV_ENDURE_PHASE");
constexpr const char* kReloaded = "Log settings in force";
constexpr const char* kNotReloaded = "; the log stays as it is";
constexpr unsigned int kLostSeconds = 15;
constexpr std::chrono::seconds kLost(kLostSeconds);

/// The part of the life in which an allocation fails, if it is that one.
class Phase {
 public:
  explicit Phase(const std::string& name) : isIt_(name == kPhase) {
    if (isIt_) {
      constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC;
      OneRefusal::begin(std::atol(std::getenv("QOV_ENDURE_REFUSED")),
                        ::open(qov::test::agentFile("refused").c_str(), kFlags, 0600));
    }
  }
  ~Phase() {
    if (isIt_) {
      const long count = OneRefusal::end();
      qov::test::makeFile("counted", std::to_string(count));
    }
  }
  Phase(const Phase&) = delete;
  Phase& operator=(const Phase&) = delete;

 private:
  const bool isIt_;
};

std::vector<CQOV_TaskScheduler*> schedulers;  ///< of the modules

/// A module makes its workers on a thread of its own, which CQOVapp::init() does not wait for.
void waitForWorkers() {
  for (CQOV_TaskScheduler* scheduler : schedulers) {
    if (!scheduler->waitForPool(kLostSeconds)) {
      std::cerr << "Failed to make the workers of module " << scheduler->taskMgr()->moduleId()
                << " within " << kLostSeconds << " s" << std::endl;
      std::_Exit(9);
    }
  }
}

std::mutex mutex;
std::condition_variable hasAsked;
const char* ended = nullptr;  ///< how the last request has; null: not yet

/// False also for a message that gets lost on its way to the one that asks.
bool request() {
  {
    const std::lock_guard<std::mutex> lock(mutex);
    ended = nullptr;
  }
  const auto put = [](ACE_Message_Block* block) {
    using Loader = ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>;
    return Loader::instance()->sendMsg(qov::endure::kAskingModule, block) == 0;
  };
  if (!qov::test::putAMessageTo(qov::endure::kAskingModule, put, qov::endure::kGoAndAsk)) {
    return false;
  }
  std::unique_lock<std::mutex> lock(mutex);
  hasAsked.wait_for(lock, kLost, [] { return ended != nullptr; });
  return ended != nullptr && std::string_view(ended) == QOV_TextOf(QOVReason::kNone);
}

bool exchange(CQOVLongSocket& link) {
  using namespace qov::endpoint;
  CT7QPackageV3 message;
  message.addRecord(command(kGetNext, kInterfaces));
  return link.sendMsg(&message) == 0;
}

int records(const char* text) {
  return qov::test::timesOf(text, qov::test::readFile(QOV_Utility::getProcessLogFileName()));
}

/// Whether the settings are in force; what came of it has to be told in any case.
bool reload() {
  const OneRefusal::Exempt exempt;
  const int reloaded = records(kReloaded);
  const int notReloaded = records(kNotReloaded);
  ::kill(::getpid(), SIGUSR1);
  const auto limit = std::chrono::steady_clock::now() + kLost;
  while (std::chrono::steady_clock::now() < limit) {
    if (records(kReloaded) > reloaded) {
      return true;
    }
    if (records(kNotReloaded) > notReloaded) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::cerr << "No record says what came of a reload" << std::endl;
  std::_Exit(9);
}

template <class Work>
void inPhase(const std::string& name, const Work& work) {
  bool done = false;
  const char* why = nullptr;
  {
    const Phase phase(name);
    try {
      done = work();
      const std::lock_guard<std::mutex> lock(mutex);
      why = ended;
    } catch (const std::bad_alloc&) {
      why = QOV_TextOf(QOVReason::kNoMemory);  // what an exchange may give
    }
  }
  if (!done) {
    qov::test::makeFile("failed", name + (why != nullptr ? std::string(": ") + why : ""));
  }
  const bool again = work();
  {
    const std::lock_guard<std::mutex> lock(mutex);
    ended = nullptr;
  }
  if (!again) {
    std::cerr << "Failed to do this once more after the phase: " << name << std::endl;
    std::_Exit(9);
  }
}

void live() {
  {
    const OneRefusal::Exempt exempt;  // of the director, not of the modules
    inPhase("request", [] { return request(); });
  }
  CQOVLongSocket link;
  inPhase("exchange", [&link] { return exchange(link); });
  inPhase("reload", [] { return reload(); });
}

}  // namespace

extern "C" void qov_endure_scheduler(CQOV_TaskScheduler* scheduler) {
  const OneRefusal::Exempt exempt;
  schedulers.push_back(scheduler);
}

extern "C" void qov_endure_asked(const char* how) {
  const std::lock_guard<std::mutex> lock(mutex);
  ended = how;
  hasAsked.notify_one();
}

int main(int argc, char** argv) try {
  std::optional<Phase> stopping;  // to the end of the frame
  std::optional<Phase> starting(std::in_place, "start");
  CQOVapp app;
  if (app.init(argc, argv) != 0) {
    return 1;
  }
  waitForWorkers();
  starting.reset();
  std::thread director([&stopping] {
    live();
    stopping.emplace("stop");
    ::kill(::getpid(), SIGTERM);
  });
  app.event_loop_done();
  director.join();
  return 0;
} catch (const CQOV_Exception& e) {
  std::cerr << e.what() << '\n';
  return 1;
}
