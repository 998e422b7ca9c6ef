// An agent as it runs in the field, for as long as it takes: a daemon with traffic between its
// modules, the status module that is asked, the MQTT module with a broker that comes and goes and
// gets events, exchanges with a management endpoint, a file that is saved, and a log whose settings
// change, whose disk gets full and whose folder is away at times.
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "endure/campaign.h"
#include "endure/flatness.h"
#include "endure/log_faults.h"
#include "endure/loud_log.h"
#include "tests/modules/mqtt/watcher.h"
#include "tests/process/agent_process.h"
#include "tests/support/counts.h"
#include "tests/support/spawn.h"
#include "tests/tools/endpoint_process.h"

namespace qov::endure {
namespace {

/// "LogLevel", up to which all records of the module "loud" are there, but those for debugging.
constexpr int kGreatestLevel = 3;

namespace fs = std::filesystem;
using std::chrono::seconds;
using test::AgentProcess;
using test::MqttBroker;
using test::readFile;
using test::waitUntil;

class SoakCampaign {
 public:
  explicit SoakCampaign(Campaign& campaign) : campaign_(campaign) {}

  void run() {
    if (const std::string why = test::whyNoBroker(); why.empty()) {
      broker_.emplace(test::kKeepsAll);
      watcher_.emplace(*broker_);
      broker_->saveSessions();
    } else {
      campaign_.notWatched("events at an MQTT broker: " + why);
    }
    if (!endpoint_.start({"--quiet"})) {
      campaign_.fail("qov-endpoint does not start: " + endpoint_.errors());
    }
    configure();
    agent_.setEnvironment("QOV_ENDURE_SEED", std::to_string(campaign_.seed()));
    agent_.setEnvironment("QOV_ENDURE_CAMPAIGN", std::to_string(::getpid()));
    agent_.setEnvironment("TZ", "UTC");
    agent_.prepareChild([] { ::signal(SIGXFSZ, SIG_IGN); });
    agent_.start({});
    if (agent_.waitForEnd().exitStatus == 0 && agent_.waitForFile("state") && agent_.findDaemon()) {
      soak();
      finish();
    } else {
      campaign_.fail("the agent does not start");
    }
  }

  ~SoakCampaign() { campaign_.keepIfLost(agent_.root().path()); }
  SoakCampaign(const SoakCampaign&) = delete;
  SoakCampaign& operator=(const SoakCampaign&) = delete;

 private:
  void configure() {
    for (const char* const module :
         {"qove_traffic_40", "qove_traffic_41", "qove_traffic_42", "qove_loud", "qovstatus"}) {
      agent_.root().addModule(module);
    }
    if (broker_) {
      agent_.root().addModule("qovmqtt");
    }
    configureLog(2, 5);
  }

  /// Other settings of the log; the other sections stay. A record is one line, of which none is
  /// removed before lookAtLog().
  void configureLog(std::int64_t level, std::int64_t interval) {
    AgentRoot::write(agent_.root().cfgFile(),
                     "[QOV_GLOBAL]\nPROC_PID=7\n[LOG_CFG]\nSendTerminal=0\nChkInterval=" +
                         std::to_string(interval) +
                         "\nLogFileMaxSize=" + std::to_string(campaign_.between(64, 1024)) +
                         "\nLogFileMaxCnt=1000\nLogEscape=1\nLogFold=" +
                         std::to_string(campaign_.between(0, 1)) +
                         "\nLogJson=" + std::to_string(campaign_.between(0, 1)) +
                         "\nLogLevel=" + std::to_string(level) +
                         "\n[MQTT]\nTls=0\nHost=127.0.0.1\nNode=7\nReconnectSeconds=1\nPort=" +
                         std::to_string(broker_ ? broker_->port() : 1) +
                         "\n[MMT]\nMMT_ADDR=127.0.0.1:" + std::to_string(endpoint_.port()) + "\n");
  }

  /// Traffic flows and rests in turn, for at rest nothing may be left of it.
  void soak() {
    for (;;) {
      flow();
      rest();
      if (!campaign_.goesOn()) {
        return;
      }
      if (broker_ && campaign_.between(1, 3) == 1) {
        broker_->freeze();
        isFrozen_ = true;
      }
      fs::remove(agent_.root().path() / "balance");
      fs::remove(agent_.root().path() / "dry");
    }
  }

