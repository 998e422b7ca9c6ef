#ifndef QOV_DIAG_RECORD_TIME_H
#define QOV_DIAG_RECORD_TIME_H

#include <array>
#include <cstddef>
#include <ctime>
#include <string_view>

namespace qov {

/// A short text without memory of its own.
class TimeText {
 public:
  /// As snprintf.
  explicit TimeText(const char* format, ...) __attribute__((format(printf, 2, 3)));
  std::string_view view() const { return {text_.data(), size_}; }

 private:
  std::array<char, 64> text_;
  size_t size_;
};

/// `second` in local time, as UtcTimeToLocalTimeStr() has it with "/".
///
/// The C library has a lock for that, which another thread may hold when this one forks. It stays
/// locked in the child for good, so a child of several threads goes without: it keeps the offset
/// from UTC that its parent had.
/// Thread: any. With a kept offset async-signal-safe.
TimeText recordTime(time_t second);

/// How far that is from UTC, as ISO 8601 has it: "+01:00". Notes it.
TimeText recordOffset(time_t second);

/// Before a fork: notes the offset of now. One thread at a time.
void noteUtcOffset();
/// In the child, and where a signal ends the process: keeps what was noted last, as do the child's
/// own children. Async-signal-safe.
void keepUtcOffset();

}  // namespace qov

#endif
