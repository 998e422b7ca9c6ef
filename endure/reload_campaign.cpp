// Agents whose threads log all the time, while SIGUSR1 comes again and again with other settings,
// and the log's files, folder, disk, standard error and time of day suffer what they may. Each
// record has to be there once, in its thread's order, or be counted as one that the disk refused.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>

#include "endure/campaign.h"
#include "endure/flatness.h"
#include "endure/handle.h"
#include "endure/log_faults.h"
#include "endure/loud_log.h"
#include "tests/process/agent_process.h"
#include "tests/support/counts.h"
#include "tests/support/spawn.h"

namespace qov::endure {
namespace {

namespace fs = std::filesystem;

/// The most files of the log where most are removed.
constexpr int kFewFiles = 3;
/// In kilobytes: how much more memory an agent may have at its end. It mostly has 150.
constexpr std::int64_t kMostMore = 512;

struct ReloadFigures {
  Campaign& campaign;
  Figure& agents = campaign.figure("agents");
  Figure& signals = campaign.figure("signals");
  Figure& reloads = campaign.figure("reloads");  ///< that the log tells of: at levels up to 3
  Figure& records = campaign.figure("records");
  Figure& files = campaign.figure("files");
  Figure& refused = campaign.figure("refused");
  Figure& away = campaign.figure("folder_away");
  Figure& readers = campaign.figure("readers_killed");
};

/// One agent from its start to its end.
class ReloadRun {
 public:
  explicit ReloadRun(ReloadFigures& figures);
  ~ReloadRun() {
    test::killChild(reader_);
    campaign_.keepIfLost(agent_.root().path());
  }
  ReloadRun(const ReloadRun&) = delete;
  ReloadRun& operator=(const ReloadRun&) = delete;

  void run();

 private:
  struct Settings {
    int terminal = 0;
    std::int64_t interval = 600;
    std::int64_t size = 10240;
    std::int64_t count = 1000;
    std::int64_t level = 2;
    int form = 0;
  };

  bool starts();
  void disturb();
  void applyRandomSettings();
  void calmDown();
  void ends();
  void look();
  std::ptrdiff_t descriptors() const;
  std::int64_t kilobytes() const;

  void apply(const Settings& settings);
  void moveFolder();
  void startReader();
  void killReader();
  fs::path path(const std::string& name) { return agent_.root().path() / name; }
  bool draws(int oneOf) { return campaign_.between(1, oneOf) == 1; }
  void fail(const std::string& what);

