// An agent without a module loader: it makes a task manager itself, whose workers send messages to
// each other all the time, and leaves main with the manager still running.
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <condition_variable>
#include <mutex>

#include "tests/process/modules/own_message.h"

namespace {

constexpr int kGid = 7;
constexpr int kEnough = 200;

std::mutex lock;
std::condition_variable changed;
int handled = 0;

class Worker : public CQOV_CommonTask {
 public:
  explicit Worker(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}

  int handleMessage(CQOV_MsgPackage&) override {
    {
      const std::lock_guard<std::mutex> held(lock);
      ++handled;
      changed.notify_all();
    }
    send(qov::test::aMessageTo(kGid).release(), nullptr, true);
    return 0;
  }
};

class Manager : public CQOV_TaskMgr {
 public:
  Manager() : CQOV_TaskMgr(kGid, 4, "direct") {}
  CQOV_Task* createTask() override { return new Worker(this); }
};

}  // namespace

int main() {
  static Manager& manager = *new Manager;
  if (!manager.init()) {
    return 1;
  }
  for (int i = 0; i < 2; ++i) {
    qov::test::putAMessageTo(
        kGid, [](ACE_Message_Block* block) { return manager.putq(block, nullptr) > 0; });
  }
  std::unique_lock<std::mutex> held(lock);
  changed.wait(held, [] { return handled >= kEnough; });
  return 0;
}
