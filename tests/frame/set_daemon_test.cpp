// This program puts its own functions in the place of those that change the process's identity, so
// that each step can be seen and made to fail, whoever runs the test. One test uses the real ones.
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <qovpub/qov_utility.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

#include "tests/support/child.h"

namespace {

struct Stage {
  bool real = true;
  bool daemonExists = true;
  std::string fails;  // the step that fails
  std::string log;
};
Stage stage;

template <class Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

int step(const char* name, const std::string& arguments) {
  stage.log += std::string(stage.log.empty() ? "" : " ") + name + "(" + arguments + ")";
  if (stage.fails == name) {
    errno = EPERM;
    return -1;
  }
  return 0;
}

struct passwd* daemonOfTheStage() {
  static struct passwd user {};
  user.pw_uid = 4001;
  user.pw_gid = 4002;
  return stage.daemonExists ? &user : nullptr;
}

}  // namespace

extern "C" {

pid_t setsid() noexcept {
  return stage.real ? next<pid_t (*)()>("setsid")() : static_cast<pid_t>(step("setsid", ""));
}

struct passwd* getpwnam(const char* name) {
  if (stage.real) {
    return next<struct passwd* (*)(const char*)>("getpwnam")(name);
  }
  step("getpwnam", name);
  return daemonOfTheStage();
}

int setgroups(size_t count, const gid_t* groups) noexcept {
  return stage.real ? next<int (*)(size_t, const gid_t*)>("setgroups")(count, groups)
                    : step("setgroups", std::to_string(count) + ": " + std::to_string(groups[0]));
}

int setgid(gid_t group) noexcept {
  return stage.real ? next<int (*)(gid_t)>("setgid")(group) : step("setgid", std::to_string(group));
}

int setuid(uid_t user) noexcept {
  return stage.real ? next<int (*)(uid_t)>("setuid")(user) : step("setuid", std::to_string(user));
}

}  // extern "C"

namespace {

// Statuses of children in which something went wrong.
constexpr int kCameBack = 2;
constexpr int kDestroyedInUse = 9;

class SetDaemon : public ::testing::Test {
 protected:
  SetDaemon() {
    stage = Stage();
    stage.real = false;
  }
  ~SetDaemon() override { stage = Stage(); }
};

struct Outcome {
  int status = -1;  // of waitpid
  std::string output;
  std::string error;
};

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 256> part{};
  for (ssize_t length = 0; (length = ::read(descriptor, part.data(), part.size())) > 0;) {
    text.append(part.data(), static_cast<std::size_t>(length));
  }
  ::close(descriptor);
  return text;
}

// Runs `body` in a child with pipes in the place of its standard output and standard error.
template <class Body>
Outcome runInChild(Body body) {
  std::cout.flush();
  std::fflush(nullptr);
  int output[2];
  int error[2];
  EXPECT_EQ(::pipe2(output, O_CLOEXEC), 0);
  EXPECT_EQ(::pipe2(error, O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(output[1], STDOUT_FILENO);
    ::dup2(error[1], STDERR_FILENO);
    body();
    ::_exit(kCameBack);
  }
  ::close(output[1]);
  ::close(error[1]);
  Outcome outcome;
  outcome.output = readAll(output[0]);
  outcome.error = readAll(error[0]);
  EXPECT_EQ(::waitpid(child, &outcome.status, 0), child);
  return outcome;
}

void expectEndWith(const std::string& line, const Outcome& outcome) {
  EXPECT_TRUE(WIFEXITED(outcome.status));
  EXPECT_EQ(WEXITSTATUS(outcome.status), 1);
  EXPECT_EQ(outcome.output, line);
  EXPECT_EQ(outcome.error, "");
}

void setDaemon() {
  QOV_Utility::setDaemon();
}

// A static object that a thread still works with, as the threads of modules do.
class UsedByAThread {
 public:
  ~UsedByAThread() {
    if (used_) {
      ::_exit(kDestroyedInUse);
    }
  }
  void use() {
    used_ = true;
    std::thread([this] {
      while (used_) {
        std::this_thread::yield();
      }
    }).detach();
  }

 private:
  std::atomic<bool> used_{false};
} usedByAThread;

}  // namespace

TEST_F(SetDaemon, GivesUpTheGroupsBeforeTheUser) {
  EXPECT_EQ(QOV_Utility::setDaemon(), 0);
  EXPECT_EQ(stage.log, "setsid() getpwnam(daemon) setgroups(1: 4002) setgid(4002) setuid(4001)");
}

TEST_F(SetDaemon, GoesOnWhenThereIsASessionAlready) {
  stage.fails = "setsid";
  EXPECT_EQ(QOV_Utility::setDaemon(), 0);
  EXPECT_NE(stage.log.find("setuid(4001)"), std::string::npos);
}

TEST_F(SetDaemon, EndsTheProcessWithoutAUserNamedDaemon) {
  stage.daemonExists = false;
  expectEndWith("enter exit\n", runInChild(setDaemon));
}

TEST_F(SetDaemon, EndsTheProcessWhenAStepIsRefused) {
  for (const char* name : {"setgroups", "setgid", "setuid"}) {
    SCOPED_TRACE(name);
    stage.fails = name;
    expectEndWith("enter setuid\n", runInChild(setDaemon));
  }
}

TEST_F(SetDaemon, WritesOutWhatStandardOutputStillHeldWhenItEndsTheProcess) {
  stage.daemonExists = false;
  expectEndWith("before\nenter exit\n", runInChild([] {
                  std::fputs("before\n", stdout);
                  setDaemon();
                }));
}

TEST_F(SetDaemon, EndsTheProcessWithoutDestroyingWhatThreadsStillUse) {
  stage.daemonExists = false;
  expectEndWith("enter exit\n", runInChild([] {
                  usedByAThread.use();
                  setDaemon();
                }));
}

TEST(SetDaemonForReal, LeavesAProcessOfTheUserDaemonAlone) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  const struct passwd* daemon = ::getpwnam("daemon");
  ASSERT_NE(daemon, nullptr);
  EXPECT_TRUE(qov::test::holdsInChild([daemon] {
    gid_t groups[8] = {};
    return QOV_Utility::setDaemon() == 0 && ::getsid(0) == ::getpid() &&
           ::getuid() == daemon->pw_uid && ::geteuid() == daemon->pw_uid &&
           ::getgid() == daemon->pw_gid && ::getegid() == daemon->pw_gid &&
           ::getgroups(8, groups) == 1 && groups[0] == daemon->pw_gid && ::setuid(0) == -1;
  }));
}

TEST(SetDaemonForReal, EndsAProcessThatMayNotBecomeDaemon) {
  expectEndWith("enter setuid\n", runInChild([] {
                  if (::geteuid() != 0 || ::setuid(65534) == 0) {
                    setDaemon();
                  }
                }));
}
