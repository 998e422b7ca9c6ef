#include <ace/Log_Msg.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <iosfwd>
#include <limits>

#include "platform/guard_second.h"
#include "platform/signal_mask.h"
#include "qovplatform/platform_guard.h"

using std::chrono::nanoseconds;

namespace qov::platform {

/// What the watching thread sees of one open guard. The guard's thread writes it; neither waits for
/// the other. Alone in its cache line.
class alignas(64) GuardSlot {
 public:
  std::atomic<std::int64_t> deadline{0};  ///< nanoseconds of the steady clock, kFree or kTaken
  std::atomic<unsigned> kind{0};
  std::atomic<unsigned> level{0};
  std::atomic<unsigned> seconds{0};
  std::atomic<int> thread{0};               ///< the kernel's id, as debuggers and /proc show it
  std::atomic<std::ostream*> log{nullptr};  ///< where its thread's records go
};

namespace {

constexpr std::int64_t kFree = 0;
/// Being filled, or its line is the watching thread's business.
constexpr std::int64_t kTaken = -1;
constexpr std::int64_t kNothingCovered = std::numeric_limits<std::int64_t>::max();
constexpr std::memory_order kRelaxed = std::memory_order_relaxed;

/// A thread looks for a free slot among this many, which are its own as long as not more than 128
/// threads have had guards; an ended thread's are not given anew. What finds none is checked on
/// closing only.
constexpr unsigned kDepth = 8;
std::array<GuardSlot, std::size_t{128} * kDepth> slots;
std::atomic<unsigned> nextFirstSlot{0};
[[gnu::tls_model("initial-exec")]] thread_local int threadId = 0;
[[gnu::tls_model("initial-exec")]] thread_local unsigned firstSlot = 0;

/// The shortest time that a guard was ever given. A guard that opens after a look cannot be overdue
/// before it has passed: the thread sleeps until then, or until the first deadline it has seen, and
/// guards need not wake it.
std::atomic<std::int64_t> shortest{kNothingCovered};
std::atomic<bool> started{false};
std::atomic<bool> running{false};
std::atomic<bool> stopping{false};
pthread_t watcher{};
sem_t changed;
sem_t ended;

nanoseconds guardTime(unsigned seconds) {
  static const std::chrono::milliseconds second = guardSecond();
  return second * static_cast<long long>(seconds);
}

/// The steady clock, up to a few milliseconds old: guards count whole seconds, and the exact time
/// costs more than all the rest.
nanoseconds guardNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::chrono::seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
}

timespec timespecOf(std::int64_t time) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  return {time / kSecond, time % kSecond};
}

/// The exact time, at or after what the guards read: a look at a deadline must not come too soon.
std::int64_t exactNow() {
  return nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// A destination of the program that throws costs the line, not the process. A thread that is
/// cancelled ends after the line.
template <class Line>
void logOrDoWithout(Line line) {
  int cancellation = PTHREAD_CANCEL_ENABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancellation);
  try {
    line();
  } catch (...) {
  }
  pthread_setcancelstate(cancellation, nullptr);
}

/// Logs the guard in `slot` unless it closes first.
void logStillOpen(GuardSlot& slot, std::int64_t deadline) {
  // Read before the slot is taken: from then on the guard's thread may close it and open another.
  const unsigned kind = slot.kind.load(kRelaxed);
  const unsigned level = slot.level.load(kRelaxed);
  const unsigned seconds = slot.seconds.load(kRelaxed);
  const int thread = slot.thread.load(kRelaxed);
  std::ostream* const log = slot.log.load(kRelaxed);
  if (slot.deadline.compare_exchange_strong(deadline, kTaken)) {
    ACE_LOG_MSG->msg_ostream(log, false);
    logOrDoWithout([=] {
      ACE_ERROR(
          (LM_WARNING,
           "%D %M (%t) FowGuard: handling of kind %u, level %u in thread %d is still going on "
           "after %u s\n",
           kind, level, thread, seconds));
    });
  }
}

/// Logs what is overdue and returns when to look again.
std::int64_t look() {
  const std::int64_t now = exactNow();
  std::int64_t next = now + shortest;
  for (GuardSlot& slot : slots) {
    const std::int64_t deadline = slot.deadline.load(std::memory_order_acquire);
    if (deadline > now) {
      next = std::min(next, deadline);
    } else if (deadline > 0) {
      logStillOpen(slot, deadline);
    }
  }
  return next;
}

