#ifndef QOV_TASK_RUNNING_HANDLERS_H
#define QOV_TASK_RUNNING_HANDLERS_H

#include <qovpub/qov_msg_head.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>

class CQOV_Task;

namespace qov {

/// What a handler works on, whose it is, and since when.
struct RunningHandler {
  using Clock = std::chrono::steady_clock;

  QOVMsgHead message_;
  /// Only to be compared.
  const CQOV_Task* task_;
  Clock::time_point begin_;
};

/// The handlers of a module that run, for who tells of those that outlast the module's limit.
///
/// Thread: any.
/// Owns:   nothing: each handler that runs stands on its own thread's stack.
class RunningHandlers {
 public:
  using Clock = RunningHandler::Clock;
  using Duration = std::chrono::milliseconds;

  /// A handler for as long as it runs. Without a limit at its beginning it is not noted.
  class Entry {
   public:
    Entry(RunningHandlers& all, const RunningHandler& handler);
    ~Entry();

    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    const RunningHandler& handler() const { return handler_; }

   private:
    friend class RunningHandlers;

    RunningHandlers& all_;
    const RunningHandler handler_;
    const bool isNoted_;
    // Guarded by the lock of all_.
    Entry* older_ = nullptr;
    Entry* newer_ = nullptr;
    bool isTold_ = false;
  };

  RunningHandlers() = default;
  RunningHandlers(const RunningHandlers&) = delete;
  RunningHandlers& operator=(const RunningHandlers&) = delete;

  /// For handlers that begin from now on. 0 or less: none.
  void limit(Duration limit);
  Duration limit() const { return limit_.load(std::memory_order_relaxed); }
  bool hasLimit() const { return limit() > Duration::zero(); }

  /// Whether limit() was set since this was asked last.
  bool limitHasChanged() { return changed_ && changed_.exchange(false); }

  /// A handler that has outlasted the limit at `now`, each once, the longest first.
  std::optional<RunningHandler> takeLate(Clock::time_point now);

  /// No handler outlasts the limit earlier than this, by what is known at `now`. Only with a limit.
  Clock::time_point nextLate(Clock::time_point now);

 private:
  void add(Entry& entry);
  void remove(Entry& entry);
  void unlink(Entry& entry);

  std::atomic<Duration> limit_{Duration::zero()};
  // Set after the limit.
  std::atomic<bool> changed_{false};

  std::mutex mutex_;
  // Guarded by mutex_: those that were not taken, in the order in which they have begun.
  Entry* oldest_ = nullptr;
  Entry* newest_ = nullptr;
};

}  // namespace qov

#endif
