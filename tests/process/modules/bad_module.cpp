// A module that does not initialise.
#include <qovpub/qov_task_mgr.h>

namespace {

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(42, 1, "bad") {}
  CQOV_Task* createTask() override { return nullptr; }
  bool initEnv() override { return false; }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
