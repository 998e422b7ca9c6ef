// Processes that save one configuration file while others read it. Savers are killed at any moment,
// the disk gets full, the directory is not writable, and strangers lock the file. Each file that is
// read has to be whole and one of those written, and a killed saver leaves one file at most.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sched.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "endure/campaign.h"
#include "endure/handle.h"
#include "endure/ini_round.h"
#include "tests/support/files.h"
#include "tests/support/process_end.h"

namespace qov::endure {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

/// A user that no system has.
constexpr uid_t kStranger = 4001;
constexpr std::size_t kSmallDisk = 256U << 10;
constexpr const char* kHog = "hog";

/// A file system of few bytes, for this process and its children alone. Only root can have one.
class SmallDisk {
 public:
  SmallDisk(const fs::path& folder, Campaign& campaign) : folder_(folder) {
    fs::create_directory(folder);
    const std::string size = "mode=0755,size=" + std::to_string(kSmallDisk);
    isThere_ = ::unshare(CLONE_NEWNS) == 0 &&
               ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               ::mount("none", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
    if (!isThere_) {
      campaign.notWatched(std::string("a full disk: ") + std::strerror(errno));
    }
  }
  ~SmallDisk() {
    if (isThere_) {
      ::umount2(folder_.c_str(), MNT_DETACH);
    }
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool isThere() const { return isThere_; }

 private:
  const fs::path folder_;
  bool isThere_ = false;
};

class IniCampaign {
 public:
  explicit IniCampaign(Campaign& campaign);
  ~IniCampaign() { campaign_.keepIfLost(directory_.path()); }
  IniCampaign(const IniCampaign&) = delete;
  IniCampaign& operator=(const IniCampaign&) = delete;

  void run();

 private:
  void runRound();
  IniRound drawRound();
  void disturb(const IniRound& round);
  void killOne(const IniRound& round, pid_t& saver);
  void lockFile(const IniRound& round, milliseconds time) const;
  void fillDisk();
  void replaceDead(const IniRound& round);
  void endAll(const IniRound& round);
  void noteEnd(const IniRound& round, int status);
  void countWhatIsLeft(const IniRound& round);
  void setWritable(const fs::path& folder, bool writable) const;
  pid_t fork(const std::function<void()>& work) const;
  bool draws(int oneOf) { return campaign_.between(1, oneOf) == 1; }

  Campaign& campaign_;
  Figure& rounds_ = campaign_.figure("rounds");
  Figure& saves_ = campaign_.figure("saves");
  Figure& refused_ = campaign_.figure("refused");
  Figure& reads_ = campaign_.figure("reads");
  Figure& kills_ = campaign_.figure("kills");
  Figure& left_ = campaign_.figure("left_by_killed");
  const test::TemporaryDirectory directory_;
  const fs::path disk_ = directory_.path() / "disk";
  const fs::path small_ = directory_.path() / "small";
  const SmallDisk smallDisk_;
  IniShared* shared_ = nullptr;
  std::vector<pid_t> savers_ = std::vector<pid_t>(kSavers, -1);
  std::vector<pid_t> readers_ = std::vector<pid_t>(kReaders, -1);
  int killed_ = 0;  ///< in this round
};

IniCampaign::IniCampaign(Campaign& campaign) : campaign_(campaign), smallDisk_(small_, campaign) {
  fs::permissions(directory_.path(), fs::perms(0755));
  fs::create_directory(disk_);
  void* const memory =
      ::mmap(nullptr, sizeof(IniShared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  shared_ = static_cast<IniShared*>(memory);
}

void IniCampaign::run() {
  while (campaign_.goesOn()) {
    runRound();
  }
}

void IniCampaign::runRound() {
  ++rounds_;
  new (shared_) IniShared;
  const IniRound round = drawRound();
  const fs::path folder = fs::path(round.file).parent_path();
  killed_ = 0;
  IniRound calm = round;
  calm.isWrittenOver = false;
  if (beginIniFile(calm, *shared_)) {
    if (round.saver != 0) {
      [[maybe_unused]] const int given = ::chown(round.file.c_str(), round.saver, round.saver);
    }
    setWritable(folder, !round.isWrittenOver);
    replaceDead(round);
    disturb(round);
    endAll(round);
    setWritable(folder, true);
    readIniFiles(round, *shared_);
  }
  countWhatIsLeft(round);
  saves_ += shared_->saves;
  refused_ += shared_->refused;
  reads_ += shared_->reads;
  if (shared_->failed) {
    test::waitUntil([this] { return shared_->told.load(); });
    campaign_.fail(std::string(shared_->why.data()) + "; limit " + std::to_string(round.limit) +
                   (round.isWrittenOver ? ", written over" : ", replaced") +
                   (round.diskIsSmall ? ", small disk" : "") + ", " + std::to_string(killed_) +
                   " killed");
  }
}

IniRound IniCampaign::drawRound() {
  IniRound round;
  round.diskIsSmall = smallDisk_.isThere() && draws(4);
  round.file = ((round.diskIsSmall ? small_ : disk_) / "agent.cfg").string();
  round.isWrittenOver = draws(4);
  round.saver = round.isWrittenOver && ::geteuid() == 0 ? kStranger : 0;
  round.limit = draws(3) ? static_cast<std::size_t>(campaign_.between(5000, 40000)) : 0;
  // A saver that dies while it writes over the file leaves parts of two.
  round.limitKills = round.limit != 0 && !round.isWrittenOver && draws(2);
  return round;
}

/// For about a second.
void IniCampaign::disturb(const IniRound& round) {
  constexpr int kMostKilled = 20;
  if (round.isWrittenOver && draws(50)) {
    // Longer than a save waits.
    lockFile(round, milliseconds(6000));
  }
  for (std::int64_t more = campaign_.between(10, 40); more > 0 && !shared_->failed; --more) {
    std::this_thread::sleep_for(std::chrono::microseconds(campaign_.between(0, 40000)));
    if (draws(4)) {
      lockFile(round, milliseconds(campaign_.between(0, 30)));
    }
    if (round.diskIsSmall) {
      fillDisk();
    }
    pid_t& saver = savers_[static_cast<std::size_t>(campaign_.between(0, kSavers - 1))];
    if (!round.isWrittenOver && draws(2) && killed_ < kMostKilled && saver > 0) {
      killOne(round, saver);
    }
    replaceDead(round);
  }
}

void IniCampaign::killOne(const IniRound& round, pid_t& saver) {
  int status = 0;
  ::kill(saver, SIGKILL);
  ::waitpid(saver, &status, 0);
  saver = -1;
  noteEnd(round, status);
}

void IniCampaign::noteEnd(const IniRound& round, int status) {
  const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  if (signal == SIGKILL || (signal == SIGXFSZ && round.limitKills)) {
    ++killed_;
    ++kills_;
  } else if (status != 0) {
    shared_->fail("a process has ended with status " + std::to_string(status));
  }
}

void IniCampaign::lockFile(const IniRound& round, milliseconds time) const {
  const Handle handle(::open(round.file.c_str(), O_RDONLY | O_CLOEXEC));
  if (::flock(handle.get(), LOCK_EX) == 0) {
    std::this_thread::sleep_for(time);
  }
}

/// Leaves the small disk any amount of room.
void IniCampaign::fillDisk() {
  std::ofstream(small_ / kHog) << std::string(
      static_cast<std::size_t>(campaign_.between(0, kSmallDisk)), 'x');
}

/// Collects processes that have ended before the round has, and starts others in their place.
void IniCampaign::replaceDead(const IniRound& round) {
  for (std::size_t i = 0; i < savers_.size(); ++i) {
    int status = 0;
    if (savers_[i] > 0 && ::waitpid(savers_[i], &status, WNOHANG) == savers_[i]) {
      savers_[i] = -1;
      noteEnd(round, status);
    }
    if (savers_[i] < 0 && !shared_->failed) {
      savers_[i] = fork([&] { saveIniFiles(round, i, *shared_); });
    }
  }
  for (pid_t& reader : readers_) {
    if (reader < 0) {
      reader = fork([&] { readIniFiles(round, *shared_); });
    }
  }
}

void IniCampaign::endAll(const IniRound& round) {
  shared_->stop = true;
  for (std::vector<pid_t>* const processes : {&savers_, &readers_}) {
    for (pid_t& process : *processes) {
      int status = 0;
      if (process > 0 &&
          !test::waitUntil([&] { return ::waitpid(process, &status, WNOHANG) == process; })) {
        shared_->fail("a process hangs");
        test::killChild(process);
      }
      process = -1;
      noteEnd(round, status);
    }
  }
}

/// Whoever was not killed cleans up behind itself.
void IniCampaign::countWhatIsLeft(const IniRound& round) {
  const fs::path file = round.file;
  std::vector<fs::path> others;
  for (const auto& entry : fs::directory_iterator(file.parent_path())) {
    if (entry.path() != file && entry.path().filename() != kHog) {
      others.push_back(entry.path());
    }
  }
  if (static_cast<int>(others.size()) > killed_) {
    shared_->fail(std::to_string(others.size()) + " files are left");
  }
  left_ += static_cast<std::int64_t>(others.size());
  if (!shared_->failed) {
    std::for_each(others.begin(), others.end(), [](const fs::path& other) { fs::remove(other); });
    fs::remove(file);
    fs::remove(file.parent_path() / kHog);
  }
}

/// Not for root, for whom it always is.
void IniCampaign::setWritable(const fs::path& folder, bool writable) const {
  fs::permissions(folder, fs::perms(writable ? 0755 : 0555));
}

/// Memory that is left shows where the child ends as any process does.
pid_t IniCampaign::fork(const std::function<void()>& work) const {
  const pid_t child = ::fork();
  if (child < 0) {
    throw std::runtime_error("cannot fork");
  }
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      work();
    } catch (const std::exception& error) {
      shared_->fail(error.what());
    }
    std::exit(0);
  }
  return child;
}

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign(argc, argv, [](qov::endure::Campaign& campaign) {
    // Savers of another user have to get there, which a folder below a home may refuse them.
    ::unsetenv("TMPDIR");
    qov::endure::IniCampaign(campaign).run();
  });
}
