#include <qovpub/qov_common_debugkit.h>

#include <cerrno>
#include <ctime>
#include <mutex>
#include <string_view>

#include "diag/complaints.h"
#include "diag/deleted_kits.h"
#include "diag/log_end.h"
#include "diag/log_level.h"
#include "diag/log_output.h"
#include "diag/message_text.h"
#include "diag/record_head.h"
#include "diag/record_time.h"
#include "diag/uncancelled.h"

namespace {

using qov::LogLevel;

constexpr unsigned long long kTraceId = ~0ULL;

/// Where a record comes from.
struct Origin {
  unsigned long long logId;
  const char* function;
  unsigned int line;
  int sourceLine;  ///< of the level operation, for ACE
};

/// What a call leaves as it found it. errno is the caller's: logging stands between a failed call
/// and the look at its reason.
class CallerState {
 public:
  CallerState() : errno_(errno) {}
  ~CallerState() { errno = errno_; }
  CallerState(const CallerState&) = delete;
  CallerState& operator=(const CallerState&) = delete;

  int errnum() const { return errno_; }

 private:
  const int errno_;
  const qov::Uncancelled uncancelled_;
};

std::string_view textOf(const std::string& message) {
  return std::string_view(message).substr(0, message.find('\0'));
}

std::string_view textOf(const char* message) {
  return message != nullptr ? std::string_view(message) : std::string_view();
}

void write(const LogLevel& level, const std::string& kitName, const Origin& origin,
           std::string_view message, int errnum) {
  const qov::RecordUnderWay record;
  ACE_Log_Msg* const log = record.mayGo() ? ACE_Log_Msg::instance() : nullptr;
  if (log == nullptr) {
    return;
  }
  const qov::RecordHead head(kitName, origin.logId, level.tag, origin.function, origin.line);
  const bool onStandardError =
      qov::isOn(level) &&
      qov::writeRecord(*log, {level.priority, origin.sourceLine, errnum}, head.text(),
                       head.complete() ? message : std::string_view());
  qov::Complaints::tell(level, kitName, message, onStandardError);
}

// Logging is called in destructors and in handlers of exceptions, so nothing may leave it: both
// kinds of writing give up a record for which there is no memory, or whose destination throws.

template <class Message>
void writeMessage(const LogLevel& level, const std::string& kitName, const Origin& origin,
                  const Message& message) noexcept {
  const CallerState caller;
  try {
    write(level, kitName, origin, textOf(message), caller.errnum());
  } catch (...) {
  }
}

template <class Message>
inline void logMessage(const LogLevel& level, const std::string& kitName, const Origin& origin,
                       const Message& message) {
  if (qov::isOn(level) || qov::Complaints::hears(level.priority)) {
    writeMessage(level, kitName, origin, message);
  }
}

void appendRecord(std::ostringstream& out, const qov::RecordHead& head, std::string_view message) {
  const std::string_view text = head.text();
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!head.complete()) {
    out.setstate(std::ios_base::badbit);
    return;
  }
  out.write(message.data(), static_cast<std::streamsize>(message.size()));
  out.put('\n');
  out.flush();
}

}  // namespace

namespace qov {

std::atomic<unsigned int> deletedKits{0};

}  // namespace qov

CQOVDebugKit::CQOVDebugKit(const std::string& name, unsigned int id) : name_(name), id_(id) {}

CQOVDebugKit::~CQOVDebugKit() {
  qov::deletedKits.fetch_add(1, std::memory_order_acq_rel);
}

bool CQOVDebugKit::isOn(ACE_Log_Priority priority) {
  return (*qov::kProcessMask & priority) != 0;
}

bool CQOVDebugKit::isHeard(ACE_Log_Priority priority) {
  return qov::Complaints::hears(priority);
}

void CQOVDebugKit::debug(unsigned long long logId, const char* function, unsigned int line,
                         const std::string& message) const {
  logMessage(qov::kDebug, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::debug(unsigned long long logId, const char* function, unsigned int line,
                         const char* message) const {
  logMessage(qov::kDebug, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::info(unsigned long long logId, const char* function, unsigned int line,
                        const std::string& message) const {
  logMessage(qov::kInfo, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::info(unsigned long long logId, const char* function, unsigned int line,
                        const char* message) const {
  logMessage(qov::kInfo, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::warn(unsigned long long logId, const char* function, unsigned int line,
                        const std::string& message) const {
  logMessage(qov::kWarn, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::warn(unsigned long long logId, const char* function, unsigned int line,
                        const char* message) const {
  logMessage(qov::kWarn, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::error(unsigned long long logId, const char* function, unsigned int line,
                         const std::string& message) const {
  logMessage(qov::kError, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::error(unsigned long long logId, const char* function, unsigned int line,
                         const char* message) const {
  logMessage(qov::kError, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::critical(unsigned long long logId, const char* function, unsigned int line,
                            const std::string& message) const {
  logMessage(qov::kCritical, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::critical(unsigned long long logId, const char* function, unsigned int line,
                            const char* message) const {
  logMessage(qov::kCritical, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::logFormatted(ACE_Log_Priority priority, int sourceLine, unsigned long long logId,
                                const char* function, unsigned int line, const char* format,
                                va_list args) const {
  const CallerState caller;
  try {
    const qov::MessageText message(format, args);
    write(qov::levelOf(priority), name_, {logId, function, line, sourceLine}, message.text(),
          caller.errnum());
  } catch (...) {
  }
}

void CQOVDebugKit::trace(const std::string& message) const {
  logMessage(qov::kTrace, name_, {kTraceId, "", 0, __LINE__}, message);
}

void CQOVDebugKit::trace(const char* message) const {
  logMessage(qov::kTrace, name_, {kTraceId, "", 0, __LINE__}, message);
}

void CQOVDebugKit::makeLog(std::ostringstream& out, unsigned long long logId, const char* tag,
                           const char* function, unsigned int line,
                           const std::string& message) const {
  appendRecord(out, qov::RecordHead(name_, logId, tag, function, line), message);
}

void CQOVDebugKit::makeLog(std::ostringstream& out, unsigned long long logId, const char* tag,
                           const char* function, unsigned int line, const char* format,
                           va_list args) const {
  const qov::MessageText message(format, args);
  appendRecord(out, qov::RecordHead(name_, logId, tag, function, line), message.text());
}

std::string CQOVDebugKit::makeLogTime() const {
  return qov::recordTime(time(nullptr));
}
