#ifndef QOVPUB_QOV_ACTIVITY_H
#define QOVPUB_QOV_ACTIVITY_H

#include <qovpub/qov_export.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

/// A handler that runs: handleMessage() of a task, or the continuation of an askLater().
///
/// Thread: a value.
struct QOV_EXPORT QOVRunningHandler {
  unsigned int moduleId_ = 0;  ///< its module
  int thread_ = 0;             ///< its thread, by the system's number: gettid()
  // Of what it handles, as it came. A continuation has them of the response, be it one that did not
  // come.
  std::uint64_t opc_ = 0;               ///< operation code
  std::uint32_t sn_ = 0;                ///< serial number
  std::uint8_t senderProcess_ = 0;      ///< process of the sender
  std::uint8_t sender_ = 0;             ///< module of the sender
  bool continuation_ = false;           ///< whether it is one of askLater()
  std::chrono::nanoseconds running_{};  ///< since it began
};

/// A request whose sender waits for the answer.
///
/// Thread: a value.
struct QOV_EXPORT QOVWaitingRequest {
  unsigned int moduleId_ = 0;           ///< of the sender
  int thread_ = 0;                      ///< that waits; 0 for askLater(), for which none does
  std::uint64_t opc_ = 0;               ///< operation code
  std::uint32_t sn_ = 0;                ///< serial number
  std::uint8_t receiverProcess_ = 0;    ///< process that is asked
  std::uint8_t receiver_ = 0;           ///< module that is asked
  std::chrono::nanoseconds waiting_{};  ///< since it was sent
  std::chrono::nanoseconds timeout_{};  ///< 0: without limit
};

/// How long the handlers of one operation code have taken, waits of theirs included.
///
/// Thread: a value.
struct QOV_EXPORT QOVHandlerTimes {
  using Duration = std::chrono::nanoseconds;  ///< of all times

  unsigned int moduleId_ = 0;  ///< of the handlers
  std::uint64_t opc_ = 0;      ///< operation code
  bool continuation_ = false;  ///< of askLater(), with that code
  bool others_ = false;        ///< all codes beyond QOVActivity::kMostCodes in one; opc_ is 0 then
  std::uint64_t count_ = 0;    ///< handlers that have ended
  Duration sum_{};             ///< of all of them
  Duration longest_{};         ///< of all of them
  // Both are up to an eighth too high, and 2 hours at most.
  Duration median_{};        ///< half of them took no longer
  Duration percentile99_{};  ///< 99 of 100 took no longer
};

/// Has the process note what its modules work on and wait for, while at least one of these lives.
///
/// What began before is not noted. A process that makes none of these pays one look at a flag for
/// each handler and each request. With one, they take short locks, which nobody holds for longer
/// than it takes to copy what one module does. Times are kept to the end of their module.
///
/// Thread: any, not from a signal handler. Modules are listed, and nobody waits for the reader, as
///         with getModuleStats(): what is told began and ended at moments of its own.
/// Errors: what returns a vector throws std::bad_alloc. Without memory for a module's times, or for
///         an askLater(), these are not noted.
class QOV_EXPORT QOVActivity {
 public:
  /// Operation codes of a module, those of continuations counted apart, whose times are kept.
  static constexpr std::size_t kMostCodes = 64;

  QOVActivity() noexcept;
  ~QOVActivity();
  QOVActivity(const QOVActivity&) = delete;
  QOVActivity& operator=(const QOVActivity&) = delete;

  /// By modules; of one module the longest first.
  std::vector<QOVRunningHandler> handlers() const;
  std::vector<QOVWaitingRequest> requests() const;  ///< in the same order
  /// By modules; of one module in the order in which the codes came first, the others last.
  std::vector<QOVHandlerTimes> times() const;
};

#endif
