// A module that writes into a broken pipe, while it initialises and on a thread of its own.
#include <qovpub/qov_task_mgr.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "tests/process/modules/agent_files.h"

namespace {

bool writeFailsWithEpipe() {
  int ends[2] = {-1, -1};
  if (::pipe(ends) != 0) {
    return false;
  }
  ::close(ends[0]);
  const bool failed = ::write(ends[1], "x", 1) == -1 && errno == EPIPE;
  ::close(ends[1]);
  return failed;
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(41, 0, "broken_pipe") {}
  ~Module() override { thread_.join(); }
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    thread_ = std::thread([] {
      // Once while the process starts, once while it runs.
      writeFailsWithEpipe();
      if (qov::test::waitForFile("go") && writeFailsWithEpipe()) {
        qov::test::makeFile("survived");
      }
    });
    return writeFailsWithEpipe();
  }

 private:
  std::thread thread_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
