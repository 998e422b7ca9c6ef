#ifndef QOVPUB_QOV_TASK_H
#define QOVPUB_QOV_TASK_H

#include <ace/Message_Block.h>
#include <ace/Task.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_message_package.h>

#include <cstdint>
#include <list>
#include <memory>

class CQOV_TaskMgr;

namespace qov {
struct TaskContext;
}  // namespace qov

/// Base of every thread-owning object of the runtime: a message queue, a way to be woken, a way to
/// be told to end, and the two operations that send messages to other modules.
///
/// Thread: putMsg(), wakeup(), notifyExit(), idle() and the send() that does not wait from any
///         thread; getMsg() and the send() that waits from the task's own thread only (one waiter
///         per task), or from any one thread if the task was never started.
/// Owns:   its queue; whatever is left in it at the end is freed together with its package. The
///         task manager is borrowed and must outlive every use of the task's operations.
/// Errors: by result, and errno where an operation says so; nothing is thrown by the runtime's own
///         code.
class QOV_EXPORT CQOV_Task : public ACE_Task<ACE_MT_SYNCH> {
 public:
  /// `mgr` is the module that the task belongs to; it gives the module id and the leader's queue.
  explicit CQOV_Task(CQOV_TaskMgr* mgr);
  /// Frees the queue. The task's threads must have ended.
  ~CQOV_Task() override;

  CQOV_Task(const CQOV_Task&) = delete;
  CQOV_Task& operator=(const CQOV_Task&) = delete;

  /// Tells the task to end: queues an empty MB_STOP block behind what is queued already, also into
  /// a full queue, and logs "Task will exit!". A send() that waits ends without a response. Without
  /// memory errno is ENOMEM and the task goes on; the stop of its module, which would wait for it
  /// without end, ends the process by std::bad_alloc.
  virtual void notifyExit();

  /// Ends the getMsg() that waits now, or else the next one, without a message. The leader calls it
  /// exactly once for a request that gets no response; other callers make send() return early while
  /// its response may still come, so the task must outlive the stop of its task manager.
  ///
  /// An override of this or of putMsg() runs on whatever thread does the leader's work, which may
  /// be one in send(). It must not wait, throw or end its thread, nor take a lock that anybody
  /// holds while calling send(). What it sends is passed on after it has returned.
  /// getCurrentTask() is that thread's task, if it has one.
  virtual int wakeup();

  /// As wakeup(), and says why: a send() that waits, or else the next one, has `cause` in errno.
  int endWait(int cause);

