// The module of the campaigns "reload" and "soak": threads of the three kinds that a module may
// have log numbered records at all levels in turn, and with QOV_ENDURE_CLOCK somebody sets the time
// of day all the while. What is random comes from QOV_ENDURE_SEED. The file "loud_pid" has the
// process's number; when the module is gone, the file "loud" has each thread's last number.
#include <ace/Thread.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <thread>

#include "endure/loud.h"
#include "tests/process/modules/agent_files.h"
#include "tests/support/shifted_clock.h"

namespace {

using qov::endure::kLoudThreads;
using qov::endure::LoudLevel;

/// Each thread has numbers of its own.
std::mt19937_64 randomOf(std::size_t thread) {
  const char* const seed = std::getenv("QOV_ENDURE_SEED");
  return std::mt19937_64((seed == nullptr ? 0 : std::strtoull(seed, nullptr, 10)) + thread);
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(50, 0, "loud") {}
  ~Module() override;

  CQOV_Task* createTask() override { return nullptr; }
  bool initEnv() override;

 private:
  struct Loud {
    Module* module = nullptr;
    std::size_t thread = 0;
    std::uint64_t last = 0;
  };

  static ACE_THR_FUNC_RETURN runAceThread(void* loud);
  void beLoud(Loud& loud) const;
  void setTheClock() const;

  std::atomic<bool> stop_{false};
  std::array<Loud, kLoudThreads> louds_;
  std::array<std::thread, kLoudThreads - 1> threads_;
  ACE_hthread_t ace_thread_{};
  bool has_ace_thread_ = false;
  std::thread clock_;
};

bool Module::initEnv() {
  for (std::size_t i = 0; i < kLoudThreads; ++i) {
    louds_[i].module = this;
    louds_[i].thread = i;
  }
  qov::test::makeFile("loud_pid", std::to_string(::getpid()));
  for (std::size_t i = 0; i < threads_.size(); ++i) {
    threads_[i] = std::thread([this, i] { beLoud(louds_[i]); });
  }
  has_ace_thread_ = ACE_Thread::spawn(&runAceThread, &louds_.back(), THR_NEW_LWP | THR_JOINABLE,
                                      nullptr, &ace_thread_) == 0;
  if (std::getenv("QOV_ENDURE_CLOCK") != nullptr) {
    clock_ = std::thread([this] { setTheClock(); });
  }
  return has_ace_thread_;
}

Module::~Module() {
  stop_ = true;
  for (std::thread& thread : threads_) {
    if (thread.joinable()) {
      thread.join();
    }
  }
  if (has_ace_thread_) {
    ACE_Thread::join(ace_thread_);
  }
  if (clock_.joinable()) {
    clock_.join();
  }
  std::string text;
  for (const Loud& loud : louds_) {
    text += std::to_string(loud.last) + "\n";
  }
  qov::test::makeFile("loud", text);
}

ACE_THR_FUNC_RETURN Module::runAceThread(void* loud) {
  auto* const own = static_cast<Loud*>(loud);
  own->module->beLoud(*own);
  return nullptr;
}

void Module::beLoud(Loud& loud) const {
  std::mt19937_64 random = randomOf(loud.thread);
  while (!stop_) {
    const CQOVDebugKit& kit = *CQOVDebugKitMgr::instance()->find(0);
    const std::uint64_t number = ++loud.last;
    const std::string message =
        qov::endure::loudText(loud.thread, number, random() % 64 == 0 ? 5000 : random() % 100);
    switch (qov::endure::loudLevelOf(number)) {
      case LoudLevel::kDebug:
        kit.debug(1, __FUNCTION__, __LINE__, message);
        break;
      case LoudLevel::kInfo:
        kit.info(1, __FUNCTION__, __LINE__, message);
        break;
      case LoudLevel::kWarn:
        kit.warn(1, __FUNCTION__, __LINE__, message);
        break;
      case LoudLevel::kError:
        kit.error(1, __FUNCTION__, __LINE__, message);
        break;
    }
    if (random() % 16 == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(16));
    }
  }
}

/// Forwards and backwards, by less than a second up to days.
void Module::setTheClock() const {
  std::mt19937_64 random = randomOf(kLoudThreads);
  qov::test::StandingTimeOfDay clock(std::time(nullptr));
  while (!stop_) {
    const auto furthest = static_cast<time_t>(1) << random() % 20;
    clock.advance(static_cast<time_t>(random()) % furthest * (random() % 2 == 0 ? 1 : -1));
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
  }
}

}  // namespace

QOV_MODULE(Module)
