#ifndef QOV_FRAME_APP_SIGNAL_BLOCK_H
#define QOV_FRAME_APP_SIGNAL_BLOCK_H

#include <csignal>

namespace qov {

/// What the calling thread, and the threads it starts, take of signals while it lives.
///
/// Thread: made and destroyed by one thread.
/// Owns:   that thread's signal mask, which the destructor sets back to what it was.
/// Errors: none.
class SignalMask {
 public:
  /// `how` as with pthread_sigmask(): SIG_BLOCK, SIG_UNBLOCK or SIG_SETMASK.
  SignalMask(int how, const sigset_t& signals) { ::pthread_sigmask(how, &signals, &former_); }
  ~SignalMask() { ::pthread_sigmask(SIG_SETMASK, &former_, nullptr); }

  SignalMask(const SignalMask&) = delete;
  SignalMask& operator=(const SignalMask&) = delete;

 private:
  sigset_t former_;
};

/// SIGINT, SIGTERM and SIGUSR1, which the event loop carries out. A process inherits its starter's
/// mask, so they may be blocked when it begins.
sigset_t loopSignals();

sigset_t allSignals();

/// Makes a write to a broken pipe fail instead of ending the process, unless the program handles
/// the signal itself.
void ignoreBrokenPipes();

/// Has the thread that calls exit(), or returns from main, block SIGINT, SIGTERM, SIGUSR1 and
/// SIGPIPE for the rest of the process, which none of them can end then. ACE's own end takes the
/// handlers away and standard output is written after that, but a mask stays.
void blockSignalsAtExit();

}  // namespace qov

#endif
