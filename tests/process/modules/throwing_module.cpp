// A module with a thread "m49-own" that throws what nobody catches, once there is the file "go".
// QOV_TEST_THROW says what: "memory" for missing memory, otherwise a text. With QOV_TEST_THROW_LOOP
// it is thrown in the process's event loop instead.
#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <pthread.h>
#include <qovpub/qov_task_mgr.h>

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/process/modules/agent_files.h"

namespace {

[[noreturn]] void fail(const std::string& how) {
  if (how == "memory") {
    throw std::bad_alloc();
  }
  throw std::runtime_error(how);
}

std::string whatToThrow() {
  return std::getenv("QOV_TEST_THROW");
}

class Called : public ACE_Event_Handler {
 public:
  int handle_exception(ACE_HANDLE) override { fail(whatToThrow()); }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(49, 0, "throwing") {}
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    if (std::getenv("QOV_TEST_THROW_LOOP") != nullptr) {
      return ACE_Reactor::instance()->notify(&called_) == 0;
    }
    std::thread([how = whatToThrow()] {
      ::pthread_setname_np(::pthread_self(), "m49-own");
      if (qov::test::waitForFile("go")) {
        fail(how);
      }
    }).detach();
    return true;
  }

 private:
  Called called_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
