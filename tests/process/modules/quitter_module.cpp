// A module whose worker ends the process by exit(7), once there is the file "go"; with
// QOV_TEST_PLAIN a plain thread of its group does. The module must not be deleted under either, or
// else it aborts the process.
#include <ace/Thread_Manager.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "tests/process/modules/agent_files.h"
#include "tests/process/modules/own_message.h"

namespace {

constexpr int kGid = 45;
std::atomic<bool> inUse{false};

[[noreturn]] void quit() {
  inUse = true;
  std::exit(7);
}

ACE_THR_FUNC_RETURN quitWhenToldTo(void*) {
  if (qov::test::waitForFile("go")) {
    quit();
  }
  return nullptr;
}

class Worker : public CQOV_CommonTask {
 public:
  explicit Worker(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}

  int handleMessage(CQOV_MsgPackage&) override { quit(); }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(kGid, 2, "quitter") {}
  ~Module() override {
    if (inUse) {
      std::abort();
    }
  }
  CQOV_Task* createTask() override { return new Worker(this); }

  bool initEnv() override {
    if (std::getenv("QOV_TEST_PLAIN") != nullptr) {
      return ACE_Thread_Manager::instance()->spawn(&quitWhenToldTo, nullptr,
                                                   THR_NEW_LWP | THR_JOINABLE, nullptr, nullptr,
                                                   ACE_DEFAULT_THREAD_PRIORITY, gid()) == kGid;
    }
    // Nobody is left to join it.
    std::thread([] {
      if (qov::test::waitForFile("go")) {
        qov::test::sendAMessageTo(kGid);
      }
    }).detach();
    return true;
  }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
