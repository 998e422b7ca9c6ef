// A module that takes every descriptor the process may have and gives them back at its end.
#include <fcntl.h>
#include <qovpub/qov_task_mgr.h>
#include <unistd.h>

#include <vector>

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
    for (int taken = takeOne(); taken >= 0; taken = takeOne()) {
      taken_.push_back(taken);
    }
    return true;
  }

 private:
  static int takeOne() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

  std::vector<int> taken_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
