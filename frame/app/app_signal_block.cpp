#include "frame/app/app_signal_block.h"

#include <cstdlib>
#include <initializer_list>

namespace qov {

namespace {

void blockForGood() {
  sigset_t blocked = loopSignals();
  sigaddset(&blocked, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

}  // namespace

sigset_t loopSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signum : {SIGINT, SIGTERM, SIGUSR1}) {
    sigaddset(&set, signum);
  }
  return set;
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
