// A module whose end waits for the file "go", for ever if need be.
#include <qovpub/qov_task_mgr.h>

#include "tests/process/modules/agent_files.h"

namespace {

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(43, 0, "stuck") {}
  ~Module() override {
    while (!qov::test::waitForFile("go")) {
    }
  }
  CQOV_Task* createTask() override { return nullptr; }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
