#include "frame/app/start_watcher.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "frame/env/failure.h"

namespace qov {
namespace {

/// What the daemon may take to end when it is told to.
constexpr std::chrono::seconds kPatience{15};

/// For the signal handler.
StartPage* watched = nullptr;

void childHasEnded(int) {
  const int formerErrno = errno;
  ::sem_post(&watched->news);
  errno = formerErrno;
}

timespec onMonotonicClock(std::chrono::steady_clock::time_point time) {
  const auto since = time.time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
  return {seconds.count(),
          std::chrono::duration_cast<std::chrono::nanoseconds>(since - seconds).count()};
}

}  // namespace

void StartWatcher::run(pid_t starter) {
  sigset_t all;
  sigset_t formerMask;
  struct sigaction formerAction {};
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &formerMask);
  watched = &page_;
  struct sigaction action {};
  action.sa_handler = &childHasEnded;
  ::sigaction(SIGCHLD, &action, &formerAction);
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != starter) {
    ::_exit(1);  // it has gone before that
  }
  const pid_t child = ::fork();
  if (child == 0) {
    ::sigaction(SIGCHLD, &formerAction, nullptr);
    ::pthread_sigmask(SIG_SETMASK, &formerMask, nullptr);
    return;
  }
  if (child < 0) {
    page_.settle(StartOutcome::kNotForked);
    ::_exit(1);
  }
  sigdelset(&all, SIGCHLD);
  ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
  watch();
}

void StartWatcher::watch() {
  const Time limit = std::chrono::steady_clock::now() + limit_;
  while (!collect()) {
    if (!waitUntil(limit) && page_.settle(StartOutcome::kFailed)) {
      giveUp();
      ::_exit(0);
    }
  }
  if (page_.outcome == StartOutcome::kFailed) {
    hasEnded(page_.daemon);
  }
  ::_exit(0);
}

bool StartWatcher::collect() {
  siginfo_t next{};
  int looked = 0;
  while ((looked = ::waitid(P_ALL, 0, &next, WEXITED | WNOHANG | WNOWAIT)) == 0 &&
         next.si_pid != 0) {
    // A daemon that has ended decides nothing any more.
    const bool isDaemon = next.si_pid == page_.daemon;
    if (isDaemon && page_.outcome != StartOutcome::kOpen) {
      break;  // It ran: whoever collects orphans gets its status.
    }
    int status = 0;
    ::waitpid(next.si_pid, &status, 0);
    if (isDaemon) {
      ended(status);
    } else if (status != 0) {
      lastFailure_ = status;
    }
    next.si_pid = 0;
  }
  if (looked < 0 && errno == ECHILD) {
    if (page_.daemon == 0 && lastFailure_ == 0) {
      // All have gone in order and there is no daemon: ACE could not fork it.
      page_.settle(StartOutcome::kNotForked);
    }
    // The daemon may not have come as far as telling its number.
    ended(lastFailure_);
  }
  return page_.outcome != StartOutcome::kOpen;
}

void StartWatcher::ended(int status) {
  if (page_.settle(StartOutcome::kFailed)) {
    page_.verdict.add(textOf(
        {"start the daemon", {}, 0, {}, wayOfEnd(status) + beforeItRan(page_.steps.data())}));
  }
}

bool StartWatcher::waitUntil(Time limit) {
  const timespec time = onMonotonicClock(limit);
  return ::sem_clockwait(&page_.news, CLOCK_MONOTONIC, &time) == 0 || errno != ETIMEDOUT;
}

void StartWatcher::giveUp() {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit_).count();
  const std::string step = page_.steps.data();
  page_.verdict.add(textOf({"start the daemon",
                            {},
                            0,
                            {},
                            "it did not run within " + std::to_string(seconds) + " s" +
                                (step.empty() ? "" : ", while " + step)}));
  const pid_t daemon = page_.daemon;
  if (daemon <= 0) {
    return;
  }
  ::kill(daemon, SIGTERM);
  if (!hasEnded(daemon)) {
    ::kill(daemon, SIGKILL);
  }
}

bool StartWatcher::hasEnded(pid_t daemon) {
  const Time limit = std::chrono::steady_clock::now() + kPatience;
  // It becomes a child of this process only when the one that has forked it is gone.
  while (daemon > 0 && ::kill(daemon, 0) == 0) {
    if (::waitpid(-1, nullptr, WNOHANG) <= 0 && !waitUntil(limit)) {
      return false;
    }
  }
  return true;
}

}  // namespace qov
