#include "frame/app_signal_block.h"

#include <pthread.h>

#include <cstdlib>
#include <initializer_list>

namespace qov {

namespace {

sigset_t setOf(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signum : signals) {
    sigaddset(&set, signum);
  }
  return set;
}

void blockForGood() {
  const sigset_t blocked = setOf({SIGINT, SIGTERM, SIGUSR1, SIGPIPE});
  ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

}  // namespace

SignalBlock::SignalBlock() {
  const sigset_t blocked = setOf({SIGINT, SIGTERM, SIGUSR1});
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former_);
}

SignalBlock::~SignalBlock() {
  ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

SignalAdmission::SignalAdmission() {
  const sigset_t admitted = setOf({SIGINT, SIGTERM, SIGUSR1});
  ::pthread_sigmask(SIG_UNBLOCK, &admitted, &former_);
}

SignalAdmission::~SignalAdmission() {
  ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

AllSignalsBlock::AllSignalsBlock() {
  sigset_t all;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &former_);
}

AllSignalsBlock::~AllSignalsBlock() {
  ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

void ignoreBrokenPipes() {
  struct sigaction action {};
  if (::sigaction(SIGPIPE, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 &&
      action.sa_handler == SIG_DFL) {
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
  }
}

void blockSignalsAtExit() {
  // Exit handlers run in the reverse order of their registration and ACE's has been there since
  // the library was loaded. A registration that fails leaves what ACE does.
  static const int result = std::atexit(&blockForGood);
  static_cast<void>(result);
}

}  // namespace qov
