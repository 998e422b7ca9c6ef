#include <ace/OS_NS_sys_time.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_periodic_task.h>
#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <exception>

#include "diag/log_ids.h"
#include "task/ending_thread.h"
#include "task/period_schedule.h"
#include "task/serve_next.h"

namespace {

using qov::PeriodState;
using Clock = PeriodState::Clock;
using Duration = QOVPeriodicTask::Duration;

constexpr std::chrono::hours kLongest(100 * 365 * 24);

void begin(PeriodState& state) {
  state.due_ = Clock::now() + state.first_;
}

/// Serves a message, or waits until the next tick is due. False when the task is to end.
bool serveUntilDue(QOVPeriodicTask& task, const PeriodState& state, CQOVDebugKitGuard& log) {
  if (state.period_ <= Duration::zero()) {
    return qov::serveNext(task, log, nullptr);
  }
  const auto left = std::max(state.due_ - Clock::now(), Clock::duration::zero());
  // Rounded up: a wait that ends too early would be one more.
  ACE_Time_Value until =
      ACE_OS::gettimeofday() + ACE_Time_Value(std::chrono::ceil<std::chrono::microseconds>(left));
  return qov::serveNext(task, log, &until);
}

void tickOnce(QOVPeriodicTask& task, CQOVDebugKitGuard& log) {
  try {
    task.tick();
  } catch (const std::exception& error) {
    log.error(qov::log_id::kTickFailed, "tick", __LINE__, "Module(%d) a tick failed: %s",
              task.taskMgr()->moduleId(), error.what());
  } catch (...) {
    qov::passOnEndOfThread();
    log.error(qov::log_id::kTickFailed, "tick", __LINE__, "Module(%d) a tick failed: %s",
              task.taskMgr()->moduleId(), "an unknown exception");
  }
}

void tickIfDue(QOVPeriodicTask& task, PeriodState& state, CQOVDebugKitGuard& log) {
  if (state.period_ <= Duration::zero() || Clock::now() < state.due_) {
    return;
  }
  const Clock::time_point due = state.due_;
  tickOnce(task, log);
  // Unless the tick itself has changed the period.
  if (state.due_ == due && state.period_ > Duration::zero()) {
    state.missed_ += qov::moveOn(state.due_, state.period_, Clock::now());
  }
}

}  // namespace

QOVPeriodicTask::QOVPeriodicTask(CQOV_TaskMgr* mgr) : CQOV_StaticSchecheduledTask(mgr) {}

void QOVPeriodicTask::every(Duration period, Duration first) {
  state_.period_ = std::min<Duration>(period, kLongest);
  state_.first_ = std::clamp<Duration>(first, Duration::zero(), kLongest);
  if (state_.running_) {
    begin(state_);
  }
}

int QOVPeriodicTask::svc() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int QOVPeriodicTask::svc()");
  state_.running_ = true;
  begin(state_);
  // Messages and ticks take turns, so that neither keeps the other from coming.
  while (serveUntilDue(*this, state_, log)) {
    tickIfDue(*this, state_, log);
  }
  return 0;
}

int QOVPeriodicTask::handleMessage(CQOV_MsgPackage&) {
  return -1;
}

void QOVPeriodicTask::getOpcList(std::list<unsigned long long>&) {}
