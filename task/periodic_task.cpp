#include <ace/OS_NS_sys_time.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_periodic_task.h>
#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <exception>

#include "diag/log_ids.h"
#include "task/ending_thread.h"
#include "task/period_schedule.h"

namespace {

constexpr std::chrono::hours kLongest(100 * 365 * 24);

}  // namespace

QOVPeriodicTask::QOVPeriodicTask(CQOV_TaskMgr* mgr) : CQOV_StaticSchecheduledTask(mgr) {}

void QOVPeriodicTask::every(Duration period, Duration first) {
  period_ = std::min<Duration>(period, kLongest);
  first_ = std::clamp<Duration>(first, Duration::zero(), kLongest);
  if (running_) {
    begin();
  }
}

void QOVPeriodicTask::begin() {
  due_ = Clock::now() + first_;
}

int QOVPeriodicTask::svc() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int QOVPeriodicTask::svc()");
  running_ = true;
  begin();
  // Messages and ticks take turns, so that neither keeps the other from coming.
  while (serveUntilDue(log)) {
    tickIfDue(log);
  }
  return 0;
}

bool QOVPeriodicTask::serveUntilDue(CQOVDebugKitGuard& log) {
  if (period_ <= Duration::zero()) {
    return serveNext(log, nullptr);
  }
  const auto left = std::max(due_ - Clock::now(), Clock::duration::zero());
  // Rounded up: a wait that ends too early would be one more.
  ACE_Time_Value until =
      ACE_OS::gettimeofday() + ACE_Time_Value(std::chrono::ceil<std::chrono::microseconds>(left));
  return serveNext(log, &until);
}

void QOVPeriodicTask::tickIfDue(CQOVDebugKitGuard& log) {
  if (period_ <= Duration::zero() || Clock::now() < due_) {
    return;
  }
  const Clock::time_point due = due_;
  tickOnce(log);
  // Unless the tick itself has changed the period.
  if (due_ == due && period_ > Duration::zero()) {
    missed_ += qov::moveOn(due_, period_, Clock::now());
  }
}

void QOVPeriodicTask::tickOnce(CQOVDebugKitGuard& log) {
  try {
    tick();
  } catch (const std::exception& error) {
    log.error(qov::log_id::kTickFailed, "tick", __LINE__, "Module(%d) a tick failed: %s",
              taskMgr()->moduleId(), error.what());
  } catch (...) {
    qov::passOnEndOfThread();
    log.error(qov::log_id::kTickFailed, "tick", __LINE__, "Module(%d) a tick failed: %s",
              taskMgr()->moduleId(), "an unknown exception");
  }
}

int QOVPeriodicTask::handleMessage(CQOV_MsgPackage&) {
  return -1;
}

void QOVPeriodicTask::getOpcList(std::list<unsigned long long>&) {}
