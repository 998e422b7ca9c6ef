// A module, id 40, that sends events to the module 251 until there are as many as the file "wanted"
// says, and the same again after a restart. Each is a request: when it is answered the event is
// stored, and the file "stored" gets a line. Each request is followed by a notice, operation 4098.
// With a file "large" it begins with a notice, operation 4099, of 1.2 MB.
#include <fcntl.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "tests/process/modules/agent_files.h"

namespace {

constexpr int kId = 40;
constexpr std::uint8_t kMqtt = 251;
constexpr std::uint64_t kStored = 4097;
constexpr std::uint64_t kNotice = 4098;
constexpr std::uint64_t kLarge = 4099;
constexpr std::uint64_t kCommand = 1;
constexpr int kSerial = 1;

class Events : public CQOV_TaskMgr {
 public:
  Events() : CQOV_TaskMgr(kId, 1, "events"), asking_(this), telling_(this) {}
  ~Events() override {
    stopping_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    thread_ = std::thread([this] { sendAll(); });
    return true;
  }

 private:
  void sendAll() {
    if (std::ifstream(qov::test::agentFile("large")).good()) {
      QOVRequest notice(telling_, kMqtt, kLarge);
      for (int i = 0; i < 20; ++i) {
        notice.addRecord(kCommand).addString(kSerial, std::string(60000, '\n'));
      }
      static_cast<void>(notice.tell());
    }
    std::ifstream before(qov::test::agentFile("stored"));
    auto sent =
        static_cast<std::uint32_t>(std::count(std::istreambuf_iterator<char>(before), {}, '\n'));
    const int stored = ::open(qov::test::agentFile("stored").c_str(),
                              O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    while (!stopping_) {
      std::uint32_t wanted = 0;
      std::ifstream(qov::test::agentFile("wanted")) >> wanted;
      if (sent >= wanted) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      } else if (send(sent + 1)) {
        const std::string line = std::to_string(++sent) + "\n";
        static_cast<void>(!::write(stored, line.data(), line.size()));
      }
    }
    ::close(stored);
  }

  bool send(std::uint32_t serial) {
    QOVRequest request(asking_, kMqtt, kStored);
    request.addRecord(kCommand).addUnsigned(kSerial, serial);
    const QOVAnswer answer = request.ask(std::chrono::seconds(5));
    QOVRequest notice(telling_, kMqtt, kNotice);
    notice.addRecord(kCommand).addUnsigned(kSerial, serial);
    static_cast<void>(notice.tell());
    return answer.reason() == QOVReason::kNone;
  }

  CQOV_Task asking_;
  CQOV_Task telling_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace

QOV_MODULE(Events)