  void flow() {
    for (std::int64_t left = campaign_.between(1, 2); left > 0 && !campaign_.failed(); --left) {
      disturbLog();
      std::this_thread::sleep_for(seconds(1));
      look();
      configureLog(campaign_.between(2, kGreatestLevel), campaign_.between(1, 5));
      agent_.send(SIGUSR1);
      ++reloads_;
      if (campaign_.between(1, 3) == 1) {
        askStatus();
      }
      if (broker_ && campaign_.between(1, 10) == 1) {
        restartBroker();
      }
    }
    if (isFrozen_) {
      restartBroker();
    }
    faults_.freeDisk(process());
    if (faults_.isFolderAway()) {
      faults_.bringFolder(true);
    }
  }

  /// Events that the MQTT module cannot write meanwhile wait in its memory.
  void disturbLog() {
    if (campaign_.between(1, 3) == 1) {
      // Of the files that this agent itself writes all are smaller.
      faults_.fillDisk(process(), 8192);
      diskWasFull_ = true;
    } else if (faults_.isDiskFull()) {
      faults_.freeDisk(process());
    }
    if (faults_.isFolderAway()) {
      faults_.bringFolder(true);
    } else if (campaign_.between(1, 3) == 1) {
      faults_.takeFolder();
    }
  }

  /// The log goes on in a new folder. Every record of the module "loud" is there, once and in its
  /// thread's order, or was counted as refused.
  void lookAtLog() {
    renewLog();
    faults_.takeFolder();
    faults_.bringFolder(false);
    renewLog();
    // What the disk has refused is told before the next record, for which a thread may be slow.
    promise_.loses_errors = promise_.loses_errors || diskWasFull_;
    if (!std::exchange(diskWasFull_, false)) {
      judgeLog();
    }
  }

  /// Until the log's file is a new one, which tells what has come before.
  void renewLog() {
    const std::int64_t interval = 1000 + ++reloads_;
    configureLog(2, interval);
    agent_.send(SIGUSR1);
    if (!agent_.waitForLog("ChkInterval " + std::to_string(interval) + " s")) {
      campaign_.fail("the log's settings are not applied");
    }
  }

  /// What the log's former folders have, which are removed. `lasts`: each thread's last number, if
  /// it is known; what has come may be short of it.
  void judgeLog(const std::optional<LoudNumbers>& lasts = {}) {
    LoudLog log("endure_soak_agent");
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(agent_.root().path())) {
      if (entry.path().filename().string().rfind("log_", 0) == 0) {
        folders.push_back(entry.path());
        log.addFolder(entry.path());
      }
    }
    promise_.last = lasts ? *lasts : log.lasts();
    promise_.is_disturbed = true;
    promise_.greatest_level = kGreatestLevel;
    records_ += log.records();
    refused_ += log.refused();
    const std::string complaint = log.complaint(promise_);
    if (!complaint.empty()) {
      campaign_.fail(complaint);
    }
    if (!campaign_.failed()) {
      for (const fs::path& folder : folders) {
        fs::remove_all(folder);
      }
    }
    for (std::size_t thread = 0; thread < kLoudThreads; ++thread) {
      promise_.first[thread] = std::max(promise_.first[thread], promise_.last[thread] + 1);
    }
    promise_.loses_errors = false;
  }

  void look() {
    if (!agent_.daemonIsThere()) {
      campaign_.fail("the agent is gone");
    }
    const std::string wrong = readFile(agent_.root().path() / "wrong");
    if (!wrong.empty()) {
      campaign_.fail(wrong);
    }
  }

  void rest() {
    agent_.makeFile("dry");
    if (!agent_.waitForFile("balance")) {
      campaign_.fail("traffic does not come to its end");
      return;
    }
    look();
    const std::string balance = readFile(agent_.root().path() / "balance");
    if (!balance.empty()) {
      campaign_.fail(balance);
    }
    seeEvents();
    // Where the disk was full, events may still wait for a place on it.
    measure(!diskWasFull_);
    lookAtLog();
  }

  pid_t process() const { return static_cast<pid_t>(told("pid")); }
  std::int64_t told(const char* key) const { return std::stoll(agent_.state(key)); }

  /// All that the MQTT module has taken; some may have come twice.
  void seeEvents() {
    events_ = told("events");
    std::set<std::int64_t> seen;
    const auto allSeen = [&] {
      for (const test::Seen& event : watcher_->seen("/event/")) {
        seen.insert(std::stoll(event.topic.substr(event.topic.rfind('/') + 1)));
      }
      return static_cast<std::int64_t>(seen.size()) >= events_;
    };
    if (watcher_ && (!waitUntil(allSeen) || std::accumulate(seen.begin(), seen.end(),
                                                            std::int64_t{0}) != told("serials"))) {
      campaign_.fail("the watcher has " + std::to_string(seen.size()) + " events, not the " +
                     std::to_string(events_) + " that were sent");
    }
  }

