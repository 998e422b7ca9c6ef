#include "frame/app/app_daemon.h"

#include <ace/ACE.h>
#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <vector>

#include "frame/app/start_watcher.h"
#include "frame/env/failure.h"

namespace qov {
namespace {

/// ACE closes every number up to the limit of open files, which takes minutes where that is a
/// billion. It gets this limit; descriptors above it are looked up.
constexpr rlim_t kDescriptorLimit = 4096;

class DescriptorLimit {
 public:
  DescriptorLimit() : known_(::getrlimit(RLIMIT_NOFILE, &former_) == 0) {
    if (known_) {
      rlimit lowered = former_;
      lowered.rlim_cur = std::min(lowered.rlim_cur, kDescriptorLimit);
      ::setrlimit(RLIMIT_NOFILE, &lowered);
    }
  }
  ~DescriptorLimit() {
    if (known_) {
      ::setrlimit(RLIMIT_NOFILE, &former_);
    }
  }

  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit former_{};
  bool known_;
};

class FileModeMask {
 public:
  FileModeMask() : former_(::umask(077)) { ::umask(former_); }
  ~FileModeMask() { ::umask(former_); }

  FileModeMask(const FileModeMask&) = delete;
  FileModeMask& operator=(const FileModeMask&) = delete;

 private:
  mode_t former_;
};

struct CloseDir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

void closeDescriptorsFrom(int first) {
  std::vector<int> open;
  {
    const std::unique_ptr<DIR, CloseDir> dir(::opendir("/proc/self/fd"));
    while (const dirent* const entry = dir == nullptr ? nullptr : ::readdir(dir.get())) {
      open.push_back(std::atoi(entry->d_name));
    }
  }
  for (const int descriptor : open) {
    if (descriptor >= first) {
      ::close(descriptor);
    }
  }
}

/// False when ACE cannot fork; its second fork ends the process then, which the watcher sees.
bool splitOff(const std::string& directory) {
  const FileModeMask mask;
  int result = 0;
  {
    const DescriptorLimit limit;
    result = ACE::daemonize(directory.c_str(), true, "<unknown>");
  }
  if (result != 0) {
    return false;
  }
  closeDescriptorsFrom(static_cast<int>(kDescriptorLimit));
  return true;
}

/// For the signal handler.
StartPage* waitedFor = nullptr;

/// The daemon does the same the other way round: one of both sees what the other has written.
void passOn(int signum) {
  const int formerErrno = errno;
  waitedFor->signalToPass = signum;
  const pid_t daemon = waitedFor->daemon;
  if (daemon > 0 && waitedFor->signalToPass.exchange(0) != 0) {
    ::kill(daemon, signum);
  }
  errno = formerErrno;
}

/// Passes SIGINT and SIGTERM on to the daemon, unless the starter ignores them.
class PassedSignals {
 public:
  explicit PassedSignals(StartPage& page) {
    waitedFor = &page;
    sigset_t passed;
    sigemptyset(&passed);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      struct sigaction action {};
      action.sa_handler = &passOn;
      ::sigaction(kSignals[i], nullptr, &former_[i]);
      if (former_[i].sa_handler != SIG_IGN) {
        ::sigaction(kSignals[i], &action, nullptr);
        sigaddset(&passed, kSignals[i]);
      }
    }
    ::pthread_sigmask(SIG_UNBLOCK, &passed, &formerMask_);
  }
  ~PassedSignals() {
    ::pthread_sigmask(SIG_SETMASK, &formerMask_, nullptr);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      ::sigaction(kSignals[i], &former_[i], nullptr);
    }
  }
  PassedSignals(const PassedSignals&) = delete;
  PassedSignals& operator=(const PassedSignals&) = delete;

 private:
  static constexpr std::array<int, 2> kSignals = {SIGINT, SIGTERM};

  std::array<struct sigaction, kSignals.size()> former_{};
  sigset_t formerMask_;
};

/// Nobody watches the daemon any more, so it is not left running either.
void giveUp(StartPage& page) {
  page.verdict.add(textOf(
      {"learn whether the daemon runs", {}, 0, {}, "the process that watches it has ended"}));
  const pid_t daemon = page.daemon;
  if (daemon > 0) {
    ::kill(daemon, SIGTERM);
  }
}

/// Sends itself the signal that the starter could pass on to nobody.
void takeStopSignal(StartPage& page) {
  if (const int signum = page.signalToPass.exchange(0)) {
    ::kill(::getpid(), signum);
  }
}

/// The starter's part. Returns when the system could not fork.
void waitForOutcome(StartPage& page, pid_t watcher) {
  const PassedSignals passed(page);
  // No status comes where the program ignores SIGCHLD, so nothing is read from it.
  while (::waitpid(watcher, nullptr, 0) < 0 && errno == EINTR) {
  }
  const bool nobodyWatches = page.settle(StartOutcome::kFailed);
  if (page.outcome == StartOutcome::kNotForked) {
    return;
  }
  if (nobodyWatches) {
    giveUp(page);
  }
  std::cerr << page.complaints.text() << page.verdict.text() << std::flush;
  if (const std::string verdict = page.verdict.text(); !verdict.empty()) {
    tellSystemLog(verdict);
  }
  std::exit(page.outcome == StartOutcome::kStarted ? EXIT_SUCCESS : EXIT_FAILURE);
}

}  // namespace

StartPagePtr becomeDaemon(const std::string& directory, std::chrono::milliseconds limit) {
  // The processes that exit would write what is buffered once more each.
  std::cout.flush();
  std::clog.flush();
  std::fflush(nullptr);
  StartPagePtr page = makeStartPage();
  if (page == nullptr) {
    return nullptr;
  }
  const pid_t starter = ::getpid();
  const pid_t watcher = ::fork();
  if (watcher < 0) {
    return nullptr;
  }
  if (watcher > 0) {
    waitForOutcome(*page, watcher);
    takeStopSignal(*page);
    errno = EAGAIN;
    return nullptr;
  }
  StartWatcher(*page, limit).run(starter);
  if (!splitOff(directory)) {
    page->settle(StartOutcome::kNotForked);
    ::_exit(EXIT_FAILURE);
  }
  page->daemon = ::getpid();
  if (page->outcome != StartOutcome::kOpen) {
    ::_exit(EXIT_FAILURE);  // the watcher gave up before it could know whom to end
  }
  takeStopSignal(*page);
  return page;
}

void tellSystemLog(std::string_view line) {
  ::syslog(LOG_DAEMON | LOG_ERR, "%.*s", static_cast<int>(line.size()), line.data());
  // Closing all descriptors would leave the C library with a number that is another's later.
  ::closelog();
}

}  // namespace qov
