// A module whose leader makes the file "waiting" and waits for the file "go", in a static task's
// putMsg().
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <list>

#include "tests/process/modules/agent_files.h"
#include "tests/process/modules/own_message.h"

namespace {

constexpr int kGid = 44;

class WaitingTask : public CQOV_StaticSchecheduledTask {
 public:
  using CQOV_StaticSchecheduledTask::CQOV_StaticSchecheduledTask;

  int putMsg(int type, ACE_Message_Block* block, ACE_Time_Value* timeout) override {
    qov::test::makeFile("waiting");
    qov::test::waitForFile("go");
    return CQOV_StaticSchecheduledTask::putMsg(type, block, timeout);
  }
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
  void getOpcList(std::list<unsigned long long>& codes) override { codes.push_back(0); }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(kGid, 0, "waiting") {}
  ~Module() override { stop(); }

  CQOV_Task* createTask() override { return nullptr; }
  bool initEnv() override {
    const bool isInserted = insertStaticScheduledTask(&task_) == 0;
    qov::test::putAMessageTo(
        kGid, [this](ACE_Message_Block* block) { return putq(block, nullptr) != -1; });
    return isInserted;
  }

 private:
  WaitingTask task_{this};
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
