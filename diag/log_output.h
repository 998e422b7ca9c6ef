#ifndef QOV_DIAG_LOG_OUTPUT_H
#define QOV_DIAG_LOG_OUTPUT_H

#include <ace/Log_Msg.h>

#include <string_view>

#include "diag/record.h"

namespace qov {

/// What ACE logging is told about a record beside its text.
struct RecordInfo {
  ACE_Log_Priority priority;
  int sourceLine;
  int errnum;
};

/// Hands one record, its newline included, to the destinations that ACE logging has for the calling
/// thread, whole and not mixed with others. A repeated one may be counted instead (diag/folding.h).
/// True if standard error was one of them, also in place of a log file that did not take it. May
/// throw what a destination throws.
bool writeRecord(ACE_Log_Msg& log, const RecordInfo& info, const Record& record);

/// Writes `line` to the sink and to standard error, whichever of them ACE logging has for the
/// process. The caller holds the lock of LogSink, unless no other thread logs any more.
void writeToProcess(std::string_view line);

/// False where writeToProcess() would wait for a reader of standard error that takes nothing. Waits
/// for half a second before it says so.
bool isWritable();

/// Whether `text`, which the calling thread writes into the sink, is of a kit's record that goes
/// through ACE, and thus finished. What ACE has decorated is not, nor what a callback writes.
bool isOfKit(std::string_view text);

}  // namespace qov

#endif
