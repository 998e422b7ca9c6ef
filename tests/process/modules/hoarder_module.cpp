// A module that takes every descriptor the process may have and gives them back at its end. If
// QOV_TEST_WAIT is set it makes the file "ready" and waits for the file "go" before.
#include <fcntl.h>
#include <qovpub/qov_task_mgr.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "tests/process/modules/agent_files.h"
#include "tests/support/sanitizers.h"

namespace {

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(42, 0, "hoarder") {}
  ~Module() override {
    for (const int descriptor : taken_) {
      ::close(descriptor);
    }
  }
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    if (std::getenv("QOV_TEST_WAIT") != nullptr) {
      qov::test::makeFile("ready");
      qov::test::waitForFile("go");
    }
    for (int taken = takeOne(); taken >= 0; taken = takeOne()) {
      taken_.push_back(taken);
    }
#if QOV_TEST_ASAN
    // UndefinedBehaviorSanitizer looks at objects through a pipe, and takes one that it cannot look
    // at for a bad one.
    for (int pipeEnd = 0; pipeEnd < 2 && !taken_.empty(); ++pipeEnd) {
      ::close(taken_.back());
      taken_.pop_back();
    }
#endif
    return true;
  }

 private:
  static int takeOne() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  }

  std::vector<int> taken_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
