#include "frame/app_daemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace {

/// Becomes a daemon in a child and returns the exit status of the daemon, which this process
/// collects: `check` decides it.
template <class Check>
int statusOfDaemon(Check check) {
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t child = ::fork();
  if (child == 0) {
    const pid_t starter = ::getpid();
    qov::becomeDaemon("/");
    ::_exit(::getpid() != starter && check() ? 42 : 1);
  }
  int status = 0;
  int daemonStatus = -1;
  for (pid_t ended = ::wait(&status); ended > 0; ended = ::wait(&status)) {
    // The two processes that make way exit with 0.
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
      daemonStatus = WEXITSTATUS(status);
    }
  }
  return daemonStatus;
}

TEST(AppDaemon, HasNothingOpenButItsStandardDescriptors) {
  EXPECT_EQ(statusOfDaemon([] {
              // The next free number is the first that is not open.
              return ::open("/dev/null", O_RDONLY) == 3 && ::fcntl(2, F_GETFD) == 0;
            }),
            42);
}

TEST(AppDaemon, KeepsTheFileModeMask) {
  const mode_t former = ::umask(026);
  EXPECT_EQ(statusOfDaemon([] { return ::umask(0) == 026; }), 42);
  ::umask(former);
}

TEST(AppDaemon, WorksInTheDirectory) {
  EXPECT_EQ(statusOfDaemon([] {
              char directory[4096] = {};
              return ::getcwd(directory, sizeof directory) != nullptr &&
                     std::string(directory) == "/";
            }),
            42);
}

}  // namespace
