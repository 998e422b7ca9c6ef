#ifndef QOVPUB_QOV_TASK_MGR_H
#define QOVPUB_QOV_TASK_MGR_H

#include <ace/Message_Block.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <memory>
#include <string>

class CQOVDebugKit;
class CQOV_Leader_Task;
class CQOV_StaticSchecheduledTask;
class CQOV_Task;
struct link_map;

namespace qov {
class ModuleLibrary;
class TaskRoster;
}  // namespace qov

/// The runtime object of one module: owns the module's leader thread and, through it, the scheduler
/// and its pool of workers. A module's entry function creates one.
///
/// Thread: the constructor, init() and the destructor from the thread that loads modules; every
///         other operation from any thread between init() and the destructor.
/// Owns:   the leader task. Static scheduled tasks stay with the caller.
/// Errors: by result and log. The constructor throws CQOV_Exception when the process configuration
///         cannot be read.
class CQOV_TaskMgr {
 public:
  /// `moduleId` (0 to 255 for a loadable module) addresses the module, is the thread group of its
  /// threads and the id of its debug kit. `poolSize` is the number of workers. A null `name` gives
  /// "12CQOV_TaskMgr".
  CQOV_TaskMgr(unsigned int moduleId, unsigned int poolSize, const char* name);

  /// As stop(), then frees leader, scheduler and workers.
  virtual ~CQOV_TaskMgr();

  CQOV_TaskMgr(const CQOV_TaskMgr&) = delete;
  CQOV_TaskMgr& operator=(const CQOV_TaskMgr&) = delete;

  /// Makes one worker for the pool; the runtime takes it over. Called on the scheduler thread, once
  /// per worker, before init() returns. Null, or an exception, ends the creation of the pool. It
  /// must not send: see initEnv().
  virtual CQOV_Task* createTask() = 0;

  /// Module hook, run by init() when the threads stand. The base returns true. It must not wait for
  /// another module: messages between modules are held back until all modules are loaded.
  virtual bool initEnv();

  /// Starts the leader and the scheduler and returns when the pool stands, so that the manager may
  /// be deleted from then on; waits at most 30 seconds for that and goes on with a warning. False
  /// when a thread could not be started or initEnv() says so; the manager is then only good to be
  /// deleted.
  bool init();

  /// Tells the module's threads to end and joins them, once. The module loader calls it before it
  /// deletes a manager, so that no thread runs any more when the destructor of a derived class
  /// frees what its workers use. Who deletes a manager otherwise calls it first, too. Joins the
  /// threads of this manager's own tasks only, whoever else uses the same thread group. Not to be
  /// called by one of these.
  ///
  /// A manager that still runs when the process ends by exit() or by returning from main is stopped
  /// then, before ACE and older static objects go, unless one of its own threads calls exit().
  void stop();

  /// The module id; -1 when the leader could not be made (errno ENOMEM then).
  int gid();

  /// The module id as given to the constructor.
  unsigned int moduleId() const { return moduleId_; }

  const std::string& name() const { return name_; }

  /// Puts a worker back on the idle list of the pool. 0, or -1 for a null task.
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
  /// blocks wait for its leader, its pool and its static tasks together. Responses, stop blocks and
  /// whatever the module's own threads send get in even then, so that a module under load still
  /// gets its answers, and no worker waits for room that only it can make.
  int putq(ACE_Message_Block* mb, ACE_Time_Value* timeout);

  /// Starts `task` on a thread of its own and routes its operation codes to it. 0, or -1 for a null
  /// task or when the thread cannot be started; nothing is registered then. The task stays with the
  /// caller and must outlive stop(), or the destructor of this manager where nobody calls that.
  int insertStaticScheduledTask(CQOV_StaticSchecheduledTask* task);

 private:
  friend class CQOV_Leader_Task;
  friend class CQOV_Task;
  friend class qov::ModuleLibrary;

  void joinTasks();

  // Constant after construction.
  const unsigned int moduleId_;
  std::shared_ptr<qov::TaskRoster> roster_;
  std::unique_ptr<CQOV_Leader_Task> leader_;
  std::string name_;
  // The kit that this manager registered; null when its id was taken.
  CQOVDebugKit* kit_;

  // The library that the loader opened; null without a loader, or when it has told of a class that
  // comes from elsewhere.
  std::atomic<const link_map*> library_{nullptr};

  // Loading thread only.
  bool stopped_ = false;
};

#endif
