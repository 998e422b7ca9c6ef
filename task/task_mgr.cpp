#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_scheduler.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

#include "diag/log_ids.h"
#include "module/module_library.h"
#include "task/admission.h"
#include "task/dispatcher.h"
#include "task/module_context.h"
#include "task/running_managers.h"
#include "task/start_task.h"
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

void joinTasks(qov::StartedTasks& started) {
  // Tasks that still run may start others, so this goes on until it finds no new ones.
  while (CQOV_Task* const task = started.nextToJoin()) {
    qov::joinThreadsOf(*task);
  }
}

void joinSpawned(unsigned int moduleId) {
  const int group = static_cast<int>(moduleId);
  if (const std::size_t count = qov::threadsIn(group); count > 0) {
    CQOVDebugKitGuard log(qov::kPublicKit, "void joinSpawned(unsigned int)");
    log.warn(qov::log_id::kGroupThreadsLeft, __FUNCTION__, __LINE__,
             "Module(%d) finds %u threads in its group and joins those that can be.", group,
             static_cast<unsigned int>(count));
  }
  qov::joinThreadsIn(group);
}

}  // namespace

CQOV_TaskMgr::CQOV_TaskMgr(unsigned int moduleId, unsigned int poolSize, const char* name)
    : moduleId_(moduleId),
      name_(name != nullptr ? name : kDefaultName),
      context_(std::make_unique<qov::ModuleContext>(moduleId)) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "CQOV_TaskMgr::CQOV_TaskMgr(unsigned int, unsigned int, const char*)");
  context_->leader_ = makeLeader(this, poolSize);
  kit_ = registerKit(name_, moduleId);
  if (leader() != nullptr) {
    leader()->grp_id(static_cast<int>(moduleId));
    // Already here: the constructor of a derived class may start threads.
    context_->startedTasks_->enterGroup(gid());
  } else {
    // Last, since what comes before may set it too.
    errno = ENOMEM;
  }
}

CQOV_TaskMgr::~CQOV_TaskMgr() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual CQOV_TaskMgr::~CQOV_TaskMgr()");
  stop();
  if (leader() != nullptr) {
    if (context_->startedTasks_->leaveGroup()) {
      joinSpawned(moduleId_);
    }
    // The pool may have got some more since the stop.
    joinTasks(*context_->startedTasks_);
  }
  qov::RunningManagers::remove(*this);
  context_->leader_.reset();
  // The id may belong to somebody else's kit.
  if (kit_ != nullptr && CQOVDebugKitMgr::instance()->find(moduleId_) == kit_) {
    delete CQOVDebugKitMgr::instance()->remove(moduleId_);
  }
}

void CQOV_TaskMgr::stop() {
  qov::RunningManagers::beginStop(*this);
  if (leader() != nullptr && !context_->stopped_) {
    context_->stopped_ = true;
    qov::tellToEnd(*leader());
    qov::joinThreadsOf(*leader());
    // A leader that never ran has told nobody yet.
    leader()->end();
    joinTasks(*context_->startedTasks_);
  }
  // One that is deleted next may still wait for its other threads, and be looked at meanwhile.
  if (!context_->stoppedBeforeDeleted_) {
    qov::RunningManagers::remove(*this);
  }
}

bool CQOV_TaskMgr::initEnv() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual bool CQOV_TaskMgr::initEnv()");
  return true;
}

bool CQOV_TaskMgr::init() {
  CQOVDebugKitGuard log(qov::kPublicKit, "bool CQOV_TaskMgr::init()");
  if (leader() == nullptr) {
    return false;
  }
  qov::RunningManagers::add(*this);
  if (!leader()->run()) {
    return false;
  }
  if (!context_->stoppedBeforeDeleted_ && !leader()->scheduler().waitForPool(kPoolSeconds)) {
    log.warn(qov::log_id::kPoolLate, __FUNCTION__, __LINE__,
             "Module(%d) thread pool does not stand after %u seconds.", moduleId(), kPoolSeconds);
  }
  return initEnv();
}

void CQOV_TaskMgr::handlerLimit(std::chrono::milliseconds limit) {
  if (leader() != nullptr) {
    context_->counters_.handlers_.limit(limit);
    leader()->dispatcher_->wakeOwnThread();
  }
}

void CQOV_TaskMgr::takeCopiesOf(std::uint8_t sender, std::optional<std::uint64_t> opc) {
  context_->copies_.add(sender, opc);
}

CQOV_Leader_Task* CQOV_TaskMgr::leader() const {
  return context_ != nullptr ? context_->leader_.get() : nullptr;
}

int CQOV_TaskMgr::gid() {
  CQOVDebugKitGuard log(qov::kPublicKit, "int CQOV_TaskMgr::gid()");
  // Not ACE's own notion of the group: that is -1 for as long as the leader is being started.
  return leader() != nullptr ? static_cast<int>(moduleId_) : -1;
}

int CQOV_TaskMgr::idle(CQOV_Task* task) {
  CQOVDebugKitGuard log(qov::kPublicKit, "int CQOV_TaskMgr::idle(CQOV_Task*)");
  if (task != nullptr && task->taskMgr() != this) {
    errno = EINVAL;
    return -1;
  }
  return leader() != nullptr ? leader()->scheduler().return_to_work(task) : -1;
}

int CQOV_TaskMgr::putq(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "int CQOV_TaskMgr::putq(ACE_Message_Block*, ACE_Time_Value*)");
  if (leader() == nullptr) {
    errno = ESHUTDOWN;
    return -1;
  }
  const int count = leader()->msg_queue()->enqueue_tail(mb, timeout);
  if (count == -1 && errno == EWOULDBLOCK) {
    context_->counters_.refused_.add();
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
  if (leader() == nullptr || qov::startTask(*task, gid(), {moduleId_, "static"}, thread) != 0) {
    return -1;
  }
  leader()->insertStaticScheduledTask(thread, task);
  return 0;
}

namespace qov {

QOVModuleStats ModuleContext::statsOf(const CQOV_TaskMgr& manager) {
  QOVModuleStats stats = of(manager).counters_.read();
  stats.moduleId_ = manager.moduleId();
  stats.name_ = manager.name();
  const Admission& admission = leaderOf(manager)->admission();
  stats.waiting_ += admission.bookedBlocks();
  stats.highestWaiting_ = admission.mostBookedBlocks();
  stats.waitingBytes_ = admission.booked();
  stats.highestWaitingBytes_ = admission.mostBooked();
  return stats;
}

}  // namespace qov
