#ifndef QOVPUB_QOV_TASK_MGR_H
#define QOVPUB_QOV_TASK_MGR_H

#include <ace/Message_Block.h>
#include <ace/Time_Value.h>
#include <qovpub/qov_export.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class CQOVDebugKit;
class CQOV_Leader_Task;
class CQOV_StaticSchecheduledTask;
class CQOV_Task;

namespace qov {
struct ModuleContext;
}  // namespace qov

/// The runtime object of one module: owns the module's leader thread and, through it, the scheduler
/// and its pool of workers. A module's entry function creates one.
///
/// Thread: the constructor, init() and the destructor from the thread that loads modules; every
///         other operation from any thread between init() and the destructor.
/// Owns:   the leader task. Static scheduled tasks stay with the caller.
/// Errors: by result and log. The constructor throws CQOV_Exception when the process configuration
///         cannot be read, and std::bad_alloc where memory is missing for more than the leader.
class QOV_EXPORT CQOV_TaskMgr {
 public:
  /// `moduleId` (0 to 255 for a loadable module) addresses the module, is the thread group of its
  /// threads and the id of its debug kit. `poolSize` is the number of workers. A null `name` gives
  /// "12CQOV_TaskMgr".
  CQOV_TaskMgr(unsigned int moduleId, unsigned int poolSize, const char* name);

  /// As stop(); then joins what is left in the thread group of its id, and frees leader, scheduler
  /// and workers.
  ///
  /// What is left are threads that no task of this manager owns: those that
  /// ACE_Thread_Manager::instance() has spawned, and those of other ACE tasks. Detached ones are
  /// not joined. The threads end by themselves, or the destructor of the derived class tells them
  /// to; it joins those that use members of that class. A line in the log says that there are some,
  /// and the shutdown watch bounds the wait. The last of several managers of one id joins them.
  virtual ~CQOV_TaskMgr();

  CQOV_TaskMgr(const CQOV_TaskMgr&) = delete;
  CQOV_TaskMgr& operator=(const CQOV_TaskMgr&) = delete;

  /// Makes one worker for the pool; the runtime takes it over, and starts it unless it runs. Called
  /// on the scheduler thread, once per worker, before the module's first message is handled. Null,
  /// or an exception, ends the creation of the pool.
  ///
  /// It may run while init() does and, under the module loader, while other modules are loaded and
  /// after that. It may send, through a task that it makes for that: getCurrentTask() is the
  /// scheduler. A message to another module arrives when all modules are loaded, and its answer
  /// comes back as usual; without the loader init() waits for it. In its own module only a static
  /// task can answer, since the pool does not work yet.
  virtual CQOV_Task* createTask() = 0;

  /// Module hook, run by init() when leader and scheduler run. The base returns true. It must not
  /// wait for a message or for room, not even its own module's. Messages between modules are held
  /// back until all modules are loaded. The first of them also holds back whatever stands behind it
  /// in the leader's queue, and the leader's time-outs. Under the module loader the pool may not
  /// stand yet; messages wait for it.
  virtual bool initEnv();

  /// Starts the leader and the scheduler, which makes the pool, and calls initEnv(). False when a
  /// thread could not be started or initEnv() says so; the manager is then only good to be deleted.
  ///
  /// Waits before initEnv() until the pool stands: the manager may be deleted at once afterwards,
  /// since createTask() is not called any more. After 30 seconds it goes on with a warning. The
  /// module loader's call does not wait, since it holds its table, and a createTask() that asks
  /// another module needs that. The loader calls stop() before it deletes a manager.
  bool init();

  /// Tells the module's threads to end and joins them, once. The module loader calls it before it
  /// deletes a manager, so that no thread runs any more when the destructor of a derived class
  /// frees what its workers use. Who deletes a manager otherwise calls it first, too.
  ///
  /// Joins the threads of this manager's own tasks; other threads of its group go on until the
  /// destructor. Not to be called by a thread of the module.
  ///
  /// A manager that still runs when the process ends by exit() or by returning from main is stopped
  /// then, before ACE and older static objects go, unless a thread of a module calls exit(): one of
  /// a task or in a module's thread group, or one that does a leader's work. Nobody waits for other
  /// threads of the group of a manager that is not deleted.
  void stop();

  /// The module id; -1 when the leader could not be made (errno ENOMEM then).
  int gid();

  /// The module id as given to the constructor.
  unsigned int moduleId() const { return moduleId_; }

  /// The name as given to the constructor, or what stands for a null one. It lives as long as this.
  const std::string& name() const { return name_; }

