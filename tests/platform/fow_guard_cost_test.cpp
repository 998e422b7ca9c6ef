#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <qovplatform/platform_guard.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>

#include "tests/platform/guard_threads.h"
#include "tests/support/child.h"
#include "tests/support/sanitizers.h"

// A sanitizer's runtime makes system calls of its own at any time.
#if !QOV_TEST_ASAN && !QOV_TEST_TSAN

namespace {

constexpr int kNoFilter = 77;

// From now on any system call but those of leaving ends the process with SIGSYS. Reading the clock
// is none where the kernel maps it, and not the guard's fault where it does not.
bool forbidSystemCalls() {
  std::array<sock_filter, 6> program = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clock_gettime, 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 2, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Runs `body` in a child whose calling thread may make no system call; how the child ended.
template <class Body>
int runWithoutSystemCalls(Body body) {
  return qov::test::endOfChild([&body] {
    ::alarm(60);                             // ends a child that hangs
    { const FowGuard first(201, 0, 3600); }  // starts the watching thread
    qov::test::waitUntilTheWatchSleeps();    // waking it is a system call, too
    if (!forbidSystemCalls()) {
      ::_exit(kNoFilter);
    }
    body();
    return true;
  });
}

}  // namespace

TEST(FowGuardCost, IsNoSystemCallWhenNothingIsOverdue) {
  const int status = runWithoutSystemCalls([] {
    for (int i = 0; i < 10'000; ++i) {
      const FowGuard outer(0, 1, 3'600'000);
      const FowGuard inner(5, 1, 3600);
    }
  });
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFilter) {
    GTEST_SKIP() << "this system does not let a process filter its system calls";
  }
  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
}

TEST(FowGuardCost, TheFilterOfThisTestNoticesASystemCall) {
  const int status = runWithoutSystemCalls([] { ::syscall(SYS_getppid); });
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFilter) {
    GTEST_SKIP() << "this system does not let a process filter its system calls";
  }
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGSYS);
}

#endif
