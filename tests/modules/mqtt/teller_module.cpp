// A module, id 42, that tells the module "chatter", id 1, what is not meant for the broker:
// notices, operation 4097, and events, operation 4098, with the serial numbers 1 to 100. It begins
// when there is a file "tell". The file "told" is made when an event that it sends behind them to
// the module 251, operation 4099, is stored, and so are the copies of the others;
// an agent that starts with it does not begin again.
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <thread>

#include "tests/process/modules/agent_files.h"

namespace {

constexpr int kId = 42;
constexpr std::uint8_t kChatter = 1;
constexpr std::uint64_t kNotice = 4097;
constexpr std::uint64_t kEvent = 4098;
constexpr std::uint8_t kMqtt = 251;
constexpr std::uint64_t kLast = 4099;
constexpr std::uint32_t kCount = 100;
constexpr std::uint64_t kCommand = 1;
constexpr int kSerial = 1;

class Teller : public CQOV_TaskMgr {
 public:
  Teller() : CQOV_TaskMgr(kId, 1, "teller"), telling_(this) {}
  ~Teller() override {
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    thread_ = std::thread([this] { tellAll(); });
    return true;
  }

 private:
  void tellAll() {
    const bool wasTold = std::ifstream(qov::test::agentFile("told")).good();
    bool all = !wasTold && qov::test::waitForFile("tell");
    for (std::uint32_t serial = 1; serial <= kCount && all; ++serial) {
      all = tell(kNotice, QOVMsgHead::kNotice, serial) && tell(kEvent, QOVMsgHead::kEvent, serial);
    }
    if (all && QOVRequest(telling_, kMqtt, kLast).ask(std::chrono::seconds(60))) {
      qov::test::makeFile("told");
    }
  }

  bool tell(std::uint64_t opc, QOVMsgHead::Type type, std::uint32_t serial) {
    QOVRequest message(telling_, kChatter, opc);
    message.addRecord(kCommand).addUnsigned(kSerial, serial);
    return message.tell(type) == QOVReason::kNone;
  }

  CQOV_Task telling_;
  std::thread thread_;
};

}  // namespace

QOV_MODULE(Teller)
