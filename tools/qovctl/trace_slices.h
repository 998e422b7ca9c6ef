#ifndef QOV_TOOLS_QOVCTL_TRACE_SLICES_H
#define QOV_TOOLS_QOVCTL_TRACE_SLICES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/qovctl/trace_log.h"

namespace qov::ctl {

/// What a thread does for some time.
struct TraceSlice {
  enum class Kind : std::uint8_t {
    kHandler,  ///< handles a message
    kWait,     ///< waits for the answer to a request that it has sent
    kMark      ///< a step that takes no time: a send, a leader's, or an answer to askLater()
  };
  /// What ends a wait.
  enum class Ending : std::uint8_t { kNone, kAnswer, kTimeOut, kDrop };

  /// What a mark lasts, in nanoseconds, so that arrows may begin and end there; less if the thread
  /// goes on earlier.
  static constexpr std::int64_t kMarkSpan = 1000;

  /// The thread was at it when the section began, or is when it ends.
  bool isCut() const { return !first || !last; }

  Kind kind;
  std::int64_t thread;
  std::int64_t begin;
  std::int64_t end;
  std::optional<std::size_t> first;  ///< the step that begins it
  std::optional<std::size_t> last;   ///< the step that ends it
  Ending ending = Ending::kNone;

  /// Either, for what they have in common: the message.
  std::size_t step() const { return first ? *first : *last; }
};

/// The slices of all threads, by threads. Those of a thread are in the order of their begins, and
/// lie within each other or apart.
///
/// A request that nothing is known of but that it was sent is a wait to the end of its section if
/// that is the last that its thread has done: nobody can tell it from an askLater().
std::vector<TraceSlice> slicesOf(const TraceLog& log);

}  // namespace qov::ctl

#endif
