// A module that answers every request.
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <memory>
#include <new>

namespace {

class Answerer : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;

  int handleMessage(CQOV_MsgPackage& request) override {
    return send(CreateQovRspPackage(request).release(), nullptr, true);
  }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(7, 2, "consumer") {}

  CQOV_Task* createTask() override { return new (std::nothrow) Answerer(this); }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return std::make_unique<Module>().release();
}
