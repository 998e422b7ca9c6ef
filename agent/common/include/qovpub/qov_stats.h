#ifndef QOVPUB_QOV_STATS_H
#define QOVPUB_QOV_STATS_H

#include <qovpub/qov_export.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Why a module dropped a message that it had taken over. A message that was delivered (in_) and
/// that nobody took up then counts in both.
enum class QOVDropReason {
  kNoReceiver,    ///< no module of this process has the receiver's id
  kNoRoom,        ///< the receiving module was full
  kStopped,       ///< this module, the receiving one or the receiving task had stopped
  kNobodyWaits,   ///< a response for which nobody waits (any more)
  kInvalid,       ///< no package, no such type, a second request with one key, or an own request
                  ///< that does not say who waits for the response
  kNoMemory,      ///< no memory to remember who waits for the response
  kOtherProcess,  ///< addressed to another process
};

/// What one module does now and has done since it was made.
///
/// A message is what the module's leader has taken up: a request, a response or an asynchronous
/// message that somebody has put into its queue. Where it waits it counts 8 bytes; a request whose
/// response is waited for counts 16 until the leader has taken it up. From kRoomBytes on the module
/// takes no more, as CQOV_TaskMgr::putq() says.
///
/// Thread: a value.
struct QOV_EXPORT QOVModuleStats {
  using Duration = std::chrono::nanoseconds;  ///< of waits and of handling

  static constexpr std::size_t kRoomBytes = 16384;   ///< from so many waiting bytes on it is full
  static constexpr std::size_t kDropReasons = 7;     ///< how many values QOVDropReason has
  static constexpr std::size_t kHandlingTimes = 64;  ///< length of handlingTimes_

  unsigned int moduleId_ = 0;  ///< as CQOV_TaskMgr::moduleId()
  bool stopping_ = false;  ///< told to stop; not all of its threads have ended, or its destructor
  std::string name_;       ///< as CQOV_TaskMgr::name()

  // Since the module was made.
  std::uint64_t in_ = 0;        ///< delivered in the module: to its pool, a static task, a sender
  std::uint64_t out_ = 0;       ///< passed on to another module
  std::uint64_t refused_ = 0;   ///< blocks refused, as there was no room; their sender was told
  std::uint64_t timedOut_ = 0;  ///< requests of its own that got no response in time
  std::array<std::uint64_t, kDropReasons> dropped_{};  ///< by QOVDropReason

  // Now.
  std::uint64_t waiting_ = 0;       ///< blocks that wait for leader, pool and static tasks
  std::uint64_t waitingBytes_ = 0;  ///< of those in queues: what kRoomBytes bounds
  std::uint64_t workers_ = 0;       ///< in its pool
  std::uint64_t busy_ = 0;          ///< of these, those that are not idle
  std::uint64_t pending_ = 0;       ///< requests of its own that wait for their responses
  Duration oldestPending_{};        ///< how long the oldest of them waits, to a few ms; 0 for none
  std::uint64_t askedLater_ = 0;    ///< its askLater() whose continuations have not begun yet

  // The highest of both in queues so far. What is being passed on counts twice for that moment.
  std::uint64_t highestWaiting_ = 0;       ///< of waiting_
  std::uint64_t highestWaitingBytes_ = 0;  ///< of waitingBytes_

  // How long handleMessage() takes on all tasks of the module, and the continuations of askLater().
  // What they wait for counts, and so does what send() does for leaders meanwhile.
  std::uint64_t handled_ = 0;   ///< the sum of handlingTimes_
  Duration handlingSum_{};      ///< all of them together
  Duration longestHandling_{};  ///< so far, of those that have ended
  /// How many took less than 2^i nanoseconds, and not less than 2^(i-1).
  std::array<std::uint64_t, kHandlingTimes> handlingTimes_{};

  /// How many messages were dropped for `reason`.
  std::uint64_t dropped(QOVDropReason reason) const {
    return dropped_[static_cast<std::size_t>(reason)];
  }
};

/// The figures of the modules that run in this process, in the order of their ids.
///
/// A module is listed from its CQOV_TaskMgr::init() on until its stop() returns; one of the module
/// loader until its destructor has joined the last thread: what hangs at its end is seen. Nothing
/// waits for the reader: each figure is read for itself while the module goes on, so that two of
/// them may differ by what happened in between.
///
/// Thread: any; not from a signal handler.
/// Errors: throws std::bad_alloc.
QOV_EXPORT std::vector<QOVModuleStats> getModuleStats();

#endif
