#ifndef QOV_DIAG_UNCANCELLED_H
#define QOV_DIAG_UNCANCELLED_H

#include <pthread.h>

namespace qov {

/// Lets the calling thread be cancelled only afterwards. Unwinding in the middle of a record would
/// meet handlers that must not stop it, leave the record torn and its stream in a bad state.
class Uncancelled {
 public:
  Uncancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_); }
  ~Uncancelled() { pthread_setcancelstate(state_, nullptr); }
  Uncancelled(const Uncancelled&) = delete;
  Uncancelled& operator=(const Uncancelled&) = delete;

 private:
  int state_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace qov

#endif
