#ifndef QOVPUB_QOV_LEADER_TASK_H
#define QOVPUB_QOV_LEADER_TASK_H

#include <ace/Time_Value.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_task.h>

#include <cstdint>
#include <memory>

class CQOV_TaskScheduler;

namespace qov {
class Admission;
class LaterAnswer;
class RunningManagers;
}  // namespace qov

/// Block types of the runtime, beside ACE's MB_DATA (1), MB_STOP (135) and MB_HANGUP (137), which
/// carry: one pointer to a package; nothing, ends a task; nothing, releases the senders that wait
/// for another process.

/// The identity of one request: copied from its header.
struct MsgKey {
  std::uint64_t opc_;  ///< operation code
  std::uint32_t sn_;   ///< serial number
  std::uint8_t spid_;  ///< sender's process id
  std::uint8_t smid_;  ///< sender's module id
  std::uint8_t rpid_;  ///< receiver's process id
  std::uint8_t rmid_;  ///< receiver's module id

  /// Whether all six are equal.
  bool operator==(const MsgKey& other) const {
    return opc_ == other.opc_ && sn_ == other.sn_ && spid_ == other.spid_ && smid_ == other.smid_ &&
           rpid_ == other.rpid_ && rmid_ == other.rmid_;
  }
};

/// A sender that waits for its response, or what is left to do when that has come. Made by the
/// sender, the leader's from the moment the request is in the leader's queue; the leader notes what
/// it says beside the request's key.
struct TimeoutDesc {
  CQOV_Task* task_;         ///< The waiting worker; borrowed. Null for a later_.
  ACE_Time_Value timeout_;  ///< Relative; zero waits without limit.
  long timerId_;            ///< -1 while no timer runs.
  /// Of QOVRequest::askLater(), with the descriptor's owner; else null.
  qov::LaterAnswer* later_ = nullptr;
};

/// Hash of an operation code.
struct QOV_EXPORT LLHashFunctor {
  /// The code itself.
  unsigned long operator()(unsigned long long value) const;
};

/// The dispatcher thread of one module: every message for or from the module passes through its
/// queue. It remembers which worker waits for which response, ends these waits in time, and
/// delivers each message to the pool, to a static scheduled task, to a waiting worker or to another
/// module.
///
/// The leader never waits for its own module: requests that find no idle worker wait in the
/// scheduler's queue, which has no limit of its own but counts against the leader's (see
/// CQOV_TaskMgr::putq()), while responses are delivered and time-outs fire.
///
/// Its work is done by one thread at a time. A task that asks for a response, and a worker of the
/// pool whatever it sends, does the work of a leader that nobody is at on its own thread: it
/// dispatches what stands in the queues of the leaders that its own message passes, up to 64
/// messages in all, before send() waits or returns. So what a module overrides and a leader calls
/// (putMsg() and wakeup() of its tasks) runs on either thread. While DEBUG or TRACE is on, the
/// leaders' own threads do it all.
///
/// Thread: run() and notifyExit() from any thread; insertStaticScheduledTask() from any thread;
///         everything else on the thread that does the leader's work.
/// Owns:   the scheduler, the pending requests, and every block in its queue with its package.
/// Errors: by result and log.
class QOV_EXPORT CQOV_Leader_Task : public CQOV_Task {
 public:
  /// Throws CQOV_Exception when the process id cannot be read from the process configuration.
  CQOV_Leader_Task(CQOV_TaskMgr* mgr, unsigned int poolSize);
  ~CQOV_Leader_Task() override;

  CQOV_Leader_Task(const CQOV_Leader_Task&) = delete;
  CQOV_Leader_Task& operator=(const CQOV_Leader_Task&) = delete;

  /// Starts the leader thread and the scheduler thread. False when either fails; a leader that runs
  /// already has then been told to end.
  bool run();

  /// What the leader thread does: dispatches until a stop block comes or the process reactor's loop
  /// has ended, then calls end(). Returns 0.
  int svc() override;
  /// Dispatches what stands in the queue now; what comes meanwhile is left for the next call.
  /// Returns 0, or -1 if a stop block was among it, for which the reactor calls handle_close().
  int handle_output(ACE_HANDLE handle = ACE_INVALID_HANDLE) override;
  /// Ends the pending request that `act` stands for: its time is over. Returns 0.
  int handle_timeout(const ACE_Time_Value& now, const void* act = nullptr) override;
  /// As end(). Returns 0.
  int handle_close(ACE_HANDLE handle, ACE_Reactor_Mask mask) override;

  /// Takes a data block over and gives it to the function below for the type of its package. A
  /// block that holds no package is logged, counted as dropped (QOVDropReason::kInvalid) and freed.
  void handleDataMsg(ACE_Message_Block* mb);

  // Each takes `mb` over, with `pkg`, the package in it. The first three log a null, and take
  // nothing then.

  /// Notes who waits for the response, if the request is this module's own, and delivers it. What
  /// cannot be delivered is freed, and its sender woken with the reason.
  void handleReqMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg);
  /// Gives the response to whoever waits for it, or passes it on to the module that it is for. One
  /// that nobody waits for is freed.
  void handleRspMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg);
  /// Delivers a notice or event. One that cannot be delivered is logged and freed.
  void handleAsyncMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg);
  /// Logs and frees a message of a type other than 1 to 4, whose `pkg` is not looked at.
  void handleUnknownMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg);

  /// Ends the pending requests to other processes, as a stop would (ECONNABORTED, kStopped).
  void handle_mb_hangup();

  /// Delivers `mb`, whose package has the header `head`: inside the module, or to another module of
  /// the process. 0 when `mb` was taken over, else -1. A message to another process is logged as
  /// "recv msg error.", neither delivered nor released, and reported as 0: kept, since whoever
  /// bridges processes still holds the package then.
  int forwordMessage(const QOVMsgHead* head, ACE_Message_Block* mb);

  /// Routes the operation codes of `task`, which runs on `threadId`, to it. A null task is ignored.
  void insertStaticScheduledTask(unsigned long threadId, CQOV_StaticSchecheduledTask* task);

  /// The module's scheduler, which lives as long as the leader.
  CQOV_TaskScheduler& scheduler();
  /// For the library's own use: who may put messages into the module's queues, and how many.
  const qov::Admission& admission() const;

  /// Ends what the leader still holds, once: called by the leader thread on its way out, and by the
  /// manager for a leader that never ran or was cancelled.
  void end();

 private:
  friend class CQOV_TaskMgr;
  friend class qov::RunningManagers;

  class Dispatcher;
  const std::unique_ptr<Dispatcher> dispatcher_;
};

#endif
