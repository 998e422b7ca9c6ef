// A module with a thread that asks for the device configuration, without sleeping, once there is
// the file "go", and logs the item "k" of device "a". Meanwhile another thread works. If static
// objects are destroyed while threads work the file "destroyed" is made.
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_xml.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "tests/process/modules/agent_files.h"
#include "tests/support/instead_of_sleeping.h"

namespace {

std::atomic<int> working{0};

struct Witness {
  ~Witness() {
    if (working != 0) {
      qov::test::makeFile("destroyed");
    }
  }
};
const Witness witness;

void logItem() {
  const qov::test::InsteadOfSleeping awake(
      [](std::chrono::nanoseconds) { return std::chrono::nanoseconds(0); });
  std::string value;
  CQOVXmlConfig::instance()->getDeviceItem("a", "k", value);
  CQOVDebugKitGuard guard(0, "logItem");
  guard.info(1, __FUNCTION__, __LINE__, "the item is %s", value.c_str());
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(48, 0, "configured") {}
  ~Module() override {
    stop_ = true;
    for (std::thread* const thread : {&worker_, &reader_}) {
      if (thread->joinable()) {
        thread->join();
      }
    }
    CQOVXmlConfig::close();
  }
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    ++working;
    worker_ = std::thread([this] {
      while (!stop_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      --working;
    });
    reader_ = std::thread([] {
      if (qov::test::waitForFile("go")) {
        logItem();
      }
    });
    return true;
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread worker_;
  std::thread reader_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
