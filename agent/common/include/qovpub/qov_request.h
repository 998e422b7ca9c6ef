#ifndef QOVPUB_QOV_REQUEST_H
#define QOVPUB_QOV_REQUEST_H

#include <qovpub/qov_export.h>
#include <qovpub/qov_message_package.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

class CQOV_Task;

/// Why a message was not sent, or got no answer.
enum class QOVReason : std::uint8_t {
  kNone,        ///< it was answered, or sent
  kTimedOut,    ///< no answer came in time
  kRefused,     ///< the receiver answered with a result other than 0, QOVAnswer::result()
  kNoReceiver,  ///< no module has the receiver's id
  kNoRoom,      ///< this module or the receiver had no room, for as long as the time-out says
  kStopped,     ///< this module stops, the receiver has stopped, or somebody ended the wait
  kNoMemory,    ///< no memory to send it, or to remember who waits
  kBusy,        ///< another thread waits for an answer in the same task
  kInvalid,     ///< it was sent before, waits for its answer already, or what came is no message
};

/// The reason in a few words of English, such as "no answer came in time". A static text.
QOV_EXPORT const char* QOV_TextOf(QOVReason reason) noexcept;

/// What came of a request: the answer, or the reason why there is none.
///
/// Thread: a value.
/// Owns:   the answer.
/// Errors: none.
class QOV_EXPORT QOVAnswer {
 public:
  /// `package` must not be null.
  explicit QOVAnswer(std::unique_ptr<CQOV_MsgPackage> package) noexcept
      : package_(std::move(package)) {}
  /// No answer. `reason` is not kNone; `result` is for kRefused.
  explicit QOVAnswer(QOVReason reason, std::uint8_t result = 0) noexcept
      : package_(), reason_(reason), result_(result) {}

  /// Whether there is an answer. False after take(), too.
  explicit operator bool() const noexcept { return package_ != nullptr; }
  /// @{
  /// The answer; only if there is one.
  CQOV_MsgPackage& operator*() const noexcept { return *package_; }
  CQOV_MsgPackage* operator->() const noexcept { return package_.get(); }
  /// @}
  /// Gives the answer, or null, to the caller.
  std::unique_ptr<CQOV_MsgPackage> take() noexcept { return std::move(package_); }

  /// kNone for an answer.
  QOVReason reason() const noexcept { return reason_; }
  /// With kRefused the receiver's result (the response's MST), 1 to 255; otherwise 0.
  std::uint8_t result() const noexcept { return result_; }
  /// The reason as QOV_TextOf() has it, "answered" for an answer.
  const char* text() const noexcept { return QOV_TextOf(reason_); }

 private:
  std::unique_ptr<CQOV_MsgPackage> package_;
  QOVReason reason_ = QOVReason::kNone;
  std::uint8_t result_ = 0;
};

/// A message of a task to a module of this process: fills in the header, and sends it.
///
///     QOVRequest request(*this, kInventory, kReadHost);
///     request.addRecord(kFilter).addString(kName, "eth0");
///     if (QOVAnswer answer = request.ask(std::chrono::seconds(2))) {
///       use((*answer)[0]);
///     } else {
///       ... answer.text()
///     }
///
/// Thread: one at a time. ask() on the task's own thread; askLater() and tell() on any.
/// Owns:   the message, until the first attempt to send it. The message is gone after that, whether
///         it was sent or not: another attempt is kInvalid. ask() and askLater() with a time-out of
///         0 or less are no attempts. The task is borrowed.
/// Errors: making a message and its records throws std::bad_alloc. Sending throws nothing; what
///         it returns says why nothing was sent, or why no answer came.
class QOV_EXPORT QOVRequest {
 public:
  /// A time-out. Seconds and milliseconds become one by themselves, nanoseconds do not.
  using Duration = std::chrono::microseconds;
  /// Called with the answer, or with the reason why there is none.
  using Continuation = std::function<void(QOVAnswer)>;

  /// How many askLater() of one module may be pending.
  static constexpr std::size_t kMostLater = 1024;