  /// Puts a task on the idle list of the pool, which owns it from then on: see CQOV_Task::idle().
  /// 0, or -1 for a null task, for one of another manager (errno EINVAL) or without memory (errno
  /// ENOMEM).
  int idle(CQOV_Task* task);

  /// Puts `mb` at the tail of the leader's queue.
  ///
  /// `timeout` goes to ACE's queue as it is: an absolute time of day until which to wait while the
  /// module has no room; null waits without limit, and a short span such as 1 second is long past:
  /// it means "refuse at once when full". Returns the number of queued blocks (above 0) and takes
  /// `mb` over, or -1 (errno EWOULDBLOCK when full, ESHUTDOWN when the module has stopped) and
  /// leaves `mb` with the caller.
  ///
  /// There is no room for a request or an asynchronous message to this module while 16 KiB of
  /// blocks wait for its leader, its pool and its static tasks together. Senders that wait are let
  /// in one by one as room comes, whoever came first being first. Responses, stop blocks and
  /// whatever the workers of the pool send get in even then, so that a module under load still gets
  /// its answers, and no worker waits for room that only it can make. The module's static tasks and
  /// other threads wait like anybody, except that a static task does not wait for what stands in
  /// its own queue.
  int putq(ACE_Message_Block* mb, ACE_Time_Value* timeout);

  /// Starts `task` on a thread of its own and routes its operation codes to it. 0, or -1 for a null
  /// task or when the thread cannot be started; nothing is registered then. The task stays with the
  /// caller and must outlive stop(), or the destructor of this manager where nobody calls that.
  int insertStaticScheduledTask(CQOV_StaticSchecheduledTask* task);

  /// Has a record (WARN, 65902) tell of each message whose handler runs for longer than `limit`:
  /// once, and while the handler still runs, so that one that hangs shows. The record has the
  /// sender, the operation code, the time so far and the request that the handler waits for. The
  /// time counts from the beginning of the handler, with all that it waits for: answers, room,
  /// locks.
  ///
  /// A `limit` of 0 or less is none, as at the beginning, and costs nothing; more than 100 years
  /// count as 100 years. A limit costs two locks of the module's own for each message and, while
  /// there are any, wakes its leader up to twice in the time of a limit. It takes the place of the
  /// former one, also for handlers that run already; those that have begun while there was no limit
  /// are not told of.
  ///
  /// Handlers are those of workers and static scheduled tasks, and the continuations of
  /// QOVRequest::askLater(). From the stop of the module on none is told of. Without a leader
  /// (gid() is -1) this does nothing.
  ///
  /// Thread: any, from the constructor on.
  void handlerLimit(std::chrono::milliseconds limit);

  /// Has this module get copies of the asynchronous messages (types 3 and 4) with operation code
  /// `opc`, or with any, whose SMID is `sender` and that go to other modules. Each call adds to
  /// what is chosen. Throws std::bad_alloc.
  ///
  /// A copy is a message to this module, in its queue and for its handlers, that shares nothing
  /// with the first one. RPID and RMID name this module; all else is as it was sent. It comes when
  /// the receiver has taken the message into its queue, which the receiver may have handled by
  /// then; messages that find no receiver, or no room there, are not copied. Copies of what a
  /// module's tasks send come in the order in which they were sent.
  ///
  /// Not copied are messages that this module sends or gets, broadcasts among them, those from
  /// other processes, and copies. Whoever sends a message or a copy of it on has to set its own
  /// module as SMID, as QOVRequest does: with the first sender's left in it, it is copied again.
  ///
  /// No handler of this module runs on the sender's thread, and the sender waits for nothing (but
  /// for an override of a task's putMsg(), see CQOV_Task::wakeup()): a copy that
  /// finds no room here, or no memory, or whose package is of a class of its own, is dropped with a
  /// record (WARN, 65586), and the message goes its way. Each module that takes copies gets its
  /// own. The last one is in the queue before the stop of this module begins. What making a copy
  /// takes is spent in the sender's module; a message that nobody takes copies of costs a look at
  /// whether there is anybody.
  ///
  /// Thread: the one that loads the module, in the constructor or in initEnv(). The module loader
  /// looks when it takes the module in, and not again.
  void takeCopiesOf(std::uint8_t sender, std::optional<std::uint64_t> opc = std::nullopt);

 protected:
  /// Null when it could not be made.
  CQOV_Leader_Task* leader() const;

 private:
  friend struct qov::ModuleContext;

  // Constant after construction.
  const unsigned int moduleId_;
  const std::string name_;
  const std::unique_ptr<qov::ModuleContext> context_;
  // The kit that this manager registered; null when its id was taken.
  CQOVDebugKit* kit_;
};

#endif
