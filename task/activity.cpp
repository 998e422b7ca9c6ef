#include <pthread.h>
#include <qovpub/qov_activity.h>
#include <unistd.h>

#include "task/activity_switch.h"
#include "task/module_context.h"
#include "task/running_managers.h"

namespace qov {
namespace {

/// What `list` appends of the counters of each module.
template <class Value, class List>
std::vector<Value> ofAllModules(List list) {
  std::vector<Value> all;
  RunningManagers::visit([&](const CQOV_TaskMgr& manager, bool) {
    list(ModuleContext::of(manager).counters_, manager.moduleId(), all);
  });
  return all;
}

/// 0 if nobody has asked.
thread_local int here = 0;

/// The only thread of a forked child has another number than it had.
void forgetHere() {
  here = 0;
}

[[maybe_unused]] const int registered = ::pthread_atfork(nullptr, nullptr, &forgetHere);

}  // namespace

int threadHere() {
  if (here == 0) {
    here = ::gettid();
  }
  return here;
}

}  // namespace qov

QOVActivity::QOVActivity() noexcept {
  qov::ActivitySwitch::on();
}

QOVActivity::~QOVActivity() {
  qov::ActivitySwitch::off();
}

std::vector<QOVRunningHandler> QOVActivity::handlers() const {
  return qov::ofAllModules<QOVRunningHandler>(
      [](const qov::ModuleCounters& counters, unsigned int moduleId, auto& all) {
        counters.handlers_.list(moduleId, all);
      });
}

std::vector<QOVWaitingRequest> QOVActivity::requests() const {
  return qov::ofAllModules<QOVWaitingRequest>(
      [](const qov::ModuleCounters& counters, unsigned int moduleId, auto& all) {
        counters.waitingRequests_.list(moduleId, all);
      });
}

std::vector<QOVHandlerTimes> QOVActivity::times() const {
  return qov::ofAllModules<QOVHandlerTimes>(
      [](const qov::ModuleCounters& counters, unsigned int moduleId, auto& all) {
        counters.handlers_.listTimes(moduleId, all);
      });
}
