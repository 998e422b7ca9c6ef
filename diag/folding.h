#ifndef QOV_DIAG_FOLDING_H
#define QOV_DIAG_FOLDING_H

#include "diag/record.h"

namespace qov {

// While key "LogFold" is on: a record is written once within a second, and those that are the same
// but for time and thread are counted. Records are remembered for the process, not for each thread.
//
// The count is a record of its own, with the level, kit, function and line of what it counts. It is
// written
// - before the next record that comes when the second is over,
// - when the second is over and the reactor turns: FileStrategy looks once a second,
// - when another record needs its place, since more of them repeat than are remembered,
// - before the log file is looked after or other settings apply (SIGUSR1),
// - before a fork, so that the child has nothing to tell,
// - when the log ends with the process. Then it is not, if a record is stuck, or if standard error
//   is meant and nobody reads it.
// A process that is killed, aborts, calls _exit() or exec loses what it has counted: for at most
// two seconds where the event loop turns.
//
// Only what goes to the sink or to standard error is folded. A stream of a thread's own, callbacks
// and what else ACE serves get every record, and no count.

/// Whether `record` is one that is counted instead of being written. The caller holds the lock of
/// LogSink.
bool isFolded(const Record& record);

/// Writes the counts whose second is over. Any thread; takes the lock.
void tellDueCounts() noexcept;
/// Writes all of them, and remembers no record any more.
void tellAllCounts() noexcept;
/// The same when no thread logs any more. Takes no lock.
void tellCountsAtEnd() noexcept;

}  // namespace qov

#endif
