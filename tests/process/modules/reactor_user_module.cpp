// A module one of whose own threads uses the process reactor while it initialises.
#include <ace/Reactor.h>
#include <qovpub/qov_task_mgr.h>

#include <thread>

namespace {

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(44, 0, "reactor_user") {}
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    std::thread([] { ACE_Reactor::instance()->notify(); }).join();
    return true;
  }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
