// A module that opens a plug-in: another module's library serves as well as any.
#include <qovpub/qov_plugins.h>
#include <qovpub/qov_task_mgr.h>

namespace {

class Operator : public CQOV_PluginOperator {
 public:
  bool init(ACE_DLL_Handle*) override { return true; }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(47, 0, "plugged") {}
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    Operator accepting;
    return CQOV_Plugins::instance()->open("qovp_bad", accepting, 1);
  }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
