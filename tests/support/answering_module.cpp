// A module whose workers answer every request with its addresses exchanged. For tests and
// benchmarks of requests between modules. What an OM request carries goes back in an OM answer.
//   QOV_TEST_GID  its module id
#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <memory>

namespace {

class Answerer : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;

  int handleMessage(CQOV_MsgPackage& request) override {
    return send(answerTo(request).release(), nullptr, true);
  }

 private:
  static std::unique_ptr<CQOV_MsgPackage> answerTo(CQOV_MsgPackage& request) {
    std::unique_ptr<CQOV_MsgPackage> plain = CreateQovRspPackage(request);
    if ((request.head().flags_ & QOVMsgHead::kFlagOm) == 0) {
      return plain;
    }
    auto& asked = dynamic_cast<CQOV_OM_MsgPackage&>(request);
    auto answer = std::make_unique<CQOV_OM_MsgPackage>(asked.release());
    answer->head() = plain->head();
    answer->head().flags_ |= QOVMsgHead::kFlagOm;
    return answer;
  }
};

class AnsweringModule : public CQOV_TaskMgr {
 public:
  AnsweringModule() : CQOV_TaskMgr(QOV_TEST_GID, 4, "answering") {}
  CQOV_Task* createTask() override { return new Answerer(this); }
};

CQOV_TaskMgr* module = nullptr;

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  module = new AnsweringModule;
  return module;
}

/// The module's manager, for requesters that the test adds.
extern "C" CQOV_TaskMgr* qovAnsweringModule() {
  return module;
}
