#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_testkit.h>

#include <algorithm>
#include <new>
#include <utility>

#include "testkit/router.h"
#include "testkit/thread_of.h"

namespace {

class TestModule : public CQOV_TaskMgr {
 public:
  explicit TestModule(unsigned int moduleId) : CQOV_TaskMgr(moduleId, 0, "test") {}

  CQOV_Task* createTask() override { return nullptr; }
};

/// Reaches what is there for derived classes.
class LeaderOf : public CQOV_TaskMgr {
 public:
  static CQOV_Leader_Task& get(const CQOV_TaskMgr& module) {
    CQOV_Leader_Task* const leader = (module.*(&LeaderOf::leader))();
    if (leader == nullptr) {
      throw std::bad_alloc();
    }
    return *leader;
  }
};

/// Whether the leader of the requester would find the request for this message.
bool answers(const QOVMsgHead& message, const QOVMsgHead& request) {
  return message.type_ == QOVMsgHead::kResponse && message.opc_ == request.opc_ &&
         message.sn_ == request.sn_ && message.spid_ == request.rpid_ &&
         message.smid_ == request.rmid_ && message.rpid_ == request.spid_ &&
         message.rmid_ == request.smid_;
}

}  // namespace

QOVTestKit::QOVTestKit(unsigned int moduleId)
    : ownProcess_(std::make_unique<QOVTestProcess>()),
      ownModule_(std::make_unique<TestModule>(moduleId)),
      process_(*ownProcess_),
      module_(*ownModule_),
      router_(makeRouter()) {}

QOVTestKit::QOVTestKit(QOVTestProcess& process, CQOV_TaskMgr& module)
    : process_(process), module_(module), router_(makeRouter()) {}

QOVTestKit::~QOVTestKit() = default;

std::unique_ptr<qov::TestRouter> QOVTestKit::makeRouter() {
  return std::make_unique<qov::TestRouter>(LeaderOf::get(module_), now_);
}

QOVTestProcess& QOVTestKit::process() const {
  return process_;
}

CQOV_TaskMgr* QOVTestKit::module() const {
  return &module_;
}

CQOV_MsgPackage QOVTestKit::message(std::uint64_t opc, QOVMsgHead::Type type,
                                    std::uint8_t from) const {
  CQOV_MsgPackage message;
  address(message, opc, type, from);
  return message;
}

void QOVTestKit::address(CQOV_MsgPackage& message, std::uint64_t opc, QOVMsgHead::Type type,
                         std::uint8_t from) const {
  QOVMsgHead& head = message.head();
  head.type_ = type;
  head.opc_ = opc;
  head.spid_ = QOVTestProcess::kId;
  head.smid_ = from;
  head.rpid_ = QOVTestProcess::kId;
  head.rmid_ = static_cast<std::uint8_t>(module_.moduleId());
}

int QOVTestKit::handle(CQOV_CommonTask& task, CQOV_MsgPackage& message) {
  int result = 0;
  {
    const qov::ThreadOf thread(task);
    result = task.handleMessage(message);
  }
  noteNewPeriods();
  while (router_->runLater(now_)) {
  }
  return result;
}

QOVAnswer QOVTestKit::ask(CQOV_CommonTask& task, CQOV_MsgPackage& message) {
  // A copy: the handler may change the message.
  const QOVMsgHead request = message.head();
  Sent& sent = router_->sent();
  // Earlier messages may hold a late answer to the same request.
  const auto before = static_cast<Sent::difference_type>(sent.size());
  handle(task, message);
  const auto found = std::find_if(sent.begin() + before, sent.end(),
                                  [&](const auto& one) { return answers(one->head(), request); });
  if (found == sent.end()) {
    return QOVAnswer(QOVReason::kTimedOut);
  }
  std::unique_ptr<CQOV_MsgPackage> answer = std::move(*found);
  sent.erase(found);
  const std::uint8_t result = answer->head().mst_;
  return result == 0 ? QOVAnswer(std::move(answer)) : QOVAnswer(QOVReason::kRefused, result);
}

const QOVTestKit::Sent& QOVTestKit::sent() const {
  return router_->sent();
}

QOVTestKit::Sent QOVTestKit::takeSent() {
  return std::exchange(router_->sent(), Sent());
}

void QOVTestKit::answer(std::uint8_t module, std::uint64_t opc, Fill fill) {
  router_->set(module, opc,
               {QOVReason::kNone, 0, fill ? std::make_shared<Fill>(std::move(fill)) : nullptr});
}

void QOVTestKit::refuse(std::uint8_t module, std::uint64_t opc, std::uint8_t result) {
  router_->set(module, opc, {QOVReason::kNone, result, nullptr});
}

void QOVTestKit::fail(std::uint8_t module, std::uint64_t opc, QOVReason reason) {
  router_->set(module, opc, {reason, 0, nullptr});
}
