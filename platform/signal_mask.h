#ifndef QOV_PLATFORM_SIGNAL_MASK_H
#define QOV_PLATFORM_SIGNAL_MASK_H

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

inline sigset_t allSignals() {
  sigset_t all;
  sigfillset(&all);
  return all;
}

}  // namespace qov

#endif
