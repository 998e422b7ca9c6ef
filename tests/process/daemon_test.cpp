#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/process/agent_test.h"
#include "tests/support/sanitizers.h"

namespace qov::test {
namespace {

class AgentDaemon : public AgentTest {
 protected:
  /// Starts it in the background.
  void startsADaemon(const std::vector<std::string>& modules) {
    agent.useModules({"state"});
    starts(modules, {});
    EXPECT_EQ(agent.waitForEnd().exitStatus, 0) << agent.errors();
    ASSERT_TRUE(agent.findDaemon());
  }

  void daemonStopsInOrder() {
    agent.send(SIGINT);
    hasEndedInOrder(agent.waitForDaemonEnd());
  }
};

TEST_F(AgentDaemon, LeavesSessionDirectoryAndTerminalOfItsStarter) {
  startsADaemon({"chatter"});
  EXPECT_NE(agent.state("session"), std::to_string(::getsid(0)));
  EXPECT_NE(agent.state("session"), agent.state("pid"));
  EXPECT_EQ(agent.state("directory"), agent.root().path().string());
  EXPECT_EQ(agent.state("stdout"), "/dev/null");
  daemonStopsInOrder();
}

TEST_F(AgentDaemon, TakesSignalsLikeAForegroundProcess) {
  agent.root().writeConfig(2);
  startsADaemon({"chatter"});
  EXPECT_TRUE(appliesTheDebugLevel());
  daemonStopsInOrder();
}

TEST_F(AgentDaemon, HasAProcessReactorThatCanBeNotified) {
  agent.useModules({"reactor_user"});
  startsADaemon({});
  EXPECT_TRUE(agent.waitForFile("called"));
  daemonStopsInOrder();
}

TEST_F(AgentDaemon, SurvivesAHangUp) {
  startsADaemon({"chatter"});
  agent.send(SIGHUP);
  daemonStopsInOrder();
}

TEST_F(AgentDaemon, GoesOnWhenTheStarterThatWaitsForItIsHungUp) {
  agent.setEnvironment("QOV_TEST_WAIT", "1");
  agent.useModules({"state"});
  agent.start({});
  ASSERT_TRUE(agent.waitForFile("state"));
  agent.send(SIGHUP);
  EXPECT_EQ(agent.waitForEnd().signal, SIGHUP);
  ASSERT_TRUE(agent.findDaemon());
  agent.makeFile("go");
  ASSERT_TRUE(agent.waitForLog(kStarted));
  daemonStopsInOrder();
}

TEST_F(AgentDaemon, KeepsTheFileModeMaskOfItsStarter) {
  agent.prepareChild([] { ::umask(027); });
  startsADaemon({});
  EXPECT_EQ(agent.state("umask"), std::to_string(027));
  struct stat log {};
  ASSERT_EQ(::stat(agent.root().logFile().c_str(), &log), 0);
  EXPECT_EQ(log.st_mode & S_IWOTH, 0u);
  daemonStopsInOrder();
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
  startsADaemon({});
  EXPECT_LT(std::stoul(agent.state("closes")), kTelling);
  EXPECT_EQ(agent.state("limit"), std::to_string(limit.rlim_max));
  daemonStopsInOrder();
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
  startsADaemon({});
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(agent.state("hidden_descriptors"), "0");
  daemonStopsInOrder();
}

TEST_F(AgentDaemon, WritesWhatWasBufferedOnlyOnce) {
  agent.setEnvironment("QOV_TEST_GREETING", "hello");
  startsADaemon({});
  EXPECT_EQ(agent.output(), "hello");
  daemonStopsInOrder();
}

TEST_F(AgentDaemon, WritesWhatAStreamOfItsOwnBufferHeldOnlyOnce) {
  agent.setEnvironment("QOV_TEST_GREETING", "hello");
  agent.setEnvironment("QOV_TEST_OWN_BUFFER", "1");
  startsADaemon({});
  EXPECT_EQ(agent.output(), "hello");
  daemonStopsInOrder();
}

}  // namespace
}  // namespace qov::test
