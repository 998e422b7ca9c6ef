#ifndef QOVPUB_QOV_TRACE_H
#define QOVPUB_QOV_TRACE_H

#include <qovpub/qov_export.h>
#include <qovpub/qov_stats.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

/// One step of a message on its way through the modules.
struct QOV_EXPORT QOVTraceEvent {
  /// Which one.
  enum class Step : std::uint8_t {
    kSend,         ///< a task hands it over; the queue of its module may still refuse it
    kDispatch,     ///< a leader takes it up, in the sender's module and in each that passes it on
    kHandleBegin,  ///< a worker or static task begins with it, or with a continuation of askLater()
    kHandleEnd,    ///< and has done with it
    kAnswer,       ///< who asked has this response
    kTimeOut,      ///< no response to this request came in time
    kDrop,         ///< the module drops it, see reason_
  };
  using Clock = std::chrono::steady_clock;  ///< that of time_

  Clock::time_point time_;   ///< when
  pid_t thread_ = 0;         ///< as in /proc/self/task; a sender's may do the leader's work
  Step step_ = Step::kSend;  ///< which
  std::uint8_t module_ = 0;  ///< in which the step is
  /// With kDrop. Where the message is not known any more, what follows is 0.
  QOVDropReason reason_ = QOVDropReason::kNoReceiver;

  // Of the message's header; of the request for a time-out.
  std::uint8_t type_ = 0;  ///< QOVMsgHead::Type
  std::uint8_t smid_ = 0;  ///< sender's module
  std::uint8_t rmid_ = 0;  ///< receiver's module
  std::uint32_t sn_ = 0;   ///< serial number; a response has that of its request
  std::uint64_t opc_ = 0;  ///< operation code
};

/// A record of the last steps of all messages of the process, while it is on. While it is off a
/// step costs one look at a flag.
///
/// Steps are numbered from 0 on, for as long as the process lives, and stand in a ring of kRoom:
/// the oldest go when it is full. The ring is made by the first start(), 2.5 MiB, and stays.
///
/// Thread: any; not from a signal handler. Nobody waits for a reader, and no reader for anybody.
class QOV_EXPORT QOVMessageTrace {
 public:
  static constexpr std::size_t kRoom = 65536;  ///< so many steps are kept

  /// Records from now on the messages that `module` sends or receives, or those of all modules;
  /// returns the number of the first step. Changes the choice if it is on already.
  /// Throws std::bad_alloc.
  static std::uint64_t start(std::optional<std::uint8_t> module = std::nullopt);
  /// Records no more; what there is can still be read.
  static void stop();
  /// Whether start() was called and stop() not since.
  static bool isOn();

  /// What read() found.
  struct Part {
    std::vector<QOVTraceEvent> events_;  ///< of one thread in their order, of several nearly
    std::uint64_t next_ = 0;             ///< number of the step behind them
    std::uint64_t lost_ = 0;             ///< steps among them that came too fast to be read
  };
  /// At most `most` steps from number `from` on. Throws std::bad_alloc.
  static Part read(std::uint64_t from, std::size_t most = kRoom);
};

#endif
