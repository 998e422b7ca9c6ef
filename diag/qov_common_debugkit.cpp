#include <qovpub/qov_common_debugkit.h>

#include <cerrno>
#include <ctime>
#include <string_view>

#include "diag/call_trace.h"
#include "diag/complaints.h"
#include "diag/kit_registry.h"
#include "diag/log_end.h"
#include "diag/log_ids.h"
#include "diag/log_level.h"
#include "diag/log_output.h"
#include "diag/probe.h"
#include "diag/record.h"
#include "diag/record_time.h"
#include "diag/uncancelled.h"

namespace {

using qov::LogLevel;

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

/// Fills a record with `fill` and hands it on. Logging is called in destructors and in handlers of
/// exceptions, so nothing may leave it: a record is given up when there is no memory for it, or
/// when its destination throws. `isOn` is false for a record that only the start of the process
/// shows.
template <class AnyRecord, class Fill>
void write(const LogLevel& level, bool isOn, const std::string& kitName, const Origin& origin,
           const Fill& fill) noexcept {
  const CallerState caller;
  const qov::RecordUnderWay underWay;
  ACE_Log_Msg* const log = underWay.mayGo() ? ACE_Log_Msg::instance() : nullptr;
  if (log == nullptr) {
    return;
  }
  try {
    AnyRecord record(kitName, origin.logId, level.tag, origin.function, origin.line,
                     qov::LogForm::now());
    fill(record);
    QOV_PROBE5(log, origin.logId, level.tag, kitName.c_str(), record.message().data(),
               record.message().size());
    const auto deliver = [&](std::string_view plainMessage) {
      const bool onStandardError =
          isOn &&
          qov::writeRecord(*log, {level.priority, origin.sourceLine, caller.errnum()}, record);
      qov::Complaints::tell(level, kitName, plainMessage, onStandardError);
    };
    if (record.form().rewrites()) {
      const std::string plain = qov::Complaints::copyOf(record.message());
      record.finish();
      deliver(plain);
    } else {
      record.finish();
      deliver(record.message());
    }
  } catch (...) {
  }
}

template <class Message>
inline void logMessage(const LogLevel& level, const std::string& kitName, const Origin& origin,
                       const Message& message) {
  const bool isOn = qov::isOn(level);
  if (isOn || qov::Complaints::hears(level)) {
    write<qov::ShortRecord>(level, isOn, kitName, origin,
                            [&](qov::Record& record) { record.add(textOf(message)); });
  }
}

__attribute__((format(printf, 4, 0))) void logFormatted(const LogLevel& level,
                                                        const std::string& kitName,
                                                        const Origin& origin, const char* format,
                                                        va_list args) {
  const bool isOn = qov::isOn(level);
  if (isOn || qov::Complaints::hears(level)) {
    write<qov::PrintedRecord>(level, isOn, kitName, origin,
                              [&](qov::Record& record) { record.print(format, args); });
  }
}

void appendRecord(std::ostringstream& out, qov::Record& record) {
  record.finish();
  const std::string_view line = record.line();
  const size_t size = line.size() - (record.isComplete() ? 0 : 1);
  out.write(line.data(), static_cast<std::streamsize>(size));
  if (record.isComplete()) {
    out.flush();
  } else {
    out.setstate(std::ios_base::badbit);
  }
}

}  // namespace

namespace qov {

std::atomic<unsigned int> deletedKits{0};

void traceCall(const CQOVDebugKit& kit, const char* before, const char* name, const char* after) {
  write<ShortRecord>(kTrace, true, kit.name(), {log_id::kCallTrace, "", 0, __LINE__},
                     [&](Record& record) {
                       record.add(before);
                       record.add(name);
                       record.add(after);
                     });
}

}  // namespace qov

CQOVDebugKit::CQOVDebugKit(const std::string& name, unsigned int id) : name_(name), id_(id) {}