  Campaign& campaign_;
  ReloadFigures& figures_;
  LoudLog::Promise promise_;
  const bool hasDiskFaults_;
  const bool hasFolderFaults_;
  test::AgentProcess agent_;
  LogFaults faults_{campaign_, agent_.root().path()};
  pid_t pid_ = -1;                  ///< the agent's, as it says itself
  std::ptrdiff_t descriptors_ = 0;  ///< that it had when it had started
  std::int64_t kilobytes_ = 0;      ///< of memory that no file has, likewise
  pid_t reader_ = -1;
  int read_ = 0;
};

ReloadRun::ReloadRun(ReloadFigures& figures)
    : campaign_(figures.campaign),
      figures_(figures),
      promise_{{}, static_cast<int>(campaign_.between(2, 5)), !draws(5), false, false, false},
      hasDiskFaults_(promise_.keeps_all && !draws(3)),
      hasFolderFaults_(promise_.keeps_all && draws(2)) {
  promise_.has_terminal = promise_.keeps_all && draws(4);
  promise_.is_disturbed = hasDiskFaults_ || hasFolderFaults_;
  // Without a reader only that is counted what the file has refused.
  promise_.loses_errors = hasDiskFaults_ && !promise_.has_terminal && draws(2);
  if (draws(2)) {
    agent_.setEnvironment("QOV_ENDURE_CLOCK", "1");
  }
  agent_.setEnvironment("QOV_ENDURE_SEED", std::to_string(campaign_.random()()));
  agent_.setEnvironment("TZ", "UTC");
  agent_.root().addModule("qove_loud");
}

void ReloadRun::run() {
  if (starts()) {
    for (std::int64_t more = campaign_.between(50, 150); more > 0 && campaign_.goesOn(); --more) {
      disturb();
      applyRandomSettings();
      std::this_thread::sleep_for(std::chrono::microseconds(campaign_.between(0, 8000)));
    }
    calmDown();
    ends();
  }
  if (!campaign_.failed()) {
    look();
  }
}

bool ReloadRun::starts() {
  const std::string fifo = path("fifo");
  if (::mkfifo(fifo.c_str(), 0600) != 0) {
    fail("there is no pipe for standard error");
    return false;
  }
  const Handle held(::open(fifo.c_str(), O_RDWR | O_CLOEXEC));  // until the agent has it
  startReader();
  agent_.prepareChild([fifo] {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(::open(fifo.c_str(), O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    ::signal(SIGXFSZ, SIG_IGN);
  });
  agent_.root().writeConfig(2);
  agent_.start({"-n"});
  if (!agent_.waitForLog("Successed to init /") || !agent_.waitForFile("loud_pid")) {
    fail("the agent does not start: " + agent_.log());
    return false;
  }
  pid_ = static_cast<pid_t>(std::stol(test::readFile(path("loud_pid"))));
  descriptors_ = descriptors();
  kilobytes_ = kilobytes();
  return true;
}

void ReloadRun::disturb() {
  if (hasDiskFaults_ && draws(10)) {
    if (faults_.isDiskFull()) {
      faults_.freeDisk(pid_);
    } else {
      faults_.fillDisk(pid_, 0);
    }
  }
  if (hasFolderFaults_ && draws(10)) {
    moveFolder();
  }
  if (hasFolderFaults_ && !faults_.isFolderAway() && draws(20)) {
    faults_.moveFile(agent_.root().logFile());
  }
  if (promise_.loses_errors && draws(20)) {
    if (reader_ > 0) {
      killReader();
    } else {
      startReader();
    }
  }
}

void ReloadRun::applyRandomSettings() {
  Settings settings;
  settings.terminal = promise_.has_terminal && draws(4) ? 1 : 0;
  settings.interval = campaign_.between(0, 3);
  settings.size = draws(10) ? 0 : campaign_.between(1, 64);
  // One rotation for each signal, and some by the clock, are all kept.
  settings.count =
      promise_.keeps_all ? campaign_.between(500, 1000) : campaign_.between(1, kFewFiles);
  settings.level = campaign_.between(0, promise_.greatest_level);
  settings.form = static_cast<int>(campaign_.between(0, 7));
  apply(settings);
}

void ReloadRun::apply(const Settings& settings) {
  std::ostringstream text;
  text << "[QOV_GLOBAL]\nPROC_PID=7\n[LOG_CFG]\nSendTerminal=" << settings.terminal
       << "\nChkInterval=" << settings.interval << "\nLogFileMaxSize=" << settings.size
       << "\nLogFileMaxCnt=" << settings.count << "\nLogLevel=" << settings.level
       << "\nLogFold=" << (settings.form & 1) << "\nLogJson=" << (settings.form >> 1 & 1)
       << "\nLogEscape=" << (settings.form >> 2) << "\n";
  AgentRoot::write(agent_.root().cfgFile(), text.str());
  agent_.send(SIGUSR1);
  ++figures_.signals;
}

/// All is well again, and the log says so.
void ReloadRun::calmDown() {
  faults_.freeDisk(pid_);
  if (faults_.isFolderAway()) {
    moveFolder();
  }
  if (reader_ < 0) {
    startReader();
  }
  Settings last;
  last.interval = 7777;  // no other one has that
  last.count = promise_.keeps_all ? 1000 : kFewFiles;
  apply(last);
  if (!agent_.waitForLog("ChkInterval 7777 s")) {
    fail("the last settings are not applied: " + agent_.errors());
  }
  // A log that is opened anew has two for a moment.
  if (!test::waitUntil([this] { return descriptors() <= descriptors_; },
                       std::chrono::seconds(30))) {
    fail("the agent had " + std::to_string(descriptors_) + " descriptors and has " +
         std::to_string(descriptors()));
  }
  if (const std::int64_t more = kilobytes() - kilobytes_; memoryIsMeasured() && more > kMostMore) {
    fail("the agent has " + std::to_string(more) + " KiB more memory than at its start");
  }
}

void ReloadRun::ends() {
  agent_.send(SIGINT);
  const test::Ending ending = agent_.waitForEnd();
  if (ending.exitStatus != 0) {
    fail("the agent does not end in order: status " + std::to_string(ending.exitStatus) +
         ", signal " + std::to_string(ending.signal));
  }
  if (!test::waitForEndOf(reader_).ended) {
    fail("the reader of standard error does not end");
  }
}

void ReloadRun::look() {
  promise_.last = LoudLog::told(agent_.root().path());
  LoudLog log("endure_reload_agent");
  int files = 0;
  for (const auto& entry : fs::directory_iterator(agent_.root().path())) {
    const std::string name = entry.path().filename();
    if (name.compare(0, 7, "errors_") == 0) {
      log.addErrors(entry.path());
    } else if (name.compare(0, 3, "log") == 0) {
      files += log.addFolder(entry.path());
    }
  }
  if (!promise_.keeps_all && files > kFewFiles) {
    fail(std::to_string(files) + " files are left of the log");
  }
  ++figures_.agents;
  figures_.files += files;
  figures_.reloads += log.reloads();
  figures_.records += log.records();
  figures_.refused += log.refused();
  if (const std::string complaint = log.complaint(promise_); !complaint.empty()) {
    fail(complaint);
  }
}

std::ptrdiff_t ReloadRun::descriptors() const {
  return test::entriesOf("/proc/" + std::to_string(pid_) + "/fd");
}

std::int64_t ReloadRun::kilobytes() const {
  return test::numberBehind("RssAnon:",
                            test::readFile("/proc/" + std::to_string(pid_) + "/status"));
}

/// Away, or back.
void ReloadRun::moveFolder() {
  if (faults_.isFolderAway()) {
    faults_.bringFolder(draws(2));
  } else {
    faults_.takeFolder();
    ++figures_.away;
  }
}

/// The pipe has a writer meanwhile, or opening it would wait for one.
void ReloadRun::startReader() {
  const std::string fifo = path("fifo");
  const Handle held(::open(fifo.c_str(), O_RDWR | O_CLOEXEC));
  test::BeforeProgram before;
  before.readFrom(STDIN_FILENO, fifo);
  before.writeTo(STDOUT_FILENO, path("errors_" + std::to_string(++read_)));
  // Its own would outlive a campaign that crashes.
  before.writeTo(STDERR_FILENO, "/dev/null");
  reader_ = test::spawn("/bin/cat", {}, before);
}

void ReloadRun::killReader() {
  test::killChild(reader_);
  reader_ = -1;
  ++figures_.readers;
}

void ReloadRun::fail(const std::string& what) {
  std::ostringstream text;
  text << what << "; levels to " << promise_.greatest_level
       << (promise_.keeps_all ? "" : ", few files") << (hasDiskFaults_ ? ", disk" : "")
       << (hasFolderFaults_ ? ", folder" : "") << (promise_.has_terminal ? ", terminal" : "")
       << (promise_.loses_errors ? ", readers" : "");
  campaign_.fail(text.str());
}

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign(argc, argv, [](qov::endure::Campaign& campaign) {
    qov::endure::ReloadFigures figures{campaign};
    while (campaign.goesOn()) {
      qov::endure::ReloadRun(figures).run();
    }
  });
}
