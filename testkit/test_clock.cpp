#include <qovpub/qov_testkit.h>

#include <algorithm>

#include "testkit/router.h"
#include "testkit/thread_of.h"

void QOVTestKit::start(QOVPeriodicTask& task) {
  // As in svc(), so that every() sets due_.
  task.state_.running_ = true;
  periods_.push_back({&task, task.state_.due_, now_ + task.first()});
}

void QOVTestKit::noteNewPeriods() {
  for (Period& period : periods_) {
    if (period.told != period.task->state_.due_) {
      period.told = period.task->state_.due_;
      period.due = now_ + period.task->first();
    }
  }
}

std::size_t QOVTestKit::advance(Duration span) {
  const Duration end = now_ + span;
  std::size_t ticks = 0;
  for (;;) {
    Period* const next = nextUntil(end);
    if (router_->runLater(next != nullptr ? next->due : std::max(end, now_))) {
      continue;
    }
    if (next == nullptr) {
      break;
    }
    now_ = std::max(now_, next->due);
    tick(*next);
    ++ticks;
  }
  now_ = std::max(now_, end);
  return ticks;
}

void QOVTestKit::stop() {
  router_->stop();
}

QOVTestKit::Period* QOVTestKit::nextUntil(Duration end) {
  noteNewPeriods();
  Period* next = nullptr;
  for (Period& period : periods_) {
    const bool isDue = period.task->period() > Duration::zero() && period.due <= end;
    if (isDue && (next == nullptr || period.due < next->due)) {
      next = &period;
    }
  }
  return next;
}

void QOVTestKit::tick(Period& period) {
  try {
    const qov::ThreadOf thread(*period.task);
    period.task->tick();
  } catch (...) {
    moveOn(period);
    throw;
  }
  moveOn(period);
}

void QOVTestKit::moveOn(Period& period) {
  QOVPeriodicTask& task = *period.task;
  if (period.told != task.state_.due_) {
    noteNewPeriods();
    return;
  }
  const Duration late = std::max(now_ - period.due, Duration(1));
  const auto missed = (late - Duration(1)) / task.period();
  period.due += (missed + 1) * task.period();
  task.state_.missed_ += static_cast<std::uint64_t>(missed);
}