  /// Puts `mb` at the tail of the own queue. `type` is the message type of the header
  /// (QOVMsgHead::Type); this class ignores it. `timeout` is an absolute time of day
  /// for a full queue, null waits. Returns 0 and takes `mb` over, or -1 and leaves `mb` with the
  /// caller.
  virtual int putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout);

  /// Hands the task to its module's pool of idle workers, or back to it: it goes behind those that
  /// are idle, once, and is served in turn. A worker's loop calls it after each message.
  ///
  /// The first call of a task that the pool did not make puts it into the pool, whether its thread
  /// runs yet or not. From then on the pool owns it, tells it to end, joins its thread (which must
  /// be joinable) and deletes it. To keep a task out of the pool, such as a CQOV_CommonTask that a
  /// module starts for itself, override idle(), as static scheduled tasks do.
  /// Returns 0, or -1 with errno ENOMEM.
  virtual int idle();

  /// Waits for the next block without limit. When the wait was ended by wakeup(), or by an MB_STOP
  /// block (which stays queued for the task's own loop), `mb` is left as it was. The result
  /// does not tell the two apart: test `mb`.
  virtual int getMsg(ACE_Message_Block*& mb);

  /// Sends the request `req` and waits for its response.
  ///
  /// The header of `req` has type 1 and the sender's own process and module id; anything else is
  /// passed on, too, but nobody can answer it, and the result is -1 at once.
  /// `rsp` must come in null. `timeout` is relative and bounds the wait for room in the module's
  /// queue and then, anew, the wait for the response. Null waits without limit for both; zero does
  /// not wait for room and then waits without limit for the response.
  /// Returns 0 with `rsp` owned by the caller; the response's MST byte, when that is not zero, with
  /// `rsp` null; or -1 with the cause in errno:
  ///
  ///   ETIMEDOUT     no response came in time; one WARN line names the receiver and the operation
  ///   EHOSTUNREACH  no module has the receiver's id
  ///   ECONNABORTED  this module stops, the receiver has stopped (what it had taken times out), a
  ///                 hang-up, or somebody's wakeup()
  ///   ENOBUFS       this module or the receiver had no room (for as long as `timeout` says)
  ///   ENOMEM        no memory for the hand-over, or for the leader to wait for the response
  ///   EINVAL        null `req`, `rsp` not null, not this module's own request, or one with its
  ///                 addresses, operation code and serial number waits already
  ///   EBADMSG       what came is no package
  ///   EBUSY         another thread waits in this task's send(); nothing is sent, one ERR line
  ///
  /// Once handed over, `req` belongs to the runtime, even if the result is -1 in the end. If the
  /// hand-over fails, `req` is deleted when `freeReq`, and else stays with the caller. If memory
  /// for the hand-over runs out (errno ENOMEM), it is deleted in any case.
  int send(const CQOV_MsgPackage* req, CQOV_MsgPackage*& rsp, ACE_Time_Value* timeout,
           bool freeReq);

  /// Sends `req` and does not wait: asynchronous messages (types 3 and 4) and responses (type 2).
  /// `timeout` and `freeReq` are as above. Returns 0, or -1 with errno ENOBUFS, ECONNABORTED,
  /// ENOMEM or EINVAL as above. What becomes of the message afterwards is not told.
  int send(const CQOV_MsgPackage* req, ACE_Time_Value* timeout, bool freeReq);

  /// Starts the task's threads as ACE does, and makes them known: getCurrentTask() finds the task
  /// on them, and a task that is started with the module's id as `grp_id` is told to end, and
  /// joined, with its module; it must outlive the stop of its task manager then. Without `thr_name`
  /// joinable threads are named after the module, as "m20-task"; a longer name than the system
  /// takes keeps its first 15 characters. A detached thread has its starter's name without
  /// `thr_name`, and with a longer one.
  int activate(long flags = THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, int n_threads = 1,
               int force_active = 0, long priority = ACE_DEFAULT_THREAD_PRIORITY, int grp_id = -1,
               ACE_Task_Base* task = nullptr, ACE_hthread_t thread_handles[] = nullptr,
               void* stack[] = nullptr, size_t stack_size[] = nullptr,
               ACE_thread_t thread_ids[] = nullptr, const char* thr_name[] = nullptr) override;

  /// ACE's hook at the end of each of the task's threads: getCurrentTask() forgets the thread.
  /// An override must call it.
  int close(u_long flags = 0) override;

  /// As given to the constructor.
  CQOV_TaskMgr* taskMgr() const { return taskMgr_; }

 private:
  friend class CQOV_Leader_Task;
  friend struct qov::TaskContext;

  CQOV_Task(CQOV_TaskMgr* mgr, std::unique_ptr<qov::TaskContext> context);

  CQOV_TaskMgr* const taskMgr_;
  const std::unique_ptr<qov::TaskContext> context_;
};

/// A pooled worker: its thread takes one message at a time, calls the module's handler and returns
/// to the pool by idle(). So a worker that a module starts for itself joins the pool, which deletes
/// it at the end. To keep it out, override idle().
///
/// Thread: handleMessage() runs on the task's own thread.
/// Errors: a result other than 0 is logged with a dump of the message. Whatever the handler throws
///         is logged and the worker goes on.
class QOV_EXPORT CQOV_CommonTask : public CQOV_Task {
 public:
  /// `mgr` as for every task.
  explicit CQOV_CommonTask(CQOV_TaskMgr* mgr);

  /// The worker's loop, on its own thread: serves message after message until notifyExit() says so.
  /// Returns 0. Messages that wait then are dropped.
  int svc() override;

