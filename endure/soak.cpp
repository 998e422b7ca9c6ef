// An agent as it runs in the field, for as long as it takes: a daemon with traffic between its
// modules, the status module that is asked, the MQTT module with a broker that comes and goes, and
// a log whose settings change.
#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "endure/campaign.h"
#include "endure/flatness.h"
#include "tests/process/agent_process.h"
#include "tests/support/mqtt_broker.h"
#include "tests/support/spawn.h"

namespace qov::endure {
namespace {

using std::chrono::seconds;
using test::AgentProcess;
using test::MqttBroker;
using test::readFile;
using test::waitUntil;

/// In kilobytes, over the last half: what waits in queues and what handlers hold, a few messages of
/// up to 1 MiB among it, differs from moment to moment.
constexpr std::int64_t kMostGrowth = 16384;
/// A client of the status module, a file that rotates and a connection that is made anew.
constexpr std::int64_t kMoreDescriptors = 4;

class SoakCampaign {
 public:
  explicit SoakCampaign(Campaign& campaign) : campaign_(campaign) {}

  void run() {
    if (MqttBroker::whyNot().empty()) {
      broker_ = std::make_unique<MqttBroker>();
    }
    configure();
    agent_.setEnvironment("QOV_ENDURE_SEED", std::to_string(campaign_.seed()));
    agent_.start({});
    if (agent_.waitForEnd().exitStatus == 0 && agent_.waitForFile("state") && agent_.findDaemon()) {
      soak();
      finish();
    } else {
      campaign_.fail("the agent does not start");
    }
    std::ofstream(campaign_.folder() / "agent.log") << agent_.log() << agent_.errors();
  }

 private:
  void configure() {
    for (const char* const module : {"qov_endure_traffic_40", "qov_endure_traffic_41",
                                     "qov_endure_traffic_42", "qovstatus", "qovmqtt"}) {
      agent_.root().addModule(module);
    }
    changeLog();
  }

  /// Other settings of the log; the sections of the modules stay.
  void changeLog() {
    const int port = broker_ != nullptr ? broker_->port() : 1;
    AgentRoot::write(agent_.root().cfgFile(),
                     "[QOV_GLOBAL]\nPROC_PID=7\n[LOG_CFG]\nSendTerminal=0\nChkInterval=" +
                         std::to_string(campaign_.between(1, 5)) +
                         "\nLogFileMaxSize=" + std::to_string(campaign_.between(256, 4096)) +
                         "\nLogFileMaxCnt=" + std::to_string(campaign_.between(1, 5)) +
                         "\nLogLevel=" + std::to_string(campaign_.between(2, 5)) +
                         "\n[MQTT]\nTls=0\nHost=127.0.0.1\nNode=7\nReconnectSeconds=1\nPort=" +
                         std::to_string(port) + "\n");
  }

  void soak() {
    while (campaign_.goesOn()) {
      std::this_thread::sleep_for(seconds(1));
      look();
      if (campaign_.between(1, 3) == 1) {
        changeLog();
        agent_.send(SIGUSR1);
        ++reloads_;
      }
      if (campaign_.between(1, 3) == 1) {
        askStatus();
      }
      if (broker_ != nullptr && campaign_.between(1, 10) == 1) {
        restartBroker();
      }
    }
  }

  void look() {
    const std::filesystem::path process = "/proc/" + agent_.state("pid");
    if (!agent_.daemonIsThere()) {
      campaign_.fail("the agent is gone");
      return;
    }
    const std::string wrong = readFile(agent_.root().path() / "wrong");
    if (!wrong.empty()) {
      campaign_.fail(wrong);
    }
    std::int64_t pages = 0;
    std::ifstream(process / "statm") >> pages >> pages;
    constexpr std::int64_t kPageKilobytes = 4;
    residentNow_ = pages * kPageKilobytes;
    resident_.add(residentNow_);
    const std::filesystem::directory_iterator all(process / "fd");
    descriptorsNow_ = std::distance(begin(all), end(all));
    descriptors_.add(descriptorsNow_);
  }

  void askStatus() {
    test::BeforeProgram before;
    const std::string answer = campaign_.folder() / "status";
    before.writeTo(STDOUT_FILENO, answer);
    before.writeTo(STDERR_FILENO, answer + ".errors");
    pid_t asking = test::spawn(
        QOV_ENDURE_QOVCTL, {"agent", "--root", agent_.root().path().string(), "status"}, before);
    const test::Ending ending = test::waitForEndOf(asking);
    if (!ending.ended || ending.exitStatus != 0 ||
        readFile(answer).find("traffic41") == std::string::npos) {
      campaign_.fail("the status module does not answer: " + readFile(answer) +
                     readFile(answer + ".errors"));
    }
    ++answers_;
  }

  void restartBroker() {
    broker_->stop(campaign_.between(0, 1) == 0 ? SIGKILL : SIGTERM);
    broker_->start();
    ++brokers_;
    // Its log begins anew.
    if (!waitUntil([&] { return broker_->log().find("as qov-") != std::string::npos; })) {
      campaign_.fail("the agent does not come back to its broker");
    }
  }

  void finish() {
    agent_.makeFile("dry");
    if (!agent_.waitForFile("balance")) {
      campaign_.fail("traffic does not come to its end");
    }
    const std::string balance = readFile(agent_.root().path() / "balance");
    if (!balance.empty()) {
      campaign_.fail(balance);
    }
    agent_.send(SIGTERM);
    const test::Ending ending = agent_.waitForDaemonEnd();
    if (!ending.ended || ending.exitStatus != 0) {
      campaign_.fail("the agent has not ended as it should");
    }
    growth_ = resident_.growth();
    if (memoryIsMeasured() && growth_ > kMostGrowth) {
      campaign_.fail("memory has grown over the last half by " + std::to_string(growth_) + " KiB");
    }
    if (descriptors_.growth() > kMoreDescriptors) {
      campaign_.fail("there are " + std::to_string(descriptors_.growth()) +
                     " descriptors more than before");
    }
  }

  Campaign& campaign_;
  std::unique_ptr<MqttBroker> broker_;
  AgentProcess agent_{QOV_ENDURE_SOAK_AGENT};
  Flatness resident_;
  Flatness descriptors_;
  Figure& reloads_ = campaign_.figure("reloads");
  Figure& answers_ = campaign_.figure("status_answers");
  Figure& brokers_ = campaign_.figure("broker_restarts");
  Figure& residentNow_ = campaign_.figure("rss_kb");
  Figure& growth_ = campaign_.figure("rss_growth_kb");
  Figure& descriptorsNow_ = campaign_.figure("descriptors");
};

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign(argc, argv, [](qov::endure::Campaign& campaign) {
    qov::endure::SoakCampaign(campaign).run();
  });
}
