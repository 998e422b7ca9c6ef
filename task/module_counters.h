#ifndef QOV_TASK_MODULE_COUNTERS_H
#define QOV_TASK_MODULE_COUNTERS_H

#include <qovpub/qov_stats.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "task/message_trace.h"
#include "task/running_handlers.h"
#include "task/waiting_requests.h"

namespace qov {

/// A number that any thread changes and any thread reads, without an order among several of them.
class Counter {
 public:
  void add(std::uint64_t n = 1) { value_.fetch_add(n, std::memory_order_relaxed); }
  void subtract(std::uint64_t n) { value_.fetch_sub(n, std::memory_order_relaxed); }
  void set(std::uint64_t value) { value_.store(value, std::memory_order_relaxed); }
  /// Adds 1 unless that makes more than `most`. False then.
  bool addUpTo(std::uint64_t most);
  /// Keeps the greater one.
  void raiseTo(std::uint64_t value);
  std::uint64_t read() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::uint64_t> value_{0};
};

/// What one module counts about itself: see QOVModuleStats.
///
/// Thread: any.
class ModuleCounters {
 public:
  using Clock = std::chrono::steady_clock;

  explicit ModuleCounters(unsigned int moduleId) : moduleId_(moduleId) {}
  ModuleCounters(const ModuleCounters&) = delete;
  ModuleCounters& operator=(const ModuleCounters&) = delete;

  unsigned int moduleId() const { return moduleId_; }

  /// Counts a dropped message, which is `message` where that is known.
  void drop(QOVDropReason reason, const TracedMessage& message = {});
  /// Counts a `request` that got no response in time.
  void timeOut(const MsgKey& request);
  /// Counts one call of a handler that began at `begin` and has just ended. Returns what it took.
  std::chrono::nanoseconds handled(Clock::time_point begin);
  /// `since`: when the oldest of `count` pending requests began, by coarseNow(); the clock's epoch
  /// for none.
  void pending(std::size_t count, Clock::time_point since);

  /// A few milliseconds late, and many times cheaper than the clock itself.
  static Clock::time_point coarseNow();

  /// All but the module's id and name, and what its Admission knows, which waiting_ lacks.
  QOVModuleStats read() const;

  Counter in_;
  Counter out_;
  Counter refused_;
  Counter workers_;
  Counter idle_;
  /// 1 while a message waits for an idle worker, where no queue counts it.
  Counter waitingForWorker_;
  Counter askedLater_;
  RunningHandlers handlers_;
  WaitingRequests waitingRequests_;

 private:
  const unsigned int moduleId_;
  Counter timedOut_;
  std::array<Counter, QOVModuleStats::kDropReasons> dropped_;
  Counter pending_;
  Counter oldestPendingSince_;
  Counter handlingSum_;
  Counter longestHandling_;
  std::array<Counter, QOVModuleStats::kHandlingTimes> handlingTimes_;
};

/// A handler as long as it runs, which notes it, counts its time and traces it.
class HandlingTime {
 public:
  /// A handler of `message` on the thread of `task`.
  HandlingTime(ModuleCounters& counters, const QOVMsgHead& message, const CQOV_Task& task)
      : counters_(counters),
        entry_(counters.handlers_, {message, &task, ModuleCounters::Clock::now()}) {
    noteHandleBegin(counters.moduleId(), message);
  }
  ~HandlingTime() {
    noteHandleEnd(counters_.moduleId(), entry_.handler().message_);
    entry_.took(counters_.handled(entry_.begin()));
  }

  HandlingTime(const HandlingTime&) = delete;
  HandlingTime& operator=(const HandlingTime&) = delete;

 private:
  ModuleCounters& counters_;
  RunningHandlers::Entry entry_;
};

}  // namespace qov

#endif
