#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

// A module of the request benchmark: its workers answer every request at once.

namespace {

class Answerer : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;

  int handleMessage(CQOV_MsgPackage& request) override {
    return send(CreateQovRspPackage(request).release(), nullptr, true);
  }
};

class BenchModule : public CQOV_TaskMgr {
 public:
  BenchModule() : CQOV_TaskMgr(QOV_BENCH_GID, 4, "bench") {}
  CQOV_Task* createTask() override { return new Answerer(this); }
};

CQOV_TaskMgr* module = nullptr;

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  module = new BenchModule;
  return module;
}

/// The module's manager, for the requesters that the benchmark adds.
extern "C" CQOV_TaskMgr* qovBenchModule() {
  return module;
}
