#ifndef QOV_DIAG_LOG_OUTPUT_H
#define QOV_DIAG_LOG_OUTPUT_H

#include <ace/Log_Msg.h>

#include <string_view>

namespace qov {

/// What ACE logging is told about a record beside its text.
struct RecordInfo {
  ACE_Log_Priority priority;
  int sourceLine;
  int errnum;
};

/// Hands one record, its newline included, to the destinations that ACE logging has for the calling
/// thread, whole and not mixed with others. True if standard error was one of them, also in place
/// of a log file that did not take it. May throw what a destination throws.
bool writeRecord(ACE_Log_Msg& log, const RecordInfo& info, std::string_view record);

}  // namespace qov

#endif
