#ifndef QOV_FRAME_APP_START_WATCHER_H
#define QOV_FRAME_APP_START_WATCHER_H

#include <sys/types.h>

#include <chrono>

#include "frame/app/start_page.h"

namespace qov {

/// The process between the starter and the daemon. All that splitting off a daemon leaves behind
/// becomes its child, so it learns whatever way the daemon ends. It has no other children, whatever
/// the starter has.
///
/// Goes when the starter goes. A start that takes longer than the limit counts as failed and is
/// ended: by SIGTERM, and by SIGKILL when that does not help. A daemon that has failed itself is
/// waited for, so that the next one does not meet it, but not for good.
///
/// Thread: a process of its own, which a fork has just made.
/// Owns:   the process: run() returns in its child only.
/// Errors: told through the page.
class StartWatcher {
 public:
  StartWatcher(StartPage& page, std::chrono::milliseconds limit) : page_(page), limit_(limit) {}

  /// Forks. Returns in the child, which has the signal mask and actions of `starter`, its parent's
  /// parent; ends this process when the outcome is known.
  void run(pid_t starter);

 private:
  using Time = std::chrono::steady_clock::time_point;

  [[noreturn]] void watch();
  /// True when the outcome is known.
  bool collect();
  void ended(int status);
  /// Waits for news; false when there is none until `limit`.
  bool waitUntil(Time limit);
  /// Tells that the start takes too long, and ends the daemon.
  void giveUp();
  /// Waits for the daemon's end; false when it takes too long.
  bool hasEnded(pid_t daemon);

  StartPage& page_;
  const std::chrono::milliseconds limit_;
  int lastFailure_ = 0;  ///< how the last child that did not end with 0 has ended
};

}  // namespace qov

#endif
