#ifndef QOVPLATFORM_PLATFORM_GUARD_H
#define QOVPLATFORM_PLATFORM_GUARD_H

#include <chrono>

namespace qov::platform {
class GuardSlot;
}  // namespace qov::platform

/// Watches the handling of one message: a handling that outlasts its time is logged once.
///
/// While the handling still hangs, a background thread writes the line; when it ends late before
/// that thread has looked, the guard writes it on closing. The line goes through ACE's log at
/// warning level, where the guarded thread's own records go. The background thread starts with the
/// first guard of the process (and again with the first one after a fork), takes no signals, is
/// unknown to ACE_Thread_Manager and ends when the process exits; when it is stuck in a log that
/// takes nothing any more, the exit goes on without it after 3 seconds. It sleeps as long as no
/// guard can become overdue. A log that a thread is writing to at a fork stays locked in the child,
/// unless the agent's library is loaded, whose fork waits for it.
///
/// The stream that a guarded thread logs to (ACE_Log_Msg::msg_ostream) must outlive the process's
/// guards: the background thread may still write there after the guard has closed, and keeps it as
/// its own until the next line.
///
/// Times are kept to a few milliseconds. A guard makes no system call unless it is overdue, has a
/// shorter time than any before it, or is the first of its thread.
///
/// Up to eight guards of a thread that are open at once are seen while they hang; those nested
/// deeper are checked on closing only. That holds as long as not more than 128 threads of the
/// process have had guards, ended ones included. From then on threads share: the 129th has its
/// eight together with the first, the 130th with the second, and so on.
///
/// Thread: opened and closed by the same thread; any number of threads at once. Guards nest.
/// Owns:   nothing that outlives it.
/// Errors: none; without a background thread the line appears when the guard closes. A destination
///         of ACE's log that throws costs the line.
class __attribute__((visibility("default"))) FowGuard {
 public:
  /// `kind` and `level` name the handling in the log line; `seconds` is the time it may take,
  /// 0 for no limit.
  FowGuard(unsigned kind, unsigned level, unsigned seconds);
  ~FowGuard();

  FowGuard(const FowGuard&) = delete;
  FowGuard& operator=(const FowGuard&) = delete;

 private:
  unsigned kind_;
  unsigned level_;
  unsigned seconds_;
  std::chrono::nanoseconds deadline_{};
  qov::platform::GuardSlot* slot_;
};

/// Stands around the shutdown of a process for the platform, which may supervise it. The stand-in's
/// does nothing: the library watches over a shutdown itself.
///
/// Thread: made and destroyed by one thread.
/// Owns:   nothing.
/// Errors: none.
class __attribute__((visibility("default"))) MonitorGuard {
 public:
  /// `seconds` is the time that the shutdown may take.
  explicit MonitorGuard(unsigned seconds);
  ~MonitorGuard();  // NOLINT(performance-trivially-destructible): the platform's does something

  MonitorGuard(const MonitorGuard&) = delete;
  MonitorGuard& operator=(const MonitorGuard&) = delete;
};

/// The platform's system-call gate. Returns 0, or -1 with errno EINVAL.
///
/// Command 512 reads the local node id. `request` points to 32 bytes: three unsigned words 0, 2, 0,
/// a word of padding, a null pointer and the address of the caller's 16-bit node id. The id is the
/// value of the environment variable "PXOS_NODE_ID", whose whole text must be a decimal number from
/// 0 to 65535; otherwise the call fails and leaves the caller's node id as it was. Any other
/// command or request fails.
__attribute__((visibility("default"))) int PXOS_SysCall(unsigned command, void* request);

#endif
