#ifndef QOV_FRAME_APP_SIGNAL_BLOCK_H
#define QOV_FRAME_APP_SIGNAL_BLOCK_H

#include <csignal>

namespace qov {

/// Keeps SIGINT and SIGUSR1 from the calling thread, and from the threads it starts, while it
/// lives.
///
/// Thread: made and destroyed by one thread.
/// Owns:   that thread's signal mask, which the destructor sets back to what it was.
/// Errors: none.
class SignalBlock {
 public:
  SignalBlock();
  ~SignalBlock();

  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t former_;
};

/// Makes a write to a broken pipe fail instead of ending the process, unless the program handles
/// the signal itself.
void ignoreBrokenPipes();

}  // namespace qov

#endif
