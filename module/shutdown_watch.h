#ifndef QOV_MODULE_SHUTDOWN_WATCH_H
#define QOV_MODULE_SHUTDOWN_WATCH_H

#include <qovplatform/platform_guard.h>

namespace qov {

/// Ends the process when a stop of modules hangs: 450 seconds after begins(), unless it is
/// destroyed before. What hangs is told before that, on standard error and in the log: the open
/// steps and what each thread is at.
///
/// Thread: made and destroyed by one thread; begins() from any thread meanwhile.
/// Owns:   the platform's guard.
/// Errors: those of the platform's guard. A platform guard that cannot tell is left to do what it
///         does.
class ShutdownWatch {
 public:
  ShutdownWatch();

  /// The stop begins now; later calls change nothing. Not for signal handlers.
  void begins();

 private:
  MonitorGuard monitor_;
};

}  // namespace qov

#endif
