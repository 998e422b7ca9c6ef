#ifndef QOV_FRAME_APP_STOP_WATCH_H
#define QOV_FRAME_APP_STOP_WATCH_H

#include <atomic>
#include <thread>

namespace qov {

class ShutdownWatch;

/// Begins the watch over the shutdown when a stop signal comes, not when the main thread comes to
/// it: that may hang in a log that takes nothing any more, and a signal handler cannot start
/// anything.
///
/// Thread: made and destroyed by the thread that runs the process reactor.
/// Owns:   a thread that sleeps until the signal and takes none itself.
/// Errors: without the thread the watch begins when the event loop ends.
class StopWatch {
 public:
  explicit StopWatch(ShutdownWatch& watch);
  ~StopWatch();

  StopWatch(const StopWatch&) = delete;
  StopWatch& operator=(const StopWatch&) = delete;

 private:
  void run();

  ShutdownWatch& watch_;
  std::atomic<bool> over_{false};
  std::thread thread_;
};

}  // namespace qov

#endif
