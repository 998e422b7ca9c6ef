#ifndef QOV_PLATFORM_ALL_SIGNALS_BLOCKED_H
#define QOV_PLATFORM_ALL_SIGNALS_BLOCKED_H

#include <csignal>

namespace qov::platform {

/// Blocks every signal in the calling thread for its scope; a thread that is started within it
/// keeps them blocked, so that the process's signals go to the threads that expect them.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace qov::platform

#endif
