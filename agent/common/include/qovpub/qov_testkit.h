#ifndef QOVPUB_QOV_TESTKIT_H
#define QOVPUB_QOV_TESTKIT_H

#include <qovpub/qov_handlers.h>
#include <qovpub/qov_long_socket.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_periodic_task.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// Tests of a module without an agent: its handlers run on the thread of the test, nothing waits,
/// and what they send is there to be looked at. For programs that link qov::qovtest; for any test
/// framework. docs/testing-modules.md shows how.

namespace qov {
class TestLog;
class TestRouter;
}  // namespace qov

/// The process that a test runs in: its configuration, in a folder of its own below the system's
/// folder for temporary files, and its log. "QOV_ROOT" names the folder, and the process has number
/// kId. A new object starts anew, with an empty log, no settings and no devices.
///
/// A process has one such folder, which goes when the process ends.
///
/// Thread: one, and one object at a time.
/// Owns:   the files in the folder. ACE logging is as it was before when the object is gone.
/// Errors: throws std::runtime_error when a file cannot be written, or when the process has read
///         another configuration before; std::invalid_argument for what a file cannot hold.
class QOVTestProcess {
 public:
  /// The number of the process, "PROC_PID".
  static constexpr std::uint8_t kId = 7;

  QOVTestProcess();
  ~QOVTestProcess();

  QOVTestProcess(const QOVTestProcess&) = delete;
  QOVTestProcess& operator=(const QOVTestProcess&) = delete;

  /// Sets `key` of `section` in the configuration file of the process.
  void configure(const std::string& section, const std::string& key, const std::string& value);
  /// Sets item `key` of `device` in the device configuration, which is read anew by the next
  /// CQOVXmlConfig::instance(). Do not keep what an earlier one gave.
  void configureDevice(const std::string& device, const std::string& key, const std::string& value);

  /// What the calling thread has logged at INFO and above.
  std::string log() const;

  /// Where "QOV_ROOT" points, without a slash at the end. Files of the test may lie there, too.
  const std::string& folder() const;

 private:
  const std::unique_ptr<qov::TestLog> log_;
  std::set<std::string> sections_;
  std::map<std::string, std::map<std::string, std::string>> devices_;
};

/// One module of a test, without threads.
///
///     QOVTestKit kit(kModule);
///     kit.answer(kInventory, kReadHost, [](const auto&, auto& answer) { answer.addRecord(1); });
///     Worker worker(kit.module());
///     CQOV_MsgPackage request = kit.message(kGreet);
///     const QOVAnswer answer = kit.ask(worker, request);
///
/// Whatever a task of the module sends goes to the kit, in place of the module's leader: it is kept
/// for sent(), and a request gets what the table says, before send() waits. A request that the
/// table does not have finds no receiver.
///
/// The continuation of an askLater() runs when the handler or tick() has returned: in handle(),
/// ask() or advance(), in the order of the requests, those that it asks for itself included. One
/// that times out runs in the advance() that reaches the end of its time-out. getCurrentTask() is a
/// task of the module, and none of the test's, meanwhile.
///
/// Time stands still but for advance(), and for requests of ask() or send() that time out.
///
/// Thread: that of the test, which is the only one. Do not start tasks, or the module.
/// Owns:   what was sent, continuations until they have run, and the module that it has made. Tasks
///         are borrowed. Continuations that have not run by the end of the kit do not run, since
///         the tasks may be gone by then.
/// Errors: what a handler, a continuation or a function of the table throws comes through.
class QOVTestKit {
 public:
  /// Messages in the order in which they were sent; none is null.
  using Sent = std::vector<std::unique_ptr<CQOV_MsgPackage>>;
  /// Fills the answer to `request`.
  using Fill = std::function<void(const CQOV_MsgPackage& request, CQOV_MsgPackage& answer)>;
  /// Of the kit's clock.
  using Duration = std::chrono::nanoseconds;

  /// The module that a message() comes from unless the test says another.
  static constexpr std::uint8_t kElsewhere = 255;

  /// Makes a process and a module with the number `moduleId`, 0 to 255.
  explicit QOVTestKit(unsigned int moduleId);
  /// For a module of the author's own. Both outlive the kit.
  QOVTestKit(QOVTestProcess& process, CQOV_TaskMgr& module);
  ~QOVTestKit();

  QOVTestKit(const QOVTestKit&) = delete;
  QOVTestKit& operator=(const QOVTestKit&) = delete;

  /// The module that tasks are made with; never null, lives as long as the kit.
  CQOV_TaskMgr* module() const;
  /// Its process, whose settings and log the test uses.
  QOVTestProcess& process() const;

  // Running handlers.

  /// A message to the module with operation code `opc`, from module `from`, without records.
  CQOV_MsgPackage message(std::uint64_t opc, QOVMsgHead::Type type = QOVMsgHead::kRequest,
                          std::uint8_t from = kElsewhere) const;
  /// Fills in the header of a message that is there already, such as an OM message.
  void address(CQOV_MsgPackage& message, std::uint64_t opc,
               QOVMsgHead::Type type = QOVMsgHead::kRequest, std::uint8_t from = kElsewhere) const;

