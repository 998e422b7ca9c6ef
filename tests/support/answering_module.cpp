// A module whose workers answer every request with its addresses exchanged. For tests and
// benchmarks of requests between modules.
//   QOV_TEST_GID  its module id
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

namespace {

class Answerer : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;

  int handleMessage(CQOV_MsgPackage& request) override {
    return send(CreateQovRspPackage(request).release(), nullptr, true);
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