void* watch(void*) {
  while (!stopping) {
    const timespec next = timespecOf(look());
    sem_clockwait(&changed, CLOCK_MONOTONIC, &next);
  }
  sem_post(&ended);
  return nullptr;
}

/// Makes sure that a guard of `limit` nanoseconds, open by now, is seen in time. Without the thread
/// the guards still look at the clock when they close.
void cover(std::int64_t limit) {
  std::int64_t known = shortest.load(kRelaxed);
  while (limit < known && !shortest.compare_exchange_weak(known, limit)) {
  }
  if (limit >= known || stopping) {
    return;
  }
  if (started.exchange(true)) {
    sem_post(&changed);
    return;
  }
  const SignalMask none(SIG_SETMASK, allSignals());
  if (pthread_create(&watcher, nullptr, &watch, nullptr) == 0) {
    pthread_setname_np(watcher, "qov-overdue");
    running = true;
  }
}

void beginAnew() {
  shortest = kNothingCovered;
  started = running = stopping = false;
  sem_init(&changed, 0, 0);
  sem_init(&ended, 0, 0);
}

/// The thread that forks is the only one in the child.
void keepOnlyMine() {
  const int formerId = threadId;
  threadId = formerId != 0 ? gettid() : 0;
  for (GuardSlot& slot : slots) {
    if (slot.deadline == kFree) {
      continue;
    }
    if (slot.thread == formerId) {
      slot.thread = threadId;
    } else {
      slot.deadline = kFree;
    }
  }
  beginAnew();
}

/// Ends the thread while ACE, which this library is linked against and therefore outlives it, can
/// still log.
struct WatchLife {
  WatchLife() {
    beginAnew();
    pthread_atfork(nullptr, nullptr, &keepOnlyMine);
  }
  ~WatchLife() {
    // A thread that is stuck in a log that takes nothing must not keep the process from its end.
    constexpr nanoseconds kLongestLook = std::chrono::seconds(3);
    stopping = true;
    sem_post(&changed);
    if (!running) {
      return;
    }
    const timespec limit = timespecOf(exactNow() + kLongestLook.count());
    while (sem_clockwait(&ended, CLOCK_MONOTONIC, &limit) != 0) {
      if (errno != EINTR) {
        return;
      }
    }
    pthread_join(watcher, nullptr);
  }
} watchLife;

/// Null when all are in use.
GuardSlot* takeSlot() {
  if (threadId == 0) {
    threadId = gettid();
    firstSlot = nextFirstSlot.fetch_add(kDepth) % slots.size();
  }
  for (unsigned i = 0; i < kDepth; ++i) {
    GuardSlot& slot = slots[firstSlot + i];
    std::int64_t deadline = slot.deadline.load(kRelaxed);
    if (deadline == kFree && slot.deadline.compare_exchange_strong(deadline, kTaken)) {
      slot.thread.store(threadId, kRelaxed);
      return &slot;
    }
  }
  return nullptr;
}

}  // namespace
}  // namespace qov::platform

using namespace qov::platform;

FowGuard::FowGuard(unsigned kind, unsigned level, unsigned seconds)
    : kind_(kind), level_(level), seconds_(seconds), slot_(nullptr) {
  if (seconds_ == 0) {
    return;
  }
  const nanoseconds limit = guardTime(seconds_);
  deadline_ = guardNow() + limit;
  slot_ = takeSlot();
  if (slot_ != nullptr) {
    slot_->kind.store(kind_, kRelaxed);
    slot_->level.store(level_, kRelaxed);
    slot_->seconds.store(seconds_, kRelaxed);
    slot_->log.store(ACE_LOG_MSG->msg_ostream(), kRelaxed);
    slot_->deadline.store(deadline_.count(), std::memory_order_release);
    cover(limit.count());
  }
}

FowGuard::~FowGuard() {
  const bool alreadyLogged = slot_ != nullptr && slot_->deadline.exchange(kFree) == kTaken;
  if (seconds_ != 0 && !alreadyLogged && guardNow() >= deadline_) {
    const int error = errno;
    logOrDoWithout([this] {
      ACE_ERROR((LM_WARNING,
                 "%D %M (%t) FowGuard: handling of kind %u, level %u took longer than %u s\n",
                 kind_, level_, seconds_));
    });
    errno = error;
  }
}
