#ifndef QOV_MODULES_STATUS_TRACE_RECORDING_H
#define QOV_MODULES_STATUS_TRACE_RECORDING_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace qov::status {

/// The trace of messages, on while this lives and stop() is not called. One at a time.
///
/// Thread: one.
/// Errors: throws std::bad_alloc.
class Recording {
 public:
  /// Steps in one document, which has about 150 kB with them.
  static constexpr std::size_t kMostSteps = 2000;

  /// Of the messages of that module, or of all.
  explicit Recording(std::optional<std::uint8_t> module);
  ~Recording() { stop(); }

  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  void stop();

  /// The next steps, with the names of their threads, and how many before them were lost.
  /// docs/operating.md explains the fields.
  Json::Value read();

 private:
  std::uint64_t next_;
  bool on_ = true;
};

/// What times in the documents are: nanoseconds of the monotonic clock.
Json::Value traceTimeNow();

}  // namespace qov::status

#endif