  /// A plain message of `sender`, whose module it names as the one that asks, to `module` with
  /// operation code `opc`, still without records.
  QOVRequest(CQOV_Task& sender, std::uint8_t module, std::uint64_t opc);
  /// The same with a message that is there already, such as an OM message: addresses and operation
  /// code are filled in, all else stays. `message` must not be null.
  QOVRequest(CQOV_Task& sender, std::uint8_t module, std::uint64_t opc,
             std::unique_ptr<CQOV_MsgPackage> message);

  /// The message, until it is sent.
  CQOV_MsgPackage& message() noexcept { return *message_; }
  /// Appends an empty record to the message, until that is sent, and returns it.
  CTLVRecordV3& addRecord(std::uint64_t cmd) { return message_->addRecord(cmd); }

  /// Sends the message as a request and waits for the answer: at most `timeout` for room, and then
  /// at most `timeout` again for the answer. A `timeout` of 0 or less sends nothing (kTimedOut).
  /// The calling thread serves nobody else meanwhile.
  ///
  /// A static scheduled task that asks a module that does not exist, or has no room, waits until
  /// the stop, whatever `timeout` says (see CQOV_StaticSchecheduledTask).
  [[nodiscard]] QOVAnswer ask(Duration timeout);
  /// The same without a limit: until the answer, a refusal or the stop comes.
  [[nodiscard]] QOVAnswer ask();

  /// Sends the message as a request and returns; `continuation` runs with the answer, or with the
  /// reason why there is none, as a message of the sender's module on one of its workers. So a
  /// worker may have many requests under way, and none waits for them.
  ///
  /// kNone: `continuation` runs exactly once, maybe before this returns. It gets kTimedOut
  /// `timeout` after the request was passed on, and kStopped when the asked module ends or this one
  /// stops. Anything else is the reason why nothing was sent, and `continuation` does not run: as
  /// ask() tells it, kNoRoom also while kMostLater of the module are pending, and kInvalid also
  /// without a continuation. This waits for room in this module as long as `timeout` says; a
  /// `timeout` of 0 or less sends nothing (kTimedOut).
  ///
  /// Continuations wait for a worker in turn with the module's messages, in the order in which
  /// their answers or reasons have come. They are pending until they begin to run
  /// (QOVModuleStats::askedLater_), and so are those of static scheduled tasks, which run on the
  /// pool, too. Several may run at once, and beside the task that asked: what they share is locked.
  /// A continuation may send from any task, also askLater(); to wait in ask() it takes the task on
  /// whose thread it runs, *getCurrentTask(). That is one of the module's workers, or at the stop
  /// the scheduler, which is of none of the module's own classes. What it throws is logged.
  ///
  /// A stop ends what is pending before any worker ends. Continuations that find no worker then run
  /// on the scheduler's thread; all have run and are destroyed when CQOV_TaskMgr::stop() returns.
  /// Where that thread does not run to its end, they do not run and are destroyed with the module's
  /// manager: in a module that was never started, or if the thread was cancelled or a continuation
  /// has ended it. The workers of the pool are of classes derived from CQOV_CommonTask, with its
  /// svc().
  ///
  /// Thread: any.
  [[nodiscard]] QOVReason askLater(Duration timeout, Continuation continuation);

  /// @{
  /// Sends the message and does not wait for an answer: `type` is kNotice or kEvent.
  ///
  /// Waits for room in this module, without a limit or as long as `timeout` says; with 0 or less it
  /// sends only if there is room at once. kNone: this module has taken the message. It does not say
  /// that the receiver is there, has room or handles it; the log and QOVModuleStats::dropped_ tell
  /// of messages that went no further. kNoRoom, kStopped (this module stops), kNoMemory, kInvalid
  /// (sent before): nothing was sent.
  ///
  /// Thread: any.
  QOVReason tell(QOVMsgHead::Type type = QOVMsgHead::kNotice);
  QOVReason tell(Duration timeout, QOVMsgHead::Type type = QOVMsgHead::kNotice);
  /// @}

 private:
  QOVAnswer askWithin(const Duration* timeout);
  QOVReason tellWithin(const Duration* timeout, QOVMsgHead::Type type);

  CQOV_Task& sender_;
  std::unique_ptr<CQOV_MsgPackage> message_;
};

#endif
