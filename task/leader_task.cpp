#include <ace/Reactor.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_utility.h>

#include "diag/log_ids.h"
#include "task/dispatcher.h"
#include "task/task_context.h"

namespace {

/// Addresses in headers are one byte wide.
std::uint8_t addressOf(unsigned int id) {
  return static_cast<std::uint8_t>(id & 0xFFU);
}

}  // namespace

unsigned long LLHashFunctor::operator()(unsigned long long value) const {
  return static_cast<unsigned long>(value);
}

CQOV_Leader_Task::CQOV_Leader_Task(CQOV_TaskMgr* mgr, unsigned int poolSize)
    : CQOV_Task(mgr, std::make_unique<qov::TaskContext>(
                         mgr, std::make_unique<qov::LeaderQueue>(
                                  mgr, addressOf(QOV_Utility::getProcPID()),
                                  addressOf(mgr->moduleId())))),
      dispatcher_(std::make_unique<Dispatcher>(*this, poolSize)) {
  // Made by whoever loads the modules: the thread that first touches the process reactor owns it.
  ACE_Reactor::instance();
  qov::TaskContext::of(*this).makesRoom_ = true;
}

CQOV_Leader_Task::~CQOV_Leader_Task() {
  // The base class would reach for the reactor, which is gone by then.
  reactor(nullptr);
}

bool CQOV_Leader_Task::run() {
  return dispatcher_->run();
}

int CQOV_Leader_Task::svc() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_Leader_Task::svc()");
  dispatcher_->serve();
  log.warn(qov::log_id::kLeaderExits, __FUNCTION__, __LINE__, "Manager thread(%d) exit!",
           taskMgr()->moduleId());
  return 0;
}

int CQOV_Leader_Task::handle_output(ACE_HANDLE) {
  return dispatcher_->handle_output();
}

int CQOV_Leader_Task::handle_timeout(const ACE_Time_Value&, const void* act) {
  return dispatcher_->handle_timeout(act);
}

int CQOV_Leader_Task::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
  return dispatcher_->handle_close();
}

void CQOV_Leader_Task::handleDataMsg(ACE_Message_Block* mb) {
  dispatcher_->handleDataMsg(mb);
}

void CQOV_Leader_Task::handleReqMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  dispatcher_->handleReqMsg(mb, pkg);
}

void CQOV_Leader_Task::handleRspMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  dispatcher_->handleRspMsg(mb, pkg);
}

void CQOV_Leader_Task::handleAsyncMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  dispatcher_->handleAsyncMsg(mb, pkg);
}

void CQOV_Leader_Task::handleUnknownMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  dispatcher_->handleUnknownMsg(mb, pkg);
}

void CQOV_Leader_Task::handle_mb_hangup() {
  dispatcher_->handle_mb_hangup();
}

int CQOV_Leader_Task::forwordMessage(const QOVMsgHead* head, ACE_Message_Block* mb) {
  return dispatcher_->forwordMessage(head, mb);
}

void CQOV_Leader_Task::insertStaticScheduledTask(unsigned long threadId,
                                                 CQOV_StaticSchecheduledTask* task) {
  dispatcher_->insertStaticScheduledTask(threadId, task);
}

CQOV_TaskScheduler& CQOV_Leader_Task::scheduler() {
  return dispatcher_->scheduler();
}

const qov::Admission& CQOV_Leader_Task::admission() const {
  return dispatcher_->admission();
}

void CQOV_Leader_Task::end() {
  dispatcher_->end();
}
