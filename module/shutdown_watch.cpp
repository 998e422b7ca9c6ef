#include "module/shutdown_watch.h"

#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>

#include "diag/log_ids.h"
#include "frame/env/current_step.h"
#include "frame/env/failure.h"
#include "module/last_words.h"
#include "platform/guard_second.h"
#include "platform/signal_mask.h"

namespace qov {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestTelling{5};

// Nothing here has an end, since the threads go on until the process is gone.

std::atomic<bool> signalsHeeded{false};
/// The stops under way: one bit for that of a signal, and a count above it.
std::atomic<unsigned> stops{0};
constexpr unsigned kBySignal = 1;
constexpr unsigned kOne = 2;
/// Posted when the first stop has begun and when the last one is over.
sem_t changed;
sem_t overdue;
sem_t told;
static_assert(std::atomic<unsigned>::is_always_lock_free, "a signal handler must not lock");

std::mutex making;
// Guarded by making.
pid_t watched = 0;  ///< whose threads they are
bool tells = false;
bool counts = false;
bool lackTold = false;
/// Constant once the threads are made.
std::chrono::milliseconds second;

/// False when that takes longer than `time`.
bool waitFor(sem_t& semaphore, std::chrono::milliseconds time) {
  using std::chrono::nanoseconds;
  using std::chrono::seconds;
  const auto end = (steady_clock::now() + time).time_since_epoch();
  const auto whole = std::chrono::duration_cast<seconds>(end);
  const timespec limit{whole.count(), nanoseconds(end - whole).count()};
  while (::sem_clockwait(&semaphore, CLOCK_MONOTONIC, &limit) != 0) {
    if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

void tellWhatHangs() {
  const std::string step = CurrentStep::open();
  Failure failure;
  failure.tried = "stop within " + std::to_string(ShutdownWatch::kSeconds) + " s";
  failure.cause = step.empty() ? "the main thread has not come to the stop signal" : step;
  tellLastWords(log_id::kStopHangs, withThreads(textOf(failure)));
}

/// Apart from count(): whatever is written may hang.
void* tell(void*) {
  while (::sem_wait(&overdue) != 0) {
  }
  tellWhatHangs();
  ::sem_post(&told);
  return nullptr;
}

void* count(void*) {
  unsigned past = 0;
  for (;;) {
    if (stops == 0) {
      ::sem_wait(&changed);
      past = 0;
    } else if (waitFor(changed, second)) {
      past = 0;
    } else if (++past == ShutdownWatch::kSeconds) {
      ::sem_post(&overdue);
      waitFor(told, kLongestTelling);
      std::abort();
    }
  }
}

bool makeThread(void* (*body)(void*), const char* name) {
  const SignalMask none(SIG_SETMASK, allSignals());
  pthread_t thread{};
  if (const int error = ::pthread_create(&thread, nullptr, body, nullptr)) {
    errno = error;
    return false;
  }
  ::pthread_setname_np(thread, name);
  ::pthread_detach(thread);
  return true;
}

/// What a forked child has of its parent's is of no use there.
void beginAnew() {
  watched = ::getpid();
  tells = false;
  counts = false;
  lackTold = false;
  stops = 0;
  for (sem_t* const semaphore : {&changed, &overdue, &told}) {
    ::sem_init(semaphore, 0, 0);
  }
}

void tellUnwatched() {
  tellOnStandardError({textOf({"watch over the shutdown", {}, 0, {}, errnoText(errno)})});
}

}  // namespace

void ShutdownWatch::prepare() {
  const std::lock_guard<std::mutex> held(making);
  if (watched != ::getpid()) {
    beginAnew();
  }
  if (counts) {
    return;
  }
  second = platform::guardSecond();
  tells = tells || makeThread(&tell, "qov-report");
  counts = tells && makeThread(&count, "qov-shutdown");
  if (!counts && !std::exchange(lackTold, true)) {
    tellUnwatched();
  }
}

ShutdownWatch::ShutdownWatch() {
  prepare();
  if (stops.fetch_add(kOne) == 0) {
    ::sem_post(&changed);
  }
}

ShutdownWatch::~ShutdownWatch() {
  signalsHeeded = false;
  stops.fetch_and(~kBySignal);
  if (stops.fetch_sub(kOne) == kOne) {
    ::sem_post(&changed);
  }
}

void ShutdownWatch::heedSignals() {
  prepare();
  signalsHeeded = true;
}

void ShutdownWatch::dropSignal() {
  if (stops.fetch_and(~kBySignal) == kBySignal) {
    ::sem_post(&changed);
  }
}

void ShutdownWatch::stopSignalCame() {
  if (!signalsHeeded) {
    return;
  }
  if (stops.fetch_or(kBySignal) == 0) {
    ::sem_post(&changed);
  }
  if (!signalsHeeded) {
    stops.fetch_and(~kBySignal);  // the end of the stop has come in between
  }
}

}  // namespace qov
