#ifndef QOVPUB_QOV_PERIODIC_TASK_H
#define QOVPUB_QOV_PERIODIC_TASK_H

#include <qovpub/detail/period_state.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_task.h>

#include <chrono>
#include <cstdint>
#include <list>

/// A static scheduled task that does something again and again.
///
///     class Sweep : public QOVPeriodicTask {
///      public:
///       explicit Sweep(CQOV_TaskMgr* module) : QOVPeriodicTask(module) { every(minutes(5)); }
///       void tick() override { ... }
///     };
///
/// Started with CQOV_TaskMgr::insertStaticScheduledTask(). Between two ticks the thread serves the
/// operation codes of getOpcList(), if the task has any; no message waits for more than one tick. A
/// stop ends at once the wait for the next tick, and a request that a tick waits for. A tick that
/// does anything else runs to its end first.
///
/// Thread: tick() on the task's own thread; every(), period() and first() there, or before the task
///         is started; missed() from any.
/// Owns:   as CQOV_StaticSchecheduledTask.
/// Errors: whatever tick() throws is logged, and the next tick comes when it is due.
class QOV_EXPORT QOVPeriodicTask : public CQOV_StaticSchecheduledTask {
 public:
  /// Hours, seconds and the like become one by themselves.
  using Duration = std::chrono::nanoseconds;

  /// Without ticks until every() is called. `mgr` is the module that the task belongs
  /// to; it is borrowed and outlives the task.
  explicit QOVPeriodicTask(CQOV_TaskMgr* mgr);

  /// Has tick() called at start + first + n * period on the monotonic clock, n from 0 on; start is
  /// the call, or the start of the task if that comes later. However long a tick takes, the times
  /// stay the same. Times that pass during a tick are left out and counted. A `period` of 0 or
  /// less: no more ticks. More than 100 years count as 100 years.
  void every(Duration period, Duration first);
  /// The same with the first tick one period after the start.
  void every(Duration period) { every(period, period); }

  /// @{
  /// What every() was told, within its limits. A period of 0 or less: no ticks.
  Duration period() const { return state_.period_; }
  Duration first() const { return state_.first_; }
  /// @}

  /// How many times a tick was left out.
  std::uint64_t missed() const { return state_.missed_; }

  /// What is to be done each time. It may send and wait for answers.
  virtual void tick() = 0;

  /// What the task's thread does: ticks and serves messages in turn until a stop. Returns 0.
  int svc() override;
  /// For tasks without operation codes: refuses (-1).
  int handleMessage(CQOV_MsgPackage& pkg) override;
  /// None.
  void getOpcList(std::list<unsigned long long>& opcs) override;

 private:
  // Calls tick() in place of svc(), by a clock of its own.
  friend class QOVTestKit;

  qov::PeriodState state_;
};

#endif
