#ifndef QOV_TOOLS_QOVCTL_TRACE_THREAD_H
#define QOV_TOOLS_QOVCTL_TRACE_THREAD_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "tools/qovctl/trace_slices.h"

namespace qov::ctl {

/// How requests end that get no answer, which other threads find out than the one that waits.
class RequestEnds {
 public:
  explicit RequestEnds(const TraceLog& log);

  /// The time-out or drop of the request sent at `send`, if there is one until `until`.
  std::optional<std::size_t> failure(std::size_t send, std::int64_t until) const;
  /// Whether its answer is handled as a message: askLater(), for which nobody waits.
  bool isAskedLater(const TraceStep& send) const { return later_.count(send.key()) != 0; }

 private:
  const TraceLog& log_;
  std::multimap<TraceStep::Key, std::size_t> failures_;
  std::set<TraceStep::Key> later_;
};

/// Makes slices of the steps of one thread.
///
/// A handler or a wait that a step has not begun or ended is cut where the section begins or ends:
/// that is when it was or is under way for certain.
class TraceThread {
 public:
  /// `own` are the steps of the thread's own work in `log`, in their order.
  TraceThread(const TraceLog& log, const RequestEnds& ends, const std::vector<std::size_t>& own,
              std::vector<TraceSlice>& slices)
      : log_(log), ends_(ends), own_(own), slices_(slices) {}

  void addSlices();

 private:
  using Kind = TraceStep::Kind;

  const TraceStep& step(std::size_t index) const { return log_.steps()[own_[index]]; }
  bool isFirstOfSection(std::size_t index) const {
    return index == 0 || step(index - 1).section != step(index).section;
  }
  /// Whether step `index` is the answer to an askLater(), in front of its continuation.
  bool isForContinuation(std::size_t index) const;

  void send(std::size_t index);
  void answer(std::size_t index);
  void begin(std::size_t index);
  void end(std::size_t index);
  /// Ends the innermost open handler, which no step has ended, at `time`.
  void cutHandler(std::int64_t time);
  void add(TraceSlice::Kind kind, std::optional<std::size_t> first, std::optional<std::size_t> last,
           std::int64_t begin, std::int64_t end,
           TraceSlice::Ending ending = TraceSlice::Ending::kNone);
  void addMark(std::size_t index);

  const TraceLog& log_;
  const RequestEnds& ends_;
  const std::vector<std::size_t>& own_;
  std::vector<TraceSlice>& slices_;
  std::vector<std::size_t> open_;  ///< indices of the begins of handlers, the outer one first
  std::int64_t closed_ = 0;        ///< when the last handler ended
  bool answered_ = false;          ///< the next step is the answer to the last send
};

}  // namespace qov::ctl

#endif
