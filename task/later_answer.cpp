#include "task/later_answer.h"

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_scheduler.h>

#include <cassert>
#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "diag/log_ids.h"
#include "task/activity_switch.h"
#include "task/ending_thread.h"
#include "task/hand_over.h"
#include "task/module_context.h"
#include "task/send_cause.h"
#include "task/task_context.h"

namespace qov {

namespace {

constexpr int kNoThread = 0;

}  // namespace

LaterAnswer::LaterAnswer(ModuleCounters& counters, CQOV_TaskScheduler& scheduler,
                         const QOVMsgHead& request, QOVRequest::Continuation continuation)
    : counters_(counters),
      scheduler_(scheduler),
      continuation_(std::move(continuation)),
      block_(makePointerBlock(this)) {
  // Those of the response, which may not come.
  QOVMsgHead& response = head();
  response.type_ = QOVMsgHead::kResponse;
  response.spid_ = request.rpid_;
  response.smid_ = request.rmid_;
  response.rpid_ = request.spid_;
  response.rmid_ = request.smid_;
  response.opc_ = request.opc_;
  response.sn_ = request.sn_;
}

LaterAnswer::~LaterAnswer() {
  noLongerPending();
}

void LaterAnswer::noLongerPending() {
  if (std::exchange(pending_, false)) {
    counters_.askedLater_.subtract(1);
  }
}

QOVReason LaterAnswer::ask(CQOV_Task& sender, std::unique_ptr<CQOV_MsgPackage> request,
                           const ACE_Time_Value& timeout, QOVRequest::Continuation continuation) {
  CQOVDebugKitGuard log(kPublicKit,
                        "static QOVReason qov::LaterAnswer::ask(CQOV_Task&, "
                        "std::unique_ptr<CQOV_MsgPackage>, const ACE_Time_Value&, "
                        "QOVRequest::Continuation)");
  CQOV_Leader_Task* const leader = ModuleContext::leaderOf(*sender.taskMgr());
  if (leader == nullptr) {
    return QOVReason::kStopped;
  }
  ModuleCounters& counters = TaskContext::countersOf(sender);
  if (!counters.askedLater_.addUpTo(QOVRequest::kMostLater)) {
    return QOVReason::kNoRoom;
  }
  std::unique_ptr<LaterAnswer> later(new (std::nothrow) LaterAnswer(
      counters, leader->scheduler(), request->head(), std::move(continuation)));
  if (later == nullptr) {
    counters.askedLater_.subtract(1);
    return QOVReason::kNoMemory;
  }
  if (later->block_ == nullptr) {
    return QOVReason::kNoMemory;
  }
  if (ActivitySwitch::isOn()) {
    later->noted_.reset(new (std::nothrow) WaitingRequests::Entry(
        counters.waitingRequests_, request->head(), timeout, kNoThread));
  }
  std::unique_ptr<TimeoutDesc> waiter(new (std::nothrow)
                                          TimeoutDesc{nullptr, timeout, -1, later.get()});
  if (handOverRequest(sender, log, request.release(), std::move(waiter), &timeout, true,
                      isWorkerHere(sender)) != 0) {
    return reasonOf(errno);
  }
  static_cast<void>(later.release());
  return QOVReason::kNone;
}

void LaterAnswer::end(QOVAnswer answer) {
  answer_ = std::move(answer);
  noted_.reset();
  ACE_Message_Block* const block = block_.release();
  // Who takes the block may delete this object at once.
  CQOV_TaskScheduler& scheduler = scheduler_;
  // Nobody closes the scheduler's queue.
  [[maybe_unused]] const bool taken = scheduler.take(QOVMsgHead::kResponse, block);
  assert(taken);
}

void LaterAnswer::end(ACE_Message_Block* block) {
  std::unique_ptr<CQOV_MsgPackage> response(packageOf(*block));
  block->release();
  const std::uint8_t result = response->head().mst_;
  end(result == 0 ? QOVAnswer(std::move(response)) : QOVAnswer(QOVReason::kRefused, result));
}

bool LaterAnswer::run(CQOV_MsgPackage& pkg, const CQOV_Task& task) {
  auto* const later = dynamic_cast<LaterAnswer*>(&pkg);
  if (later != nullptr) {
    later->runHere(task);
  }
  return later != nullptr;
}

void LaterAnswer::call(QOVAnswer answer, const CQOV_Task& task) {
  noLongerPending();
  const HandlingTime time(counters_, head(), task);
  // Freed here, as part of what a stop waits for, and of the time that it takes.
  const QOVRequest::Continuation continuation = std::exchange(continuation_, nullptr);
  continuation(std::move(answer));
}

void LaterAnswer::runHere(const CQOV_Task& task) {
  CQOVDebugKitGuard log(kPublicKit, "void qov::LaterAnswer::runHere(const CQOV_Task&)");
  if (answer_ || answer_.reason() == QOVReason::kRefused) {
    noteAnswer(counters_.moduleId(), head());
  }
  try {
    call(std::move(answer_), task);
  } catch (const std::exception& error) {
    log.error(log_id::kContinuationFailed, __FUNCTION__, __LINE__,
              "Module(%d) a continuation failed: %s", scheduler_.taskMgr()->moduleId(),
              error.what());
  } catch (...) {
    passOnEndOfThread();
    log.error(log_id::kContinuationFailed, __FUNCTION__, __LINE__,
              "Module(%d) a continuation failed: %s", scheduler_.taskMgr()->moduleId(),
              "an unknown exception");
  }
}

void LaterDeleter::operator()(LaterAnswer* later) const {
  delete later;
}

void runLater(LaterPtr later, QOVAnswer answer, const CQOV_Task& task) {
  later->call(std::move(answer), task);
}

}  // namespace qov
