#include "frame/app_signal_block.h"

#include <pthread.h>

namespace qov {

SignalBlock::SignalBlock() {
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGINT);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former_);
}

SignalBlock::~SignalBlock() {
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

}  // namespace qov
