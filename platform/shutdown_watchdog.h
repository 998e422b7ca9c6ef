#ifndef QOV_PLATFORM_SHUTDOWN_WATCHDOG_H
#define QOV_PLATFORM_SHUTDOWN_WATCHDOG_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace qov::platform {

/// Aborts the process unless it is destroyed within its bound after start().
class ShutdownWatchdog {
 public:
  /// `seconds` is what the line says of `bound`.
  ShutdownWatchdog(std::chrono::nanoseconds bound, unsigned seconds);
  ~ShutdownWatchdog();

  ShutdownWatchdog(const ShutdownWatchdog&) = delete;
  ShutdownWatchdog& operator=(const ShutdownWatchdog&) = delete;

  /// Called before the process is aborted; before start() only.
  void beforeAbort(void (*report)()) { report_ = report; }

  void start();

 private:
  void watch(std::chrono::steady_clock::time_point deadline);
  /// Apart from watch(): whatever is written may hang.
  void tell();

  const std::chrono::nanoseconds bound_;
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
