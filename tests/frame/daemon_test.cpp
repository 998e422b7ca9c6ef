// This program puts its own functions in the place of those that change the process's identity, so
// that each step can be seen and made to fail, whoever runs the test. One test uses the real ones.
#include <dlfcn.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <qovpub/qov_utility.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

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

class SetDaemon : public ::testing::Test {
 protected:
  SetDaemon() {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    stage = Stage();
    stage.real = false;
  }
  ~SetDaemon() override { stage = Stage(); }

  // For a death test, which sees standard error only.
  static void run() {
    std::cout.rdbuf(std::cerr.rdbuf());
    std::exit(QOV_Utility::setDaemon() == 0 ? 0 : 2);
  }
};

using SetDaemonDeathTest = SetDaemon;

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

TEST_F(SetDaemonDeathTest, EndsTheProcessWithoutAUserNamedDaemon) {
  stage.daemonExists = false;
  EXPECT_EXIT(run(), ::testing::ExitedWithCode(1), "^enter exit\n$");
}

TEST_F(SetDaemonDeathTest, EndsTheProcessWhenAStepIsRefused) {
  for (const char* name : {"setgroups", "setgid", "setuid"}) {
    stage.fails = name;
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(1), "^enter setuid\n$") << name;
  }
}

TEST(SetDaemonForReal, LeavesAProcessOfTheUserDaemonAlone) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  const struct passwd* daemon = ::getpwnam("daemon");
  ASSERT_NE(daemon, nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    gid_t groups[8] = {};
    const bool expected = QOV_Utility::setDaemon() == 0 && ::getsid(0) == ::getpid() &&
                          ::getuid() == daemon->pw_uid && ::geteuid() == daemon->pw_uid &&
                          ::getgid() == daemon->pw_gid && ::getegid() == daemon->pw_gid &&
                          ::getgroups(8, groups) == 1 && groups[0] == daemon->pw_gid &&
                          ::setuid(0) == -1;
    ::_exit(expected ? 0 : 3);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(SetDaemonForRealDeathTest, EndsAProcessThatMayNotBecomeDaemon) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        std::cout.rdbuf(std::cerr.rdbuf());
        if (::geteuid() != 0 || ::setuid(65534) == 0) {
          QOV_Utility::setDaemon();
        }
      },
      ::testing::ExitedWithCode(1), "^enter setuid\n$");
}
