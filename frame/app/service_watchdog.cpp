#include "frame/app/service_watchdog.h"

#include <ace/Reactor.h>
#include <qovpub/qov_common_debugkit.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "diag/kit_registry.h"
#include "diag/log_ids.h"
#include "frame/env/failure.h"
#include "task/running_managers.h"

namespace qov {

namespace {

using std::chrono::microseconds;

constexpr int kFeedings = 4;
/// Who waits less is not fed in time, and holds up nothing else.
constexpr microseconds kShortest{1000};
constexpr const char* kFunction = "ServiceWatchdog";

void logError(unsigned long long logId, unsigned int line, const std::string& message) {
  if (const CQOVDebugKit* const kit = KitRegistry::find(0)) {
    kit->error(logId, kFunction, line, message);
  }
}

std::string describe(const StuckLeaders::Leader& leader) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(leader.stuckFor);
  return "the leader of module " + std::to_string(leader.moduleId) + " (" + leader.name +
         ") has been at the same work for " + std::to_string(seconds.count()) + " s";
}

}  // namespace

ServiceWatchdog::ServiceWatchdog(ServiceManager& manager) : manager_(manager) {
  if (!manager.patience()) {
    return;
  }
  const microseconds patience = *manager.patience();
  progress_.emplace(patience / 2);
  const int error = startTimer(std::max(patience / kFeedings, kShortest));
  if (error != 0) {
    logError(log_id::kNoWatchdog, __LINE__,
             textOf({"feed the service manager's watchdog", {}, 0, {}, errnoText(error)}));
  }
}

ServiceWatchdog::~ServiceWatchdog() {
  if (timer_ != ACE_INVALID_HANDLE) {
    ACE_Reactor::instance()->remove_handler(
        this, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
    ::close(timer_);
  }
}

int ServiceWatchdog::startTimer(microseconds interval) {
  timer_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  if (timer_ == ACE_INVALID_HANDLE) {
    return errno;
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(interval);
  const timespec period{seconds.count(), std::chrono::nanoseconds(interval - seconds).count()};
  const itimerspec atOnceAndThen{period, {0, 1}};
  if (::timerfd_settime(timer_, 0, &atOnceAndThen, nullptr) == 0 &&
      ACE_Reactor::instance()->register_handler(this, ACE_Event_Handler::READ_MASK) == 0) {
    return 0;
  }
  return errno;
}

int ServiceWatchdog::handle_input(ACE_HANDLE) {
  std::uint64_t rounds = 0;
  static_cast<void>(!::read(timer_, &rounds, sizeof rounds));
  try {
    look();
  } catch (const std::bad_alloc&) {
    // Nobody knows how the leaders are. The next look may find memory before the manager gives up.
  }
  return 0;
}

void ServiceWatchdog::look() {
  const auto stuck = progress_->look(StuckLeaders::Clock::now(), RunningManagers::leaders());
  tell(stuck);
  if (stuck.empty()) {
    manager_.feedWatchdog();
  }
}

void ServiceWatchdog::tell(const std::vector<StuckLeaders::Leader>& stuck) {
  std::set<unsigned int> now;
  for (const StuckLeaders::Leader& leader : stuck) {
    now.insert(leader.moduleId);
    if (stuck_.count(leader.moduleId) == 0) {
      const std::string text = describe(leader);
      logError(log_id::kLeaderStuck, __LINE__,
               "The service manager's watchdog is not fed: " + text);
      manager_.tellStatus(text);
    }
  }
  if (!stuck_.empty() && now.empty()) {
    if (const CQOVDebugKit* const kit = KitRegistry::find(0)) {
      kit->info(log_id::kLeadersGoOn, kFunction, __LINE__,
                "The service manager's watchdog is fed again: no leader is stuck any more");
    }
    manager_.tellReady();
  }
  stuck_ = std::move(now);
}

}  // namespace qov
