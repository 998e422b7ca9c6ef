#ifndef QOV_TASK_RUNNING_HANDLERS_H
#define QOV_TASK_RUNNING_HANDLERS_H

#include <qovpub/qov_activity.h>
#include <qovpub/qov_msg_head.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "task/age_list.h"

class CQOV_Task;

namespace qov {

class HandlerTimes;

/// What a handler works on, whose it is, and since when.
struct RunningHandler {
  using Clock = std::chrono::steady_clock;

  QOVMsgHead message_;
  /// Only to be compared.
  const CQOV_Task* task_;
  Clock::time_point begin_;
};

/// The handlers of a module that run, for who tells of those that outlast the module's limit, and
/// for QOVActivity.
///
/// Thread: any.
/// Owns:   the times of those that have ended. Each handler that runs stands on its own thread's
///         stack.
class RunningHandlers {
 public:
  using Clock = RunningHandler::Clock;
  using Duration = std::chrono::milliseconds;

  /// A handler for as long as it runs. It is noted if there is a limit at its beginning, or
  /// somebody wants to know (ActivitySwitch).
  class Entry : public AgeList<Entry>::Link {
   public:
    Entry(RunningHandlers& all, const RunningHandler& handler);
    ~Entry();

    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    const RunningHandler& handler() const { return handler_; }
    Clock::time_point begin() const { return handler_.begin_; }

    /// What the handler has taken, for the times of its code.
    void took(std::chrono::nanoseconds span) { took_ = span; }

   private:
    friend class RunningHandlers;

    bool isNoted() const { return hasLimit_ || isWatched_; }

    RunningHandlers& all_;
    const RunningHandler handler_;
    const bool hasLimit_;
    const bool isWatched_;
    const int thread_;  ///< 0 if it is not noted
    std::chrono::nanoseconds took_{};
    // Guarded by the lock of all_.
    bool isTold_ = false;
  };

  RunningHandlers();
  ~RunningHandlers();
  RunningHandlers(const RunningHandlers&) = delete;
  RunningHandlers& operator=(const RunningHandlers&) = delete;

  /// For handlers that begin from now on. 0 or less: none.
  void limit(Duration limit);
  Duration limit() const { return limit_.load(std::memory_order_relaxed); }
  bool hasLimit() const { return limit() > Duration::zero(); }

  /// Called when somebody has to look again: a handler begins that the limit is for, and
  /// nextLate() has said that there was none. On the handler's thread; set before the first one.
  void wakeBy(std::function<void()> wake) { wake_ = std::move(wake); }

  /// Whether limit() was set, or somebody woken to look again, since this was asked last.
  bool hasChanged() { return changed_ && changed_.exchange(false); }

  /// A handler that has outlasted the limit at `now`, each once, the longest first.
  std::optional<RunningHandler> takeLate(Clock::time_point now);

  /// No handler that runs outlasts the limit earlier than this. Without one there is nothing to
  /// look at until the next begins, which wakes who looks. Only with a limit.
  std::optional<Clock::time_point> nextLate();

  // For QOVActivity: append what was noted for it, as of `moduleId`.
  void list(unsigned int moduleId, std::vector<QOVRunningHandler>& handlers) const;
  void listTimes(unsigned int moduleId, std::vector<QOVHandlerTimes>& times) const;

 private:
  void add(Entry& entry);
  void remove(Entry& entry) noexcept;
  /// The longest one that the limit is for and that was not taken; null without one.
  Entry* oldestUntold() const;
  /// Null without memory for them.
  HandlerTimes* times() noexcept;

  std::atomic<Duration> limit_{Duration::zero()};
  // Set after the limit.
  std::atomic<bool> changed_{false};
  // Constant while handlers run.
  std::function<void()> wake_;

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  AgeList<Entry> entries_;
  /// Nobody looks before the next one begins.
  bool isUnwatched_ = false;
  /// Made for the first handler that somebody wants to know of, and then there to the end.
  std::unique_ptr<HandlerTimes> times_;
};

}  // namespace qov

#endif
