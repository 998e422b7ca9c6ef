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

  void start();

 private:
  void run(std::chrono::steady_clock::time_point deadline);

  const std::chrono::nanoseconds bound_;
  const unsigned seconds_;

  std::mutex lock_;
  std::condition_variable changed_;
  // Guarded by lock_.
  bool over_ = false;
  std::thread thread_;
};

}  // namespace qov::platform

#endif
