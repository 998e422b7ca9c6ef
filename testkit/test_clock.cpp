#include <qovpub/qov_testkit.h>

#include <algorithm>

#include "testkit/router.h"
#include "testkit/thread_of.h"

void QOVTestKit::start(QOVPeriodicTask& task) {
  periods_.push_back({&task, now_ + task.first()});
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
  QOVPeriodicTask& task = *period.task;
  const Duration every = task.period();
  const Duration first = task.first();
  const qov::ThreadOf thread(task);
  task.tick();
  if (task.period() != every || task.first() != first) {
    period.due = now_ + task.first();
    return;
  }
  // Times that have passed during the tick are left out.
  const Duration late = std::max(now_ - period.due, Duration(1));
  period.due += ((late - Duration(1)) / every + 1) * every;
}