  /// Has `task` handle `message` and returns the handler's result. getCurrentTask() is `task`
  /// meanwhile.
  int handle(CQOV_CommonTask& task, CQOV_MsgPackage& message);

  /// The same, and gives what the requester's send() would have got: the answer, which is taken out
  /// of sent(), or kRefused with the result, or kTimedOut if `task` has sent no answer that finds
  /// the way back.
  QOVAnswer ask(CQOV_CommonTask& task, CQOV_MsgPackage& message);

  // What the module has sent.

  /// Everything sent so far, in that order, requests that got no answer included.
  const Sent& sent() const;
  /// Gives it away; sent() starts anew.
  Sent takeSent();

  // The table: what becomes of messages to `module` with operation code `opc`. The latest entry
  // counts. The module may be the kit's own.

  /// Requests are answered, by an answer without records if there is no `fill`.
  void answer(std::uint8_t module, std::uint64_t opc, Fill fill = nullptr);
  /// Requests are answered with `result`, 1 to 255.
  void refuse(std::uint8_t module, std::uint64_t opc, std::uint8_t result);
  /// Requests get no answer for this reason, which is neither kNone nor kRefused. kTimedOut moves
  /// the clock by the request's time-out; a request without one waits until the stop, and ends with
  /// kStopped. kNoRoom refuses whatever is sent, notices too, before it is sent. Static scheduled
  /// tasks get every reason at once, unlike in an agent (see QOVRequest::ask()).
  void fail(std::uint8_t module, std::uint64_t opc, QOVReason reason);

  // The clock.

  /// Time since the kit was made.
  Duration now() const { return now_; }
  /// Starts the periods of `task`, once: the first tick is due `task.first()` from now. `task` must
  /// outlive the last use of the kit. A later every() starts them anew, as in an agent.
  void start(QOVPeriodicTask& task);
  /// Moves the clock by `span`, and calls tick() of the tasks that were started whenever that is
  /// due, on the way and at its end. A tick lasts as long as its requests take to time out. It may
  /// go past the end; times that pass meanwhile are left out, and counted by missed(). Runs the
  /// continuations that are due as well. Returns how many ticks there were. After a tick that has
  /// thrown, the clock stands where the tick ended, and the next one comes when it is due.
  std::size_t advance(Duration span);

  // The stop.

  /// Does to requests what a stop of the module does: continuations that wait run now, with
  /// kStopped, and from now on nothing can be sent (kStopped).
  void stop();

 private:
  /// A task that was started, and when its next tick is due.
  struct Period {
    QOVPeriodicTask* task;
    std::chrono::steady_clock::time_point told;  ///< differs from the task's after every()
    Duration due;
  };

  std::unique_ptr<qov::TestRouter> makeRouter();
  Period* nextUntil(Duration end);
  void tick(Period& period);
  void moveOn(Period& period);
  /// Starts the periods anew of tasks whose every() was called.
  void noteNewPeriods();

  // What the kit has made itself.
  const std::unique_ptr<QOVTestProcess> ownProcess_;
  const std::unique_ptr<CQOV_TaskMgr> ownModule_;

  QOVTestProcess& process_;
  CQOV_TaskMgr& module_;
  const std::unique_ptr<qov::TestRouter> router_;
  Duration now_{};
  std::list<Period> periods_;
};

/// A link to the management endpoint that connects to nothing: a table answers. For code that is
/// given its CQOVLongSocket by reference. The exchanges and walks are the link's own, and messages
/// pass through their binary form both ways.
///
///     QOVFakeLink link;
///     link.answer(kReadTable, [](const auto&, auto& answer) { answer.addRecord(kReadTable); });
///     Reader reader(link);
///
/// Thread: that of the test.
/// Owns:   what was sent.
/// Errors: what a function of the table throws comes through.
///
/// As its base has virtual operations but no virtual destructor, -Wnon-virtual-dtor is off for this
/// class. Nothing is derived from it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class QOVFakeLink final : public CQOVLongSocket {
 public:
  /// Messages in the order in which they were sent; none is null.
  using Sent = std::vector<std::unique_ptr<CT7QPackageV3>>;
  /// Fills the answer to `request`.
  using Fill = std::function<void(const CT7QPackageV3& request, CT7QPackageV3& answer)>;

  /// May log that there is no connection.
  QOVFakeLink();
  ~QOVFakeLink();

  // The table: what becomes of a message whose first record has the command code `command`, 0 for
  // one without records. The latest entry counts. The link fails for what is not in the table
  // (kSocketFailed).

  /// It is answered, by a message without records if there is no `fill`. The answer's RET field,
  /// which `fill` may set, is the result of the exchange.
  void answer(std::uint64_t command, Fill fill = nullptr);
  /// The connection is lost once it was sent, and so it is when it is sent once more.
  void fail(std::uint64_t command);

  /// Everything sent so far, in that order, without what was sent once more.
  const Sent& sent() const { return sent_; }

  unsigned int sendMsg_i(const unsigned char* data, unsigned int length) override;
  unsigned int receiveMsg(CT7QPackageV3* package) override;

 private:
  // Shared with a call under way, which may change the table.
  std::map<std::uint64_t, std::shared_ptr<Fill>> table_;
  Sent sent_;
};
#pragma GCC diagnostic pop

#endif
