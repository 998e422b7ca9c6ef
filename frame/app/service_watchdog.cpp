#include "frame/app/service_watchdog.h"

#include <ace/Reactor.h>
#include <ace/Time_Value.h>
#include <qovpub/qov_common_debugkit.h>

#include <cerrno>
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
constexpr long kNoTimer = -1;
constexpr const char* kFunction = "ServiceWatchdog";

void error(unsigned long long logId, unsigned int line, const std::string& message) {
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
  const ACE_Time_Value interval(patience / kFeedings);
  timerId_ = ACE_Reactor::instance()->schedule_timer(this, nullptr, ACE_Time_Value::zero, interval);
  if (timerId_ == kNoTimer) {
    error(log_id::kNoWatchdog, __LINE__,
          textOf({"feed the service manager's watchdog", {}, 0, {}, errnoText(errno)}));
  }
}

ServiceWatchdog::~ServiceWatchdog() {
  if (timerId_ != kNoTimer) {
    ACE_Reactor::instance()->cancel_timer(timerId_);
  }
}

int ServiceWatchdog::handle_timeout(const ACE_Time_Value&, const void*) {
  const auto stuck = progress_->look(StuckLeaders::Clock::now(), RunningManagers::leaders());
  tell(stuck);
  if (stuck.empty()) {
    manager_.feedWatchdog();
  }
  return 0;
}

void ServiceWatchdog::tell(const std::vector<StuckLeaders::Leader>& stuck) {
  std::set<unsigned int> now;
  for (const StuckLeaders::Leader& leader : stuck) {
    now.insert(leader.moduleId);
    if (stuck_.count(leader.moduleId) == 0) {
      const std::string text = describe(leader);
      error(log_id::kLeaderStuck, __LINE__, "The service manager's watchdog is not fed: " + text);
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
