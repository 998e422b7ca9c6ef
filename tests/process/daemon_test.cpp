#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "tests/process/agent_process.h"
#include "tests/support/sanitizers.h"

using ::testing::HasSubstr;

namespace qov::test {
namespace {

constexpr const char* kStarted = "Successed to init /";
constexpr const char* kStopped = " had shutdown.";

class AgentDaemon : public ::testing::Test {
 protected:
  void starts(const std::vector<std::string>& modules) {
    agent.useModules(modules);
    agent.useModules({"state"});
    agent.start({});
    EXPECT_EQ(agent.waitForEnd().exitStatus, 0) << agent.errors();
    ASSERT_TRUE(agent.waitForLog(kStarted)) << agent.log() << agent.errors();
    ASSERT_TRUE(agent.findDaemon());
  }

  void stopsInOrder() {
    agent.send(SIGINT);
    const Ending ending = agent.waitForDaemonEnd();
    EXPECT_TRUE(ending.ended);
    EXPECT_EQ(ending.signal, 0);
    EXPECT_EQ(ending.exitStatus, 0);
    EXPECT_THAT(agent.log(), HasSubstr(kStopped));
  }

  AgentProcess agent;
};

TEST_F(AgentDaemon, LeavesSessionDirectoryAndTerminalOfItsStarter) {
  starts({"chatter"});
  EXPECT_NE(agent.state("session"), std::to_string(::getsid(0)));
  EXPECT_NE(agent.state("session"), agent.state("pid"));
  EXPECT_EQ(agent.state("directory"), agent.root().path().string());
  EXPECT_EQ(agent.state("stdout"), "/dev/null");
  stopsInOrder();
}

TEST_F(AgentDaemon, TakesSignalsLikeAForegroundProcess) {
  agent.root().writeConfig(2);
  starts({"chatter"});
  agent.root().writeConfig(1);
  agent.send(SIGUSR1);
  EXPECT_TRUE(agent.waitForLog("chatter handles"));
  stopsInOrder();
}

TEST_F(AgentDaemon, KeepsTheFileModeMaskOfItsStarter) {
  agent.prepareChild([] { ::umask(027); });
  starts({});
  EXPECT_EQ(agent.state("umask"), std::to_string(027));
  struct stat log {};
  ASSERT_EQ(::stat(agent.root().logFile().c_str(), &log), 0);
  EXPECT_EQ(log.st_mode & S_IWOTH, 0u);
  stopsInOrder();
}

/// Raises the limit of open descriptors of the child to what is allowed.
void raiseLimit() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(AgentDaemon, ClosesNoBillionOfDescriptorsWhereThatIsTheLimit) {
#if QOV_TEST_TSAN
  GTEST_SKIP() << "ThreadSanitizer does not bear that the agent counts its calls of close()";
#endif
  constexpr rlim_t kTelling = 8000;
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_max < kTelling) {
    GTEST_SKIP() << "the limit here is so low that closing up to it would be no fault";
  }
  agent.prepareChild(raiseLimit);
  starts({});
  EXPECT_LT(std::stoul(agent.state("closes")), kTelling);
  EXPECT_EQ(agent.state("limit"), std::to_string(limit.rlim_max));
  stopsInOrder();
}

TEST_F(AgentDaemon, ClosesDescriptorsWhateverTheirNumber) {
  const std::string file = agent.root().path() / "qov_left_open";
  agent.prepareChild([file] {
    raiseLimit();
    const int opened = ::open(file.c_str(), O_WRONLY | O_CREAT, 0600);
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    ::dup2(opened, 100);
    ::dup2(opened, static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 100000)) - 1);
  });
  starts({});
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(agent.state("hidden_descriptors"), "0");
  stopsInOrder();
}

TEST_F(AgentDaemon, WritesWhatWasBufferedOnlyOnce) {
  agent.setEnvironment("QOV_TEST_GREETING", "hello");
  starts({});
  EXPECT_EQ(agent.output(), "hello");
  stopsInOrder();
}

TEST_F(AgentDaemon, WithoutAConfigurationTellsItsStarter) {
  std::filesystem::remove(agent.root().cfgFile());
  agent.start({});
  EXPECT_EQ(agent.waitForEnd().exitStatus, 1);
  EXPECT_EQ(agent.errors(), "CQOV_Exception: can't open proc config file\n");
}

}  // namespace
}  // namespace qov::test
