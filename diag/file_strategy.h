#ifndef QOV_DIAG_FILE_STRATEGY_H
#define QOV_DIAG_FILE_STRATEGY_H

#include <ace/Logging_Strategy.h>

#include <string>

namespace qov {

/// ACE's logging strategy with a file of ours: it parses the options, sets masks and flags, and its
/// time-out looks after the file. ACE's own time-out reads the stream while others write to it,
/// forgets with each new strategy how many files it has rotated, creates files for everyone to
/// write to, and keeps a timer beside any other that is armed for it.
///
/// Thread: the one that runs the reactor.
/// Owns:   its timers, cancelled at the latest by the destructor.
class FileStrategy : public ACE_Logging_Strategy {
 public:
  FileStrategy(long long maxBytes, int predecessors);
  ~FileStrategy() override;

  /// Has the reactor look after the file every `seconds`. Throws std::bad_alloc.
  void arm(int seconds);
  /// Has it look every second for counts of repeated records that are due, see diag/folding.h.
  /// Throws std::bad_alloc.
  void armFolding();

  /// Looks after the file if `act` is null, else for counts that are due. Without memory it ends
  /// the process here, not in whatever runs the reactor.
  int handle_timeout(const ACE_Time_Value& now, const void* act) noexcept override;
  int handle_close(ACE_HANDLE handle, ACE_Reactor_Mask mask) override;
  /// Unlike ACE's it arms no timer.
  void reactor(ACE_Reactor* reactor) override;
  ACE_Reactor* reactor() const override;

 private:
  void schedule(int seconds, const void* act);
  void checkFile();

  bool armed_ = false;  ///< the reactor has our timers, so it tells us when it goes
  const long long maxBytes_;
  const int predecessors_;
  std::string whyNotRotated_;  ///< what the log has told last of a file that cannot be rotated
};

}  // namespace qov

#endif
