#ifndef QOV_FRAME_APP_APP_START_WATCH_H
#define QOV_FRAME_APP_APP_START_WATCH_H

#include <thread>

namespace qov {

/// Ends a process whose start hangs, when a stop signal asks for that.
///
/// While one lives, SIGINT and SIGTERM are blocked and wait for the end of the start. A start that
/// does not end within 6 seconds from then on is given up: what it is at is told on standard error
/// and in the log, and the process ends by the signal. Where the signal does not end it (the first
/// process of a container), it exits with status 128 plus the signal's number. Nothing is stopped
/// in order.
///
/// Thread: made and destroyed by one thread, which has blocked the signals.
/// Owns:   a thread that sleeps until the signal, and two descriptors.
/// Errors: without thread or descriptors the start goes on unwatched.
class StartWatch {
 public:
  StartWatch();
  ~StartWatch();

  StartWatch(const StartWatch&) = delete;
  StartWatch& operator=(const StartWatch&) = delete;

 private:
  void run() const;
  /// Waits for a stop signal; false when the start has ended before.
  bool stopCame() const;
  bool endsInTime() const;

  // Constant after construction.
  int signals_;
  int over_;
  std::thread thread_;
};

}  // namespace qov

#endif