  /// Handles one message and returns 0, or anything else for the log. `pkg` stays with the caller,
  /// which deletes it afterwards; a handler that wants to keep something copies it.
  virtual int handleMessage(CQOV_MsgPackage& pkg) = 0;
};

/// A worker that answers requests by itself.
///
/// The answer carries the request's four addresses as they are, not exchanged. The leader matches
/// responses crosswise, so these answers reach only requesters of the worker's own module. A worker
/// that answers other modules derives from CQOV_AnsweringTask or QOVHandlers (qov_handlers.h), or
/// from CQOV_CommonTask and sends what CreateQovRspPackage() builds.
class QOV_EXPORT CQOV_CommonTaskEx : public CQOV_CommonTask {
 public:
  /// `mgr` as for every task.
  explicit CQOV_CommonTaskEx(CQOV_TaskMgr* mgr);

  /// Calls handleRequest() and sends the answer. Returns its result.
  int handleMessage(CQOV_MsgPackage& pkg) override;

  /// Handles one message and may set `rsp` (null on entry) to a package that is sent as the answer;
  /// its header is overwritten and it is taken over. A request (type 1) for which `rsp` stays null
  /// is answered by one record: the command code of the request's first record (0 without records)
  /// and one unsigned cell of 4 bytes, tag 4095, that holds the result.
  virtual int handleRequest(CQOV_MsgPackage& req, CQOV_MsgPackage*& rsp) = 0;
};

/// A worker with a thread of its own that serves a fixed set of operation codes instead of drawing
/// from the pool (the name is kept as it is; modules rely on it).
///
/// Requests queue in its own queue while it may wait for a response in its response slot. Started
/// with CQOV_TaskMgr::insertStaticScheduledTask().
///
/// A request of such a task to a module that does not exist, or that refuses it, is given up
/// without waking the task, and without its time-out: send() then returns at the stop only (errno
/// still says EHOSTUNREACH or ENOBUFS). That is kept; a task that cannot be sure of its receiver
/// sends from a pooled worker.
///
/// What such a task sends to its own module waits for room, or is refused, as if it came from
/// outside (see CQOV_TaskMgr::putq()); only what stands in its own queue is left out of account. So
/// it never waits for room that only it can make. It may wait for a worker that in turn waits for
/// its answer, or for another static task that waits for room as it does: give such a send() a
/// time-out.
///
/// Owns:   nothing of the module, and no one owns it: it belongs to the caller and must outlive the
///         stop of its task manager, which tells it to end and joins its thread:
///         CQOV_TaskMgr::stop(), or the manager's destructor where nobody calls that.
class QOV_EXPORT CQOV_StaticSchecheduledTask : public CQOV_CommonTask {
 public:
  /// `mgr` as for every task.
  explicit CQOV_StaticSchecheduledTask(CQOV_TaskMgr* mgr);
  /// Frees the queue and a response that nobody took. The task's thread must have ended.
  ~CQOV_StaticSchecheduledTask() override;

  /// Also ends a wait in the response slot, now and from now on, unless memory was missing.
  void notifyExit() override;
  /// Ends the getMsg() or send() that waits in the response slot, or else the next one. A response
  /// that nobody took is freed. Returns 0.
  int wakeup() override;
  /// A response (type 2) goes to the response slot, where it replaces one that nobody took; returns
  /// 0 then. Every other type goes to the own queue.
  int putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) override;
  /// Does nothing: the task never joins the pool.
  int idle() override;
  /// Waits, without limit, for a response in the slot; `mb` is null when the wait was ended by
  /// wakeup() or notifyExit().
  int getMsg(ACE_Message_Block*& mb) override;

  /// Appends the operation codes that the task serves. Called once, while the task is registered. A
  /// code that another task of the module serves already stays with that one.
  virtual void getOpcList(std::list<unsigned long long>& opcs) = 0;
};

/// The task that owns the calling thread, or null.
QOV_EXPORT CQOV_Task* getCurrentTask();

#endif
