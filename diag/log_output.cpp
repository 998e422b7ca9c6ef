#include "diag/log_output.h"

#include <ostream>
#include <string>

#include "diag/destination_lock.h"
#include "diag/log_stream.h"
#include "diag/orphan_threads.h"
#include "diag/record_pieces.h"
#include "diag/standard_error.h"

namespace qov {

namespace {

constexpr const char* kSource = "qov_common_debugkit";

/// ACE's record buffer takes 4,095 characters and cuts the rest.
constexpr size_t kAcePiece = 4000;

/// Destinations and decorations that only ACE's own logging serves.
bool needsAce(const ACE_Log_Msg& log, u_long flags) {
  u_long served = ACE_Log_Msg::STDERR | ACE_Log_Msg::OSTREAM;
  if (log.msg_callback() == nullptr) {
    served |= ACE_Log_Msg::MSG_CALLBACK;
  }
  if ((flags & ACE_Log_Msg::CUSTOM) != 0 && !OrphanThreads::hasForeignBackend()) {
    served |= ACE_Log_Msg::CUSTOM;
  }
  return (flags & ~served) != 0;
}

void logPieces(ACE_Log_Msg& log, ACE_Log_Priority priority, std::string_view text) {
  while (!text.empty()) {
    const std::string_view piece = text.substr(0, kAcePiece);
    log.log(priority, "%.*s", static_cast<int>(piece.size()), piece.data());
    text.remove_prefix(piece.size());
  }
}

void writeThroughAce(ACE_Log_Msg& log, ACE_Log_Priority priority, std::string_view head,
                     std::string_view message) {
  std::string text;
  text.reserve(head.size() + message.size() + 1);
  text.append(head).append(message).append(1, '\n');
  if (text.size() <= kAcePiece) {
    logPieces(log, priority, text);  // without the lock, which a callback must not be held under
  } else {
    const DestinationLock lock(log);
    logPieces(log, priority, text);
  }
}

/// A stream that failed once (a full disk) gets its next chance with the next record.
void writeStream(std::ostream& out, const RecordPieces& record) {
  if (!out.good()) {
    out.clear();
  }
  for (int i = 0; i < record.count(); ++i) {
    const iovec& piece = record.data()[i];
    out.write(static_cast<const char*>(piece.iov_base),
              static_cast<std::streamsize>(piece.iov_len));
  }
  out.flush();
}

void writeToStreamOf(ACE_Log_Msg& log, const RecordPieces& record) {
  std::ostream* const out = log.msg_ostream();
  LogStream* const logFile = LogStream::process();
  if (out == nullptr) {
    return;
  }
  if (out == logFile) {
    logFile->write(record.data(), record.count());
  } else {
    writeStream(*out, record);
  }
}

}  // namespace

void writeRecord(ACE_Log_Msg& log, const RecordInfo& info, std::string_view head,
                 std::string_view message) {
  log.set(kSource, info.sourceLine, 0, info.errnum, log.restart(), log.msg_ostream(),
          log.msg_callback());
  const u_long flags = log.flags();
  if ((flags & ACE_Log_Msg::OSTREAM) != 0) {
    OrphanThreads::adopt(log);
  }
  if (needsAce(log, flags)) {
    writeThroughAce(log, info.priority, head, message);
    return;
  }
  const RecordPieces record(head, message);
  const DestinationLock lock(log);
  if ((flags & ACE_Log_Msg::STDERR) != 0) {
    writeStandardError(record.data(), record.count());
  }
  if ((flags & ACE_Log_Msg::OSTREAM) != 0) {
    writeToStreamOf(log, record);
  }
}

}  // namespace qov
