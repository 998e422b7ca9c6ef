#include "platform/overdue_watch.h"

#include <ace/Log_Msg.h>
#include <cxxabi.h>

#include <algorithm>
#include <limits>
#include <new>

#include "platform/signal_mask.h"

namespace qov::platform {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr std::int64_t kNothingCovered = std::numeric_limits<std::int64_t>::max();

// How long a fork or the end of the process waits for a look that is under way. Only a log that
// takes nothing any more, such as a pipe that nobody reads, makes a look last longer.
constexpr std::chrono::seconds kLongestLook(3);

// For what the watching thread writes, which nothing is above, and what a guard does in its
// destructor: a destination of the program that throws costs the line, not the process, and a
// thread that is cancelled goes after it.
template <class Line>
void logOrDoWithout(Line line) {
  int cancellation = PTHREAD_CANCEL_ENABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancellation);
  try {
    line();
  } catch (const abi::__forced_unwind&) {
    throw;  // swallowing the end of a thread would end the process
  } catch (...) {
  }
  pthread_setcancelstate(cancellation, nullptr);
}

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
  pthread_atfork([] { instance().holdForFork(); }, [] { instance().lock_.unlock(); },
                 [] { instance().forgetThreadAfterFork(); });
}

void OverdueWatch::holdForFork() {
  std::unique_lock<std::mutex> held(lock_);
  // While it logs the thread holds ACE's log lock, which nobody would release in the child.
  waitForTheLook(held);
  held.release();
}

bool OverdueWatch::waitForTheLook(std::unique_lock<std::mutex>& held) {
  return lookedAround_.wait_for(held, kLongestLook, [this] { return !looking_; });
}

void OverdueWatch::forgetThreadAfterFork() {
  running_ = false;  // the thread has not come along
  stopping_ = false;
  looking_ = false;
  new (&changed_) std::condition_variable;  // the old ones count waiters that are not here
  new (&lookedAround_) std::condition_variable;
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
  const SignalMask none(SIG_SETMASK, allSignals());
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
  std::unique_lock<std::mutex> held(lock_);
  stopping_ = true;
  if (!running_) {
    return;
  }
  running_ = false;
  changed_.notify_one();
  const bool ends = waitForTheLook(held);
  held.unlock();
  // A thread that is stuck in the log must not keep the process from its end.
  if (ends) {
    pthread_join(thread_, nullptr);
  } else {
    pthread_detach(thread_);
  }
}

void OverdueWatch::run() {
  std::unique_lock<std::mutex> held(lock_);
  while (!stopping_) {
    shorter_ = false;
    looking_ = true;
    held.unlock();
    const steady_clock::time_point next = look();
    held.lock();
    looking_ = false;
    lookedAround_.notify_all();
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
  logOrDoWithout([&] {
    ACE_ERROR((LM_WARNING,
               "%D %M (%t) FowGuard: handling of kind %u, level %u in thread %d is still going on "
               "after %u s\n",
               overdue.kind, overdue.level, threadId, overdue.seconds));
  });
}

void logClosedLate(const GuardSlot::Handling& overdue) {
  logOrDoWithout([&] {
    ACE_ERROR((LM_WARNING,
               "%D %M (%t) FowGuard: handling of kind %u, level %u took longer than %u s\n",
               overdue.kind, overdue.level, overdue.seconds));
  });
}

}  // namespace qov::platform
