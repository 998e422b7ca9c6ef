#include "diag/log_output.h"

#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/OS_NS_unistd.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <utility>

#include "diag/ace_private.h"
#include "diag/folding.h"
#include "diag/log_sink.h"
#include "diag/standard_error.h"

namespace qov {

/// What ACE_Log_Msg::flags() answers, which takes the lock that is held here already.
struct ProcessFlags {
  using Type = u_long*;
  friend constexpr Type address(ProcessFlags);
};

template struct Reach<ProcessFlags, &ACE_Log_Msg::flags_>;

namespace {

constexpr const char* kSource = "qov_common_debugkit";

/// ACE's record buffer takes 4,095 characters and cuts the rest.
constexpr size_t kAcePiece = 4000;

/// Whether ACE would call a callback of the thread's.
bool hasListener(const ACE_Log_Msg& log, u_long flags) {
  return (flags & (ACE_Log_Msg::MSG_CALLBACK | ACE_Log_Msg::SILENT)) == ACE_Log_Msg::MSG_CALLBACK &&
         log.msg_callback() != nullptr;
}

/// Destinations and decorations that only ACE's own logging serves.
bool needsAce(const ACE_Log_Msg& log, u_long flags) {
  u_long served = ACE_Log_Msg::STDERR | ACE_Log_Msg::OSTREAM;
  if (log.msg_callback() == nullptr) {
    served |= ACE_Log_Msg::MSG_CALLBACK;
  }
  if ((flags & ACE_Log_Msg::CUSTOM) != 0 && !LogSink::process().hasForeignBackend()) {
    served |= ACE_Log_Msg::CUSTOM;
  }
  return (flags & ~served) != 0;
}

template <class Take>
void forEachPiece(std::string_view text, const Take& take) {
  while (!text.empty()) {
    take(text.substr(0, kAcePiece));
    text.remove_prefix(std::min(kAcePiece, text.size()));
  }
}

/// What the calling thread has handed to ACE.
thread_local std::string_view pieceUnderWay;

class PieceUnderWay {
 public:
  explicit PieceUnderWay(std::string_view piece) : before_(std::exchange(pieceUnderWay, piece)) {}
  ~PieceUnderWay() { pieceUnderWay = before_; }
  PieceUnderWay(const PieceUnderWay&) = delete;
  PieceUnderWay& operator=(const PieceUnderWay&) = delete;

 private:
  const std::string_view before_;  ///< of a record that has called what logs this one
};

void logPiece(ACE_Log_Msg& log, ACE_Log_Priority priority, std::string_view piece) {
  const PieceUnderWay underWay(piece);
  log.log(priority, "%.*s", static_cast<int>(piece.size()), piece.data());
}

void tellListener(ACE_Log_Msg& log, ACE_Log_Priority priority, std::string_view piece) {
  ACE_Log_Record record(priority, ACE_OS::gettimeofday(), ACE_OS::getpid());
  record.msg_data(std::string(piece).c_str());
  if (ACE_Log_Msg_Callback* const listener = log.msg_callback()) {
    listener->log(record);
  }
}

/// Keeps the thread's callback from what it has heard already.
class ListenerAside {
 public:
  explicit ListenerAside(ACE_Log_Msg& log) : log_(log), listener_(log.msg_callback(nullptr)) {}
  ~ListenerAside() { log_.msg_callback(listener_); }
  ListenerAside(const ListenerAside&) = delete;
  ListenerAside& operator=(const ListenerAside&) = delete;

 private:
  ACE_Log_Msg& log_;
  ACE_Log_Msg_Callback* const listener_;
};

/// A callback hears a record before the lock is taken, as it does from ACE: it may wait for a
/// thread that logs.
void writeLongThroughAce(ACE_Log_Msg& log, u_long flags, ACE_Log_Priority priority,
                         std::string_view text) {
  if (hasListener(log, flags)) {
    forEachPiece(text, [&](std::string_view piece) { tellListener(log, priority, piece); });
  }
  const ListenerAside aside(log);
  const LogSink::Lock lock(log);
  forEachPiece(text, [&](std::string_view piece) { logPiece(log, priority, piece); });
}

void writeThroughAce(ACE_Log_Msg& log, u_long flags, ACE_Log_Priority priority,
                     std::string_view record) {
  if (record.size() <= kAcePiece) {
    logPiece(log, priority, record);
  } else {
    writeLongThroughAce(log, flags, priority, record);
  }
}

/// A stream that failed once (a full disk) gets its next chance with the next record.
void writeStream(std::ostream& out, std::string_view record) {
  if (!out.good()) {
    out.clear();
  }
  out.write(record.data(), static_cast<std::streamsize>(record.size()));
  out.flush();
}

/// True if standard error has taken the record in place of the log file.
bool writeToStreamOf(ACE_Log_Msg& log, std::string_view record) {
  if (LogSink::process().isStreamOf(log)) {
    return !LogSink::process().write(record);
  }
  if (std::ostream* const own = log.msg_ostream()) {
    writeStream(*own, record);
  }
  return false;
}

/// True if standard error has the record.
bool writeToOurs(ACE_Log_Msg& log, u_long flags, std::string_view record) {
  bool onStandardError = (flags & ACE_Log_Msg::STDERR) != 0;
  if (onStandardError) {
    writeStandardError(record);
  }
  if ((flags & ACE_Log_Msg::OSTREAM) != 0 && writeToStreamOf(log, record)) {
    onStandardError = true;
  }
  return onStandardError;
}

/// Whether the process's destinations are all that get it.
bool goesToProcess(const ACE_Log_Msg& log, u_long flags) {
  return (flags & ACE_Log_Msg::OSTREAM) != 0 ? LogSink::process().isStreamOf(log)
                                             : (flags & ACE_Log_Msg::STDERR) != 0;
}

}  // namespace

void writeToProcess(std::string_view line) {
  const u_long flags = *address(ProcessFlags());
  if ((flags & ACE_Log_Msg::STDERR) != 0) {
    writeStandardError(line);
  }
  if ((flags & ACE_Log_Msg::OSTREAM) != 0) {
    LogSink::process().write(line);
  }
}

bool isWritable() {
  constexpr int kReaderMs = 500;
  pollfd standardError{STDERR_FILENO, POLLOUT, 0};
  return (*address(ProcessFlags()) & ACE_Log_Msg::STDERR) == 0 ||
         (::poll(&standardError, 1, kReaderMs) == 1 && (standardError.revents & POLLOUT) != 0);
}

bool isOfKit(std::string_view text) {
  return !pieceUnderWay.empty() && text == pieceUnderWay;
}

bool writeRecord(ACE_Log_Msg& log, const RecordInfo& info, const Record& record) {
  log.set(kSource, info.sourceLine, 0, info.errnum, log.restart(), log.msg_ostream(),
          log.msg_callback());
  u_long flags = 0;
  {
    const LogSink::Lock lock(log);
    flags = *address(ProcessFlags());
    if ((flags & ACE_Log_Msg::OSTREAM) != 0) {
      LogSink::process().adopt(log);
    }
    if (!needsAce(log, flags)) {
      if (record.form().has(LogForm::kFold) && goesToProcess(log, flags) && isFolded(record)) {
        return (flags & ACE_Log_Msg::STDERR) != 0;
      }
      return writeToOurs(log, flags, record.line());
    }
  }
  writeThroughAce(log, flags, info.priority, record.line());
  return (flags & ACE_Log_Msg::STDERR) != 0;
}

}  // namespace qov
