// A module whose own thread runs the process reactor for a moment while it initialises, and which
// then asks that reactor for a call, on which it makes the file "called". Then it does both again,
// while the agent runs the reactor: "called_again".
#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Thread.h>
#include <qovpub/qov_task_mgr.h>

#include <string>
#include <thread>
#include <utility>

#include "tests/process/modules/agent_files.h"

namespace {

class Called : public ACE_Event_Handler {
 public:
  explicit Called(std::string file) : file_(std::move(file)) {}
  int handle_exception(ACE_HANDLE) override {
    qov::test::makeFile(file_);
    return 0;
  }

 private:
  const std::string file_;
};

void runReactorForAMoment() {
  ACE_Reactor& reactor = *ACE_Reactor::instance();
  reactor.owner(ACE_Thread::self());
  ACE_Time_Value none = ACE_Time_Value::zero;
  reactor.handle_events(none);
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(44, 0, "reactor_user") {}
  ~Module() override {
    stop();
    if (again_.joinable()) {
      again_.join();
    }
    // What the loop did not come to would be looked at when the reactor is closed, after this
    // module has left memory.
    ACE_Reactor::instance()->purge_pending_notifications(&called_);
    ACE_Reactor::instance()->purge_pending_notifications(&calledAgain_);
  }
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    std::thread(runReactorForAMoment).join();
    return ACE_Reactor::instance()->notify(&called_) == 0;
  }

 private:
  class First : public Called {
   public:
    explicit First(Module& module) : Called("called"), module_(module) {}
    int handle_exception(ACE_HANDLE handle) override {
      module_.again_ = std::thread([this] {
        runReactorForAMoment();
        ACE_Reactor::instance()->notify(&module_.calledAgain_);
      });
      return Called::handle_exception(handle);
    }

   private:
    Module& module_;
  };

  First called_{*this};
  Called calledAgain_{"called_again"};
  std::thread again_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
