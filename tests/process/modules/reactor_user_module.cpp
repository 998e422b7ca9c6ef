// A module whose own thread runs the process reactor for a moment while it initialises, and which
// then asks that reactor for a call, on which it makes the file "called".
#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Thread.h>
#include <qovpub/qov_task_mgr.h>

#include <thread>

#include "tests/process/modules/agent_files.h"

namespace {

class Called : public ACE_Event_Handler {
 public:
  int handle_exception(ACE_HANDLE) override {
    qov::test::makeFile("called");
    return 0;
  }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(44, 0, "reactor_user") {}
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    std::thread([] {
      ACE_Reactor& reactor = *ACE_Reactor::instance();
      reactor.owner(ACE_Thread::self());
      ACE_Time_Value none = ACE_Time_Value::zero;
      reactor.handle_events(none);
    }).join();
    return ACE_Reactor::instance()->notify(&called_) == 0;
  }

 private:
  Called called_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
