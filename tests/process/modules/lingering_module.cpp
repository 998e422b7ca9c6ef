// A module whose end tells by the file "lingering" that it has begun, and takes its time. It works
// with a static object of its library: to find that gone aborts the process.
#include <qovpub/qov_module.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "tests/process/modules/agent_files.h"

namespace {

/// Enough for a thread that does not wait for the module to get to the static objects.
constexpr std::chrono::milliseconds kLongEnough{500};

struct WorkedWith {
  ~WorkedWith() {
    if (users != 0) {
      std::abort();
    }
  }
  std::atomic<int> users{0};
};

WorkedWith workedWith;

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(46, 1, "lingering") { ++workedWith.users; }
  ~Module() override {
    qov::test::makeFile("lingering");
    std::this_thread::sleep_for(kLongEnough);
    --workedWith.users;
  }
  CQOV_Task* createTask() override { return nullptr; }
};

}  // namespace

QOV_MODULE(Module)
