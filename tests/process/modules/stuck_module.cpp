// A module whose end never comes.
#include <qovpub/qov_task_mgr.h>
#include <unistd.h>

namespace {

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(43, 0, "stuck") {}
  ~Module() override {
    for (;;) {
      ::pause();
    }
  }
  CQOV_Task* createTask() override { return nullptr; }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
