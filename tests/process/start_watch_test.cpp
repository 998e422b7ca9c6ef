#include <sys/stat.h>

#include "tests/process/agent_test.h"
#include "tests/support/files.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

namespace qov::test {
namespace {

/// Agents whose only module initialises for ever.
class AgentHangingStart : public AgentTest, public ::testing::WithParamInterface<int> {
 protected:
  void hangsInItsStart(const std::vector<std::string>& arguments) {
    agent.setEnvironment("QOV_TEST_WAIT", "1");
    agent.useModules({"state"});
    agent.start(arguments);
    ASSERT_TRUE(agent.waitForFile("state"));
  }

  void isEndedBy(const Ending& ending, int signum) {
    EXPECT_TRUE(ending.ended) << "hangs";
    EXPECT_EQ(ending.signal, signum) << ending.exitStatus << agent.errors();
  }

  /// Its starter ends when no process of it is left.
  void daemonIsEnded() {
    const Ending ending = agent.waitForEnd();
    EXPECT_TRUE(ending.ended) << "hangs";
    EXPECT_EQ(ending.exitStatus, 1) << ending.signal << agent.errors();
    EXPECT_THAT(agent.errors(), HasSubstr("Failed to start the daemon: ended by signal "));
    EXPECT_THAT(agent.log(), HasSubstr(reasonFor(GetParam())));
    EXPECT_FALSE(agent.daemonIsThere());
  }

  static std::string reasonFor(int signum) {
    return std::string("Failed to stop in order at ") + (signum == SIGINT ? "SIGINT" : "SIGTERM") +
           ": loading module qovp_state has not ended";
  }
};

std::string nameOf(const ::testing::TestParamInfo<int>& info) {
  return info.param == SIGINT ? "Sigint" : "Sigterm";
}

INSTANTIATE_TEST_SUITE_P(Both, AgentHangingStart, ::testing::Values(SIGINT, SIGTERM), nameOf);

TEST_P(AgentHangingStart, IsEndedByAStopSignalAndNamesTheModule) {
  hangsInItsStart({"-n"});
  agent.send(GetParam());
  isEndedBy(agent.waitForEnd(), GetParam());
  EXPECT_THAT(agent.errors(), HasSubstr(reasonFor(GetParam())));
  EXPECT_THAT(agent.errors(), ContainsRegex("thread [0-9]+ \\(m40-leader\\): sleeping"));
  EXPECT_THAT(agent.log(),
              ContainsRegex("\\[65751\\]\\[ERR\\]\\[QOVPUBLIC\\].* " + reasonFor(GetParam())));
}

TEST_P(AgentHangingStart, OfADaemonIsEndedByAStopSignalAndNamesTheModule) {
  hangsInItsStart({});
  ASSERT_TRUE(agent.findDaemon());
  agent.send(GetParam());
  daemonIsEnded();
}

TEST_P(AgentHangingStart, OfADaemonIsEndedByAStopSignalToItsStarter) {
  hangsInItsStart({});
  agent.send(GetParam());
  ASSERT_TRUE(agent.findDaemon());
  daemonIsEnded();
}

class AgentStartWatch : public AgentTest {};

TEST_F(AgentStartWatch, DoesNotCountTheTimeForWhichAHangingStartIsStopped) {
  constexpr std::chrono::seconds kLongerThanAHangingStartMayTake{8};
  agent.setEnvironment("QOV_TEST_WAIT", "1");
  agent.useModules({"state"});
  agent.start({"-n"});
  ASSERT_TRUE(agent.waitForFile("state"));
  const long before = agent.waitsOf("qov-start-watch");
  agent.send(SIGTERM);
  ASSERT_TRUE(waitUntil([&] { return agent.waitsOf("qov-start-watch") > before; }));
  agent.send(SIGSTOP);
  std::this_thread::sleep_for(kLongerThanAHangingStartMayTake);
  agent.makeFile("go");
  agent.send(SIGCONT);
  hasEndedInOrder(agent.waitForEnd());
}

TEST_F(AgentStartWatch, IsEndedByAStopSignalWhileTheDynamicLoaderWaitsForALibrary) {
  const TemporaryDirectory libraries;
  ASSERT_EQ(::mkfifo(libraries.file("libqovp_unwritten.so").c_str(), 0600), 0);
  agent.setEnvironment("LD_LIBRARY_PATH", libraries.path());
  agent.useModules({"unwritten"});
  agent.start({"-n"});
  ASSERT_TRUE(agent.waitForLog("[65723]")) << agent.errors();
  agent.send(SIGTERM);
  const Ending ending = agent.waitForEnd();
  EXPECT_TRUE(ending.ended) << "hangs";
  EXPECT_EQ(ending.signal, SIGTERM) << ending.exitStatus << agent.errors();
  EXPECT_THAT(agent.errors(), HasSubstr("loading module qovp_unwritten has not ended"));
  EXPECT_THAT(agent.log(),
              ContainsRegex("\\[65751\\].*loading module qovp_unwritten has not ended"));
}

TEST_F(AgentStartWatch, LeavesNoThreadBehindThatHasWatchedTheStart) {
  starts({"named"});
  agent.send(SIGUSR1);
  ASSERT_TRUE(agent.waitForLog(kReloaded)) << "the event loop does not run";
  EXPECT_EQ(agent.threadNames().count("qov-start-watch"), 0u);
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
