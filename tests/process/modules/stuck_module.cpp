// A module whose end makes the file "lingering" and waits for the file "go", for ever if need be.
// QOV_TEST_STUCK says what else:
//   fails            it does not start
//   is made          its making waits so, too
//   exits            its start waits for a thread of its own, which ends the process
//   holding the log  nobody can log meanwhile
#include <ace/Log_Msg.h>
#include <qovpub/qov_task_mgr.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "tests/process/modules/agent_files.h"

namespace {

std::string mode() {
  const char* const text = std::getenv("QOV_TEST_STUCK");
  return text == nullptr ? "" : text;
}

/// Tells that it has begun.
void waitToGo() {
  qov::test::makeFile("lingering");
  while (!qov::test::waitForFile("go")) {
  }
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(43, 0, "stuck") {}
  ~Module() override {
    if (mode() == "holding the log") {
      ACE_Log_Msg::instance()->acquire();
    }
    waitToGo();
  }
  CQOV_Task* createTask() override { return nullptr; }
  bool initEnv() override {
    if (mode() == "exits") {
      std::thread([] { std::exit(0); }).join();
    }
    return mode() != "fails";
  }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  if (mode() == "is made") {
    waitToGo();
  }
  return new Module;
}
