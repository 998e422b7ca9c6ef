#include "tools/qov-endpoint/stop_signals.h"

#include <ace/Reactor.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <stdexcept>

namespace qov::endpoint {

StopSignals::StopSignals(ACE_Reactor& reactor) : ACE_Event_Handler(&reactor) {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, SIGTERM);
  ::sigaddset(&set, SIGINT);
  ::sigprocmask(SIG_BLOCK, &set, nullptr);
  descriptor_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (descriptor_ < 0 || reactor.register_handler(this, READ_MASK) != 0) {
    throw std::runtime_error("cannot watch for signals");
  }
}

StopSignals::~StopSignals() {
  reactor()->remove_handler(this, READ_MASK | DONT_CALL);
  ::close(descriptor_);
}

int StopSignals::handle_input(ACE_HANDLE) {
  signalfd_siginfo signal;
  while (::read(descriptor_, &signal, sizeof signal) == sizeof signal) {
    ++count_;
  }
  return 0;
}

}  // namespace qov::endpoint
