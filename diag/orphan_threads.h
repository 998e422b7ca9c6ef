#ifndef QOV_DIAG_ORPHAN_THREADS_H
#define QOV_DIAG_ORPHAN_THREADS_H

#include <ace/Log_Msg.h>

namespace qov {

/// Threads without a stream of their own: those that std::thread started, and those from before
/// the log file was configured. ACE drops what they log to a stream; they get the process's.
class OrphanThreads {
 public:
  /// From now on any thread without a stream is adopted by its first record, also when that goes
  /// to ACE directly. Does nothing where the program has a logging backend of its own; but if it
  /// has taken ours away, ACE must not be opened without this: it would call the missing one.
  static void adoptAll(ACE_Log_Msg& log);
  /// True if the program installed its own ACE backend. No backend counts as ours: ACE forgets it
  /// at its end.
  static bool hasForeignBackend();
  /// Gives the calling thread, whose object `log` is, the process's stream if it has none.
  static void adopt(ACE_Log_Msg& log);
};

}  // namespace qov

#endif
