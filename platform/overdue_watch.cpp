#include "platform/overdue_watch.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <limits>
#include <new>

#include "platform/all_signals_blocked.h"

namespace qov::platform {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr std::int64_t kNothingCovered = std::numeric_limits<std::int64_t>::max();

// Ends the thread while ACE, which this library is linked against and therefore outlives it, can
// still log.
struct StopsAtExit {
  ~StopsAtExit() { OverdueWatch::instance().stop(); }
} stopsAtExit;

}  // namespace

OverdueWatch& OverdueWatch::instance() {
  static OverdueWatch* const watch = new OverdueWatch;
  return *watch;
}

OverdueWatch::OverdueWatch() : shortest_(kNothingCovered) {
  // A daemon forks: hold the lock across it, so that the child finds it in a known state.
  pthread_atfork([] { instance().lock_.lock(); }, [] { instance().lock_.unlock(); },
                 [] { instance().forgetThreadAfterFork(); });
}

void OverdueWatch::forgetThreadAfterFork() {
  running_ = false;  // the thread has not come along
  stopping_ = false;
  new (&changed_) std::condition_variable;  // the old one counts a waiter that is not here
  shortest_.store(kNothingCovered, std::memory_order_relaxed);
  ThreadSlots::keepOnlyMine();
  lock_.unlock();
}

void OverdueWatch::lowerShortest(std::int64_t limit) {
  const std::lock_guard<std::mutex> held(lock_);
  if (stopping_ || limit >= shortest_.load(std::memory_order_relaxed)) {
    return;
  }
  shortest_.store(limit, std::memory_order_relaxed);
  shorter_ = true;
  if (!running_) {
    startThread();
  }
  changed_.notify_one();
}

void OverdueWatch::startThread() {
  const AllSignalsBlocked blocked;
  const auto body = [](void* watch) -> void* {
    static_cast<OverdueWatch*>(watch)->run();
    return nullptr;
  };
  // Without the thread the guards still look at the clock when they close.
  running_ = pthread_create(&thread_, nullptr, body, this) == 0;
  if (running_) {
    pthread_setname_np(thread_, "qov-overdue");
  }
}

void OverdueWatch::stop() {
  bool join = false;
  {
    const std::lock_guard<std::mutex> held(lock_);
    stopping_ = true;
    join = running_;
    running_ = false;
    changed_.notify_one();
  }
  if (join) {
    pthread_join(thread_, nullptr);
  }
}

void OverdueWatch::run() {
  std::unique_lock<std::mutex> held(lock_);
  while (!stopping_) {
    shorter_ = false;
    held.unlock();
    const steady_clock::time_point next = look();
    held.lock();
    changed_.wait_until(held, next, [this] { return stopping_ || shorter_; });
  }
}

steady_clock::time_point OverdueWatch::look() {
  // The exact time, at or after what the guards read: a look at a deadline must not come too soon.
  const std::int64_t now = nanoseconds(steady_clock::now().time_since_epoch()).count();
  std::int64_t next = now + shortest_.load(std::memory_order_relaxed);
  for (ThreadSlots* thread = ThreadSlots::first(); thread != nullptr; thread = thread->next()) {
    for (GuardSlot& slot : thread->slots()) {
      const std::int64_t deadline = slot.deadline();
      GuardSlot::Handling overdue;
      if (deadline > now) {
        next = std::min(next, deadline);
      } else if (deadline != 0 && slot.claim(deadline, overdue)) {
        logStillOpen(overdue, thread->threadId());
      }
    }
  }
  return steady_clock::time_point(nanoseconds(next));
}

void logStillOpen(const GuardSlot::Handling& overdue, int threadId) {
  ACE_LOG_MSG->msg_ostream(overdue.log, false);
  ACE_ERROR((LM_WARNING,
             "%D %M (%t) FowGuard: handling of kind %u, level %u in thread %d is still going on "
             "after %u s\n",
             overdue.kind, overdue.level, threadId, overdue.seconds));
}

void logClosedLate(const GuardSlot::Handling& overdue) {
  ACE_ERROR((LM_WARNING,
             "%D %M (%t) FowGuard: handling of kind %u, level %u took longer than %u s\n",
             overdue.kind, overdue.level, overdue.seconds));
}

}  // namespace qov::platform
