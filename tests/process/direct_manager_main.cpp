// An agent without a module loader: it makes a task manager itself, whose workers send messages to
// each other all the time, and leaves main with the manager still running.
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_utility.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

namespace {

constexpr std::uint8_t kGid = 7;
constexpr int kEnough = 200;

std::mutex lock;
std::condition_variable changed;
int handled = 0;

std::unique_ptr<CQOV_MsgPackage> makeMessage() {
  auto message = std::make_unique<CQOV_MsgPackage>();
  message->head().type_ = QOVMsgHead::kNotice;
  message->head().rpid_ = static_cast<std::uint8_t>(QOV_Utility::getProcPID());
  message->head().rmid_ = kGid;
  return message;
}

class Worker : public CQOV_CommonTask {
 public:
  explicit Worker(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}

  int handleMessage(CQOV_MsgPackage&) override {
    {
      const std::lock_guard<std::mutex> held(lock);
      ++handled;
      changed.notify_all();
    }
    send(makeMessage().release(), nullptr, true);
    return 0;
  }
};

class Manager : public CQOV_TaskMgr {
 public:
  Manager() : CQOV_TaskMgr(kGid, 4, "direct") {}
  CQOV_Task* createTask() override { return new Worker(this); }
};

bool kickOff(CQOV_TaskMgr& manager) {
  auto message = makeMessage();
  const CQOV_MsgPackage* const pointer = message.get();
  auto* const block = new ACE_Message_Block(sizeof pointer);
  block->copy(reinterpret_cast<const char*>(&pointer), sizeof pointer);
  if (manager.putq(block, nullptr) < 0) {
    return false;
  }
  static_cast<void>(message.release());
  return true;
}

}  // namespace

int main() {
  static Manager& manager = *new Manager;
  if (!manager.init() || !kickOff(manager) || !kickOff(manager)) {
    return 1;
  }
  std::unique_lock<std::mutex> held(lock);
  changed.wait(held, [] { return handled >= kEnough; });
  return 0;
}
