#ifndef QOV_FRAME_APP_SIGNAL_BLOCK_H
#define QOV_FRAME_APP_SIGNAL_BLOCK_H

#include <csignal>

namespace qov {

/// Keeps SIGINT, SIGTERM and SIGUSR1 from the calling thread, and from the threads it starts, while
/// it lives.
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

/// Lets SIGINT, SIGTERM and SIGUSR1 reach the calling thread while it lives, whoever has blocked
/// them: a process inherits its starter's mask.
///
/// Thread: made and destroyed by one thread.
/// Owns:   that thread's signal mask, which the destructor sets back to what it was.
/// Errors: none.
class SignalAdmission {
 public:
  SignalAdmission();
  ~SignalAdmission();

  SignalAdmission(const SignalAdmission&) = delete;
  SignalAdmission& operator=(const SignalAdmission&) = delete;

 private:
  sigset_t former_;
};

/// Keeps every signal from the calling thread, and from the threads it starts, while it lives.
///
/// Thread: made and destroyed by one thread.
/// Owns:   that thread's signal mask, which the destructor sets back to what it was.
/// Errors: none.
class AllSignalsBlock {
 public:
  AllSignalsBlock();
  ~AllSignalsBlock();

  AllSignalsBlock(const AllSignalsBlock&) = delete;
  AllSignalsBlock& operator=(const AllSignalsBlock&) = delete;

 private:
  sigset_t former_;
};

/// Makes a write to a broken pipe fail instead of ending the process, unless the program handles
/// the signal itself.
void ignoreBrokenPipes();

/// Has the thread that calls exit(), or returns from main, block SIGINT, SIGTERM, SIGUSR1 and
/// SIGPIPE for the rest of the process, which none of them can end then. ACE's own end takes the
/// handlers away and standard output is written after that, but a mask stays.
void blockSignalsAtExit();

}  // namespace qov

#endif