  void measure(bool isCalm) {
    turns_ = told("turns");
    if (isCalm) {
      memory_.add(told("resident"), told("heap"));
    }
    const fs::path agent = "/proc/" + agent_.state("pid");
    const auto same = [&] {
      descriptorsNow_ = test::entriesOf(agent / "fd");
      threadsNow_ = test::entriesOf(agent / "task");
      return descriptorsNow_ == descriptors_ && threadsNow_ == threads_;
    };
    if (rests_++ == 0) {
      // A client of the status module may still be leaving: what stays for a second counts.
      auto since = std::chrono::steady_clock::now();
      waitUntil([&] {
        if (!same()) {
          descriptors_ = descriptorsNow_;
          threads_ = threadsNow_;
          since = std::chrono::steady_clock::now();
        }
        return std::chrono::steady_clock::now() - since > seconds(1);
      });
    }
    if (!waitUntil(same)) {
      campaign_.fail("at rest there are " + std::to_string(descriptorsNow_) + " descriptors and " +
                     std::to_string(threadsNow_) + " threads, not " + std::to_string(descriptors_) +
                     " and " + std::to_string(threads_));
    }
  }

  void askStatus() {
    test::BeforeProgram before;
    const std::string answer = campaign_.folder() / "status";
    before.writeTo(STDOUT_FILENO, answer);
    before.writeTo(STDERR_FILENO, answer + ".errors");
    pid_t asking = test::spawn(
        QOV_ENDURE_QOVCTL,
        {"agent", "--root", agent_.root().path().string(), "--timeout", "60", "status"}, before);
    if (test::waitForEndOf(asking).exitStatus != 0 ||
        readFile(answer).find("traffic41") == std::string::npos) {
      campaign_.fail("the status module does not answer: " + readFile(answer) +
                     readFile(answer + ".errors"));
    }
    ++answers_;
  }

  /// Kills it only if it was frozen before any traffic: what it has acknowledged and nobody has
  /// fetched would be lost with it.
  void restartBroker() {
    broker_->stop(isFrozen_ ? SIGKILL : SIGTERM);
    isFrozen_ = false;
    broker_->start();
    ++brokers_;
    // Its log begins anew.
    const auto areBack = [this] {
      const std::string log = broker_->log();
      return log.find("as qov-") != std::string::npos &&
             log.find("as watcher") != std::string::npos;
    };
    if (!waitUntil(areBack)) {
      campaign_.fail("the agent or the watcher does not come back to the broker");
    }
  }

  void finish() {
    agent_.send(SIGTERM);
    if (agent_.waitForDaemonEnd().exitStatus != 0) {
      campaign_.fail("the agent has not ended as it should");
    } else {
      faults_.takeFolder();
      judgeLog(LoudLog::told(agent_.root().path()));
    }
    memory_.judge();
    if (broker_ && events_ == 0) {
      campaign_.fail("the MQTT module has taken no event");
    }
  }

  Campaign& campaign_;
  std::optional<MqttBroker> broker_;
  std::optional<test::Watcher> watcher_;
  bool isFrozen_ = false;
  test::EndpointProcess endpoint_;
  AgentProcess agent_{QOV_ENDURE_SOAK_AGENT};
  LogFaults faults_{campaign_, agent_.root().path()};
  bool diskWasFull_ = false;  ///< since the last look at the log
  LoudLog::Promise promise_;  ///< of what was not judged yet
  std::int64_t descriptors_ = 0;
  std::int64_t threads_ = 0;
  Figure& rests_ = campaign_.figure("rests");
  Figure& reloads_ = campaign_.figure("reloads");
  Figure& records_ = campaign_.figure("records");
  Figure& refused_ = campaign_.figure("refused");
  Figure& answers_ = campaign_.figure("status_answers");
  Figure& brokers_ = campaign_.figure("broker_restarts");
  Figure& events_ = campaign_.figure("events");
  Figure& turns_ = campaign_.figure("exchanges_and_saves");
  Flatness memory_{campaign_};
  Figure& descriptorsNow_ = campaign_.figure("descriptors");
  Figure& threadsNow_ = campaign_.figure("threads");
};

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign<qov::endure::SoakCampaign>(argc, argv);
}
