#include "frame/app/start_watcher.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <utility>

#include "tests/support/process_end.h"

namespace {

using qov::StartOutcome;

/// What happens when this process is about to look for a child that has ended; null when nothing
/// does.
std::function<void()> beforeTheLook;

void aboutToLook() {
  if (beforeTheLook) {
    std::exchange(beforeTheLook, nullptr)();
  }
}

}  // namespace

// In place of the system's, for the libraries, too.

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
  aboutToLook();
  return static_cast<pid_t>(::syscall(SYS_wait4, pid, status, options, nullptr));
}

extern "C" int waitid(idtype_t type, id_t id, siginfo_t* info, int options) {
  aboutToLook();
  return static_cast<int>(::syscall(SYS_waitid, type, id, info, options, nullptr));
}

namespace {

/// A daemon with a process that watches its start. What that leaves behind comes to the test.
class StartWatcherTest : public ::testing::Test {
 protected:
  StartWatcherTest() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }
  ~StartWatcherTest() override {
    qov::test::killChild(watcher_);
    qov::test::killChild(page_->daemon);
  }

  /// `meanwhile` happens in the watcher.
  void startsADaemon(std::function<void()> meanwhile) {
    const pid_t test = ::getpid();
    watcher_ = ::fork();
    if (watcher_ != 0) {
      return;
    }
    beforeTheLook = std::move(meanwhile);
    qov::StartWatcher(*page_, std::chrono::minutes(1)).run(test);
    page_->daemon = ::getpid();
    for (;;) {
      ::pause();
    }
  }

  void runsAndIsKilled() {
    qov::test::waitUntil([this] { return page_->daemon != 0; });
    page_->settle(StartOutcome::kStarted);
    ::kill(page_->daemon, SIGKILL);
    qov::test::waitUntil([this] {
      siginfo_t end{};
      ::syscall(SYS_waitid, P_PID, page_->daemon.load(), &end, WEXITED | WNOHANG | WNOWAIT,
                nullptr);
      return end.si_pid != 0;
    });
  }

  pid_t watcher_ = -1;
  const qov::StartPagePtr page_ = qov::makeStartPage();
};

TEST_F(StartWatcherTest, LeavesADaemonThatRanToWhoeverCollectsOrphans) {
  startsADaemon([this] { runsAndIsKilled(); });
  EXPECT_EQ(qov::test::waitForEndOf(watcher_).exitStatus, 0);
  pid_t daemon = page_->daemon;
  EXPECT_EQ(qov::test::waitForEndOf(daemon).signal, SIGKILL);
}

}  // namespace
