#ifndef QOV_TOOLS_QOVCTL_TRACE_MESSAGES_H
#define QOV_TOOLS_QOVCTL_TRACE_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/qovctl/trace_log.h"

namespace qov::ctl {

/// The steps of one message and of the response to it, as indices in TraceLog::steps(), by time.
using TraceMessage = std::vector<std::size_t>;

/// The messages of a log, each with its own steps.
///
/// Thread: one.
/// Owns:   nothing of the log, which outlives it.
class TraceMessages {
 public:
  explicit TraceMessages(const TraceLog& log);

  /// The answered request with the serial number, or any, that waited longest; if none of that
  /// number was answered, one that was not. Nothing if there is none.
  std::optional<std::size_t> slowest(std::optional<std::uint32_t> serial) const;

  /// The steps of that message, of those that its handlers have sent, and so on, by time.
  TraceMessage withCaused(std::size_t message) const;

 private:
  const TraceStep& step(std::size_t index) const { return log_.steps()[index]; }
  /// From the send to the answer; nothing without one of them.
  std::optional<std::int64_t> wait(const TraceMessage& message) const;
  /// The messages sent by the handler that began at that step.
  std::vector<std::size_t> causedBy(std::size_t begin) const;
  void sortByTime(TraceMessage& steps) const;

  const TraceLog& log_;
  std::vector<TraceMessage> messages_;
  std::vector<std::size_t> messageOf_;  ///< by step: index in messages_
};

}  // namespace qov::ctl

#endif
