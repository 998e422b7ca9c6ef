#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_task_scheduler.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

#include "diag/log_ids.h"
#include "module/module_library.h"
#include "task/admission.h"
#include "task/module_counters.h"
#include "task/running_managers.h"
#include "task/start_task.h"
#include "task/started_tasks.h"
#include "task/thread_groups.h"

namespace {

/// Name of modules that give none: the class's run-time type name. Kept, as users know it from
/// logs.
constexpr const char* kDefaultName = "12CQOV_TaskMgr";

/// How long init() waits for the pool at the most.
constexpr unsigned int kPoolSeconds = 30;

/// Null without memory.
std::unique_ptr<CQOV_Leader_Task> makeLeader(CQOV_TaskMgr* mgr, unsigned int poolSize) {
  try {
    return std::make_unique<CQOV_Leader_Task>(mgr, poolSize);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

/// Registers a debug kit for a module; null when the id has one already.
CQOVDebugKit* registerKit(const std::string& name, unsigned int moduleId) {
  auto kit = std::make_unique<CQOVDebugKit>(name, moduleId);
  return CQOVDebugKitMgr::instance()->add(kit.get()) == 1 ? kit.release() : nullptr;
}

}  // namespace

CQOV_TaskMgr::CQOV_TaskMgr(unsigned int moduleId, unsigned int poolSize, const char* name)
    : moduleId_(moduleId),
      startedTasks_(std::make_shared<qov::StartedTasks>()),
      counters_(std::make_unique<qov::ModuleCounters>()),
      leader_(makeLeader(this, poolSize)),
      name_(name != nullptr ? name : kDefaultName) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "CQOV_TaskMgr::CQOV_TaskMgr(unsigned int, unsigned int, const char*)");
  kit_ = registerKit(name_, moduleId);
  if (leader_ != nullptr) {
    leader_->grp_id(static_cast<int>(moduleId));
    // Already here: the constructor of a derived class may start threads.
    startedTasks_->enterGroup(gid());
  } else {
    // Last, since what comes before may set it too.
    errno = ENOMEM;
  }
}

CQOV_TaskMgr::~CQOV_TaskMgr() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual CQOV_TaskMgr::~CQOV_TaskMgr()");
  stop();
  if (leader_ != nullptr) {
    if (startedTasks_->leaveGroup()) {
      joinSpawned();
    }
    // The pool may have got some more since the stop.
    joinTasks();
    leader_.reset();
  }
  // The id may belong to somebody else's kit.
  if (kit_ != nullptr && CQOVDebugKitMgr::instance()->find(moduleId_) == kit_) {
    delete CQOVDebugKitMgr::instance()->remove(moduleId_);
  }
}

void CQOV_TaskMgr::stop() {
  qov::RunningManagers::remove(*this);
  if (leader_ == nullptr || stopped_) {
    return;
  }
  stopped_ = true;
  leader_->notifyExit();
  qov::joinThreadsOf(*leader_);
  // A leader that never ran has told nobody yet.
  leader_->end();
  joinTasks();
}

void CQOV_TaskMgr::joinTasks() {
  // Tasks that still run may start others, so this goes on until it finds no new ones.
  while (CQOV_Task* const task = startedTasks_->nextToJoin()) {
    qov::joinThreadsOf(*task);
  }
}

void CQOV_TaskMgr::joinSpawned() {
  const int group = static_cast<int>(moduleId_);
  if (const std::size_t count = qov::threadsIn(group); count > 0) {
    CQOVDebugKitGuard log(qov::kPublicKit, "void CQOV_TaskMgr::joinSpawned()");
    log.warn(qov::log_id::kGroupThreadsLeft, __FUNCTION__, __LINE__,
             "Module(%d) finds %u threads in its group and joins those that can be.", group,
             static_cast<unsigned int>(count));
  }
  qov::joinThreadsIn(group);
}

bool CQOV_TaskMgr::initEnv() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual bool CQOV_TaskMgr::initEnv()");
  return true;
}

bool CQOV_TaskMgr::init() {
  CQOVDebugKitGuard log(qov::kPublicKit, "bool CQOV_TaskMgr::init()");
  if (leader_ == nullptr) {
    return false;
  }
  qov::RunningManagers::add(*this);
  if (!leader_->run()) {
    return false;
  }
  if (!stoppedBeforeDeleted_ && !leader_->scheduler().waitForPool(kPoolSeconds)) {
    log.warn(qov::log_id::kPoolLate, __FUNCTION__, __LINE__,
             "Module(%d) thread pool does not stand after %u seconds.", moduleId(), kPoolSeconds);
  }
  return initEnv();
}

QOVModuleStats CQOV_TaskMgr::stats() const {
  QOVModuleStats stats = counters_->read();
  stats.moduleId_ = moduleId_;
  stats.name_ = name_;
  const qov::Admission& admission = leader_->admission();
  stats.waiting_ += admission.bookedBlocks();
  stats.highestWaiting_ = admission.mostBookedBlocks();
  stats.waitingBytes_ = admission.booked();
  stats.highestWaitingBytes_ = admission.mostBooked();
  return stats;
}

CQOV_Leader_Task* CQOV_TaskMgr::leader() const {
  return leader_.get();
}

int CQOV_TaskMgr::gid() {
  CQOVDebugKitGuard log(qov::kPublicKit, "int CQOV_TaskMgr::gid()");
  // Not ACE's own notion of the group: that is -1 for as long as the leader is being started.
  return leader_ != nullptr ? static_cast<int>(moduleId_) : -1;
}

int CQOV_TaskMgr::idle(CQOV_Task* task) {
  CQOVDebugKitGuard log(qov::kPublicKit, "int CQOV_TaskMgr::idle(CQOV_Task*)");
  if (task != nullptr && task->taskMgr() != this) {
    errno = EINVAL;
    return -1;
  }
  return leader_ != nullptr ? leader_->scheduler().return_to_work(task) : -1;
}

int CQOV_TaskMgr::putq(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "int CQOV_TaskMgr::putq(ACE_Message_Block*, ACE_Time_Value*)");
  if (leader_ == nullptr) {
    errno = ESHUTDOWN;
    return -1;
  }
  const int count = leader_->msg_queue()->enqueue_tail(mb, timeout);
  if (count == -1 && errno == EWOULDBLOCK) {
    counters_->refused_.add();
  }
  return count;
}

int CQOV_TaskMgr::insertStaticScheduledTask(CQOV_StaticSchecheduledTask* task) {
  CQOVDebugKitGuard log(
      qov::kPublicKit, "int CQOV_TaskMgr::insertStaticScheduledTask(CQOV_StaticSchecheduledTask*)");
  if (task == nullptr) {
    log.warn(qov::log_id::kStaticTaskNull, __FUNCTION__, __LINE__,
             "Null pointer of pStaticScheduledTask.");
    return -1;
  }
  qov::ModuleLibrary::check(*this, *task);
  ACE_thread_t thread = 0;
  if (leader_ == nullptr || qov::startTask(*task, gid(), {moduleId_, "static"}, thread) != 0) {
    return -1;
  }
  leader_->insertStaticScheduledTask(thread, task);
  return 0;
}
