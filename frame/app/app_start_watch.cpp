#include "frame/app/app_start_watch.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <string>
#include <system_error>

#include "diag/log_ids.h"
#include "frame/app/app_signal_block.h"
#include "frame/env/current_step.h"
#include "frame/env/failure.h"
#include "module/last_words.h"

namespace qov {

namespace {

/// Both together are less than the 10 seconds that a stop may take, with one to spare.
constexpr int kPatienceSeconds = 6;
constexpr unsigned kLastWordsSeconds = 3;

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

/// A stop signal that the process has got and not taken; 0 when a module has taken it.
int pendingStop() {
  sigset_t pending;
  sigemptyset(&pending);
  ::sigpending(&pending);
  for (const int signum : {SIGTERM, SIGINT}) {
    if (sigismember(&pending, signum) == 1) {
      return signum;
    }
  }
  return 0;
}

void tellWhatHangs(int signum) {
  const std::string step = CurrentStep::open();
  Failure failure;
  failure.tried = std::string("stop in order at ") + (signum == SIGTERM ? "SIGTERM" : "SIGINT");
  failure.cause = (step.empty() ? "the start" : step) + " has not ended within " +
                  std::to_string(kPatienceSeconds) + " s, the process ends now";
  tellLastWords(log_id::kStartGivenUp, withThreads(textOf(failure)));
}

void unblockHere(int signum) {
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signum);
  ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
}

/// Async-signal-safe.
[[noreturn]] void endBy(int signum) {
  ::signal(signum, SIG_DFL);
  unblockHere(signum);
  ::raise(signum);
  constexpr int kShellsBase = 128;
  ::_exit(kShellsBase + signum);
}

volatile std::sig_atomic_t signalToEndBy = 0;

/// Ends the process by `signum` even if the last words never end.
void endAtTheLatestBy(int signum) {
  signalToEndBy = signum;
  ::signal(SIGALRM, [](int) { endBy(signalToEndBy); });
  unblockHere(SIGALRM);
  ::alarm(kLastWordsSeconds);
}

}  // namespace

StartWatch::StartWatch() : signals_(-1), over_(::eventfd(0, EFD_CLOEXEC)) {
  const sigset_t stops = stopSignals();
  // Only asked whether it is readable, so that the signals stay for the event loop.
  signals_ = ::signalfd(-1, &stops, SFD_CLOEXEC);
  if (over_ < 0 || signals_ < 0) {
    return;
  }
  try {
    const SignalMask none(SIG_SETMASK, allSignals());
    thread_ = std::thread(&StartWatch::run, this);
    ::pthread_setname_np(thread_.native_handle(), "qov-start-watch");
  } catch (const std::system_error&) {
  }
}

StartWatch::~StartWatch() {
  if (thread_.joinable()) {
    const std::uint64_t one = 1;
    static_cast<void>(!::write(over_, &one, sizeof one));
    thread_.join();
  }
  for (const int descriptor : {signals_, over_}) {
    if (descriptor >= 0) {
      ::close(descriptor);
    }
  }
}

void StartWatch::run() const {
  while (stopCame()) {
    const int signum = endsInTime() ? 0 : pendingStop();
    if (signum != 0) {
      endAtTheLatestBy(signum);
      tellWhatHangs(signum);
      endBy(signum);
    }
  }
}

bool StartWatch::stopCame() const {
  pollfd both[] = {{over_, POLLIN, 0}, {signals_, POLLIN, 0}};
  while (::poll(both, 2, -1) < 0 && errno == EINTR) {
  }
  return both[0].revents == 0;
}

bool StartWatch::endsInTime() const {
  // Seconds that it runs: a process that is stopped meanwhile (SIGSTOP, a debugger) loses one.
  for (int second = 0; second < kPatienceSeconds; ++second) {
    pollfd end{over_, POLLIN, 0};
    if (::poll(&end, 1, 1000) > 0) {
      return true;
    }
  }
  return false;
}

}  // namespace qov
