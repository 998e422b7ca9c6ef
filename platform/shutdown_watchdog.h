#ifndef QOV_PLATFORM_SHUTDOWN_WATCHDOG_H
#define QOV_PLATFORM_SHUTDOWN_WATCHDOG_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace qov::platform {

/// Aborts the process unless it is destroyed within its time after start().
///
/// Only the time that the process runs counts: one that was stopped meanwhile (SIGSTOP, a debugger)
/// has lost a second.
class ShutdownWatchdog {
 public:
  /// `seconds` of the length `second`.
  ShutdownWatchdog(std::chrono::nanoseconds second, unsigned seconds);
  ~ShutdownWatchdog();

  ShutdownWatchdog(const ShutdownWatchdog&) = delete;
  ShutdownWatchdog& operator=(const ShutdownWatchdog&) = delete;

  /// Called before the process is aborted; before start() only.
  void beforeAbort(void (*report)()) { report_ = report; }

  void start();

 private:
  void watch();
  /// Waits, and holds `held` again then; true when it is destroyed within its time.
  bool endsInTime(std::unique_lock<std::mutex>& held);
  /// Apart from watch(): whatever is written may hang.
  void tell();

  const std::chrono::nanoseconds second_;
  const unsigned seconds_;
  void (*report_)() = nullptr;

  std::mutex lock_;
  std::condition_variable changed_;
  // Guarded by lock_.
  bool over_ = false;
  bool overdue_ = false;
  bool told_ = false;
  std::thread watching_;
  std::thread telling_;
};

}  // namespace qov::platform

#endif