CQOVDebugKit::~CQOVDebugKit() {
  qov::deletedKits.fetch_add(1, std::memory_order_acq_rel);
}

bool CQOVDebugKit::isOn(ACE_Log_Priority priority) {
  return (*qov::kProcessMask & priority) != 0;
}

void CQOVDebugKit::debug(unsigned long long logId, const char* function, unsigned int line,
                         const std::string& message) const {
  logMessage(qov::kDebug, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::debug(unsigned long long logId, const char* function, unsigned int line,
                         const char* message) const {
  logMessage(qov::kDebug, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::debug(unsigned long long logId, const char* function, unsigned int line,
                         const char* format, va_list args) const {
  logFormatted(qov::kDebug, name_, {logId, function, line, __LINE__}, format, args);
}

void CQOVDebugKit::info(unsigned long long logId, const char* function, unsigned int line,
                        const std::string& message) const {
  logMessage(qov::kInfo, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::info(unsigned long long logId, const char* function, unsigned int line,
                        const char* message) const {
  logMessage(qov::kInfo, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::info(unsigned long long logId, const char* function, unsigned int line,
                        const char* format, va_list args) const {
  logFormatted(qov::kInfo, name_, {logId, function, line, __LINE__}, format, args);
}

void CQOVDebugKit::warn(unsigned long long logId, const char* function, unsigned int line,
                        const std::string& message) const {
  logMessage(qov::kWarn, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::warn(unsigned long long logId, const char* function, unsigned int line,
                        const char* message) const {
  logMessage(qov::kWarn, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::warn(unsigned long long logId, const char* function, unsigned int line,
                        const char* format, va_list args) const {
  logFormatted(qov::kWarn, name_, {logId, function, line, __LINE__}, format, args);
}

void CQOVDebugKit::error(unsigned long long logId, const char* function, unsigned int line,
                         const std::string& message) const {
  logMessage(qov::kError, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::error(unsigned long long logId, const char* function, unsigned int line,
                         const char* message) const {
  logMessage(qov::kError, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::error(unsigned long long logId, const char* function, unsigned int line,
                         const char* format, va_list args) const {
  logFormatted(qov::kError, name_, {logId, function, line, __LINE__}, format, args);
}

void CQOVDebugKit::critical(unsigned long long logId, const char* function, unsigned int line,
                            const std::string& message) const {
  logMessage(qov::kCritical, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::critical(unsigned long long logId, const char* function, unsigned int line,
                            const char* message) const {
  logMessage(qov::kCritical, name_, {logId, function, line, __LINE__}, message);
}

void CQOVDebugKit::critical(unsigned long long logId, const char* function, unsigned int line,
                            const char* format, va_list args) const {
  logFormatted(qov::kCritical, name_, {logId, function, line, __LINE__}, format, args);
}

void CQOVDebugKit::trace(const std::string& message) const {
  logMessage(qov::kTrace, name_, {qov::log_id::kCallTrace, "", 0, __LINE__}, message);
}

void CQOVDebugKit::trace(const char* message) const {
  logMessage(qov::kTrace, name_, {qov::log_id::kCallTrace, "", 0, __LINE__}, message);
}

void CQOVDebugKit::makeLog(std::ostringstream& out, unsigned long long logId, const char* tag,
                           const char* function, unsigned int line,
                           const std::string& message) const {
  qov::ShortRecord record(name_, logId, tag, function, line, qov::LogForm());
  record.add(message);
  appendRecord(out, record);
}

void CQOVDebugKit::makeLog(std::ostringstream& out, unsigned long long logId, const char* tag,
                           const char* function, unsigned int line, const char* format,
                           va_list args) const {
  qov::PrintedRecord record(name_, logId, tag, function, line, qov::LogForm());
  record.print(format, args);
  appendRecord(out, record);
}

std::string CQOVDebugKit::makeLogTime() const {
  return std::string(qov::recordTime(time(nullptr)).view());
}
