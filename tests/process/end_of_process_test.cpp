#include "tests/process/agent_test.h"
#include "tests/support/sanitizers.h"

namespace qov::test {
namespace {

/// Its only module keeps it from its end.
void hangsAndIsAborted(AgentProcess& agent) {
  agent.setEnvironment("PXOS_GUARD_SECOND_MS", "1");
  agent.useModules({"stuck"});
  agent.start({"-n"});
  EXPECT_EQ(agent.waitForEnd().signal, SIGABRT);
  EXPECT_THAT(agent.errors(), ::testing::HasSubstr("Failed to stop within 450 s: "));
}

/// Modules work when the process ends in a way that nobody should choose: they must be gone before
/// static objects are, or else these modules abort the process.
class AgentEnd : public ::testing::TestWithParam<const char*> {
 protected:
  static constexpr int kRuns = 2;

  static void endsInOrder(const std::vector<std::string>& modules, bool secondFails,
                          int exitStatus) {
    for (int run = 0; run < kRuns; ++run) {
      AgentProcess agent;
      agent.setEnvironment("QOV_TEST_MAIN", GetParam());
      if (secondFails) {
        agent.setEnvironment("QOV_TEST_SECOND_FAILS", "1");
      }
      agent.useModules(modules);
      agent.start({"-n"});
      const Ending ending = agent.waitForEnd();
      EXPECT_TRUE(ending.ended) << "hangs";
      EXPECT_EQ(ending.signal, 0) << agent.errors();
      EXPECT_EQ(ending.exitStatus, exitStatus) << agent.errors() << agent.log();
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Main, AgentEnd, ::testing::Values("return", "exit", "leak"));

TEST_P(AgentEnd, AfterAStartWhoseSecondModuleFailedDoesNotCrash) {
  endsInOrder({"chatter", "other_chatter"}, true, 1);
}

TEST_P(AgentEnd, WithoutAnEventLoopDoesNotCrash) {
  endsInOrder({"chatter", "other_chatter"}, false, 0);
}

TEST_P(AgentEnd, WithAModuleThatNeverStopsIsBroughtAboutByTheGuard) {
  AgentProcess agent;
  agent.setEnvironment("QOV_TEST_MAIN", GetParam());
  hangsAndIsAborted(agent);
}

class AgentExit : public AgentTest {};

TEST_F(AgentExit, OnAModulesThreadEndsTheProcessWithItsStatus) {
  starts({"quitter"});
  agent.makeFile("go");
  hasExited(agent.waitForEnd(), 7);
}

TEST_F(AgentExit, OnAPlainThreadOfAModulesGroupEndsTheProcessWithItsStatus) {
  if (QOV_TEST_TSAN) {
    GTEST_SKIP() << "nothing orders what the module's threads did in ACE before ACE's own end";
  }
  agent.setEnvironment("QOV_TEST_PLAIN", "1");
  starts({"quitter"});
  agent.makeFile("go");
  hasExited(agent.waitForEnd(), 7);
}

TEST_F(AgentExit, AfterAReloadStopsTheModulesBeforeWhatTheSecondLoadHasMade) {
  agent.setEnvironment("QOV_TEST_MAIN", "reload");
  agent.useModules({"chatter"});
  agent.start({"-n"});
  hasExited(agent.waitForEnd(), 0);
}

TEST_F(AgentExit, OnAnotherThreadWaitsForTheModuleThatIsBeingUnloaded) {
  agent.setEnvironment("QOV_TEST_MAIN", "meanwhile");
  agent.useModules({"lingering"});
  agent.start({"-n"});
  hasExited(agent.waitForEnd(), 3);
}

TEST_F(AgentExit, OnAnotherThreadWhileTheEndOfTheLastModuleHangsIsBroughtAboutByTheGuard) {
  agent.setEnvironment("QOV_TEST_MAIN", "meanwhile");
  hangsAndIsAborted(agent);
}

TEST_F(AgentExit, OnAnotherThreadWhileAModuleIsMadeForEverIsBroughtAboutByTheGuard) {
  agent.setEnvironment("QOV_TEST_MAIN", "before");
  agent.setEnvironment("QOV_TEST_STUCK", "is made");
  hangsAndIsAborted(agent);
}

TEST_F(AgentExit, InAForkedChildLeavesTheModulesAlone) {
  if (QOV_TEST_ASAN) {
    GTEST_SKIP() << "LeakSanitizer takes for leaks of the child what the parent's threads hold";
  }
  agent.setEnvironment("QOV_TEST_MAIN", "fork");
  agent.useModules({"quitter"});
  agent.start({"-n"});
  // A child that is made while threads begin may find ACE's own locks held, for good.
  ASSERT_TRUE(agent.waitForLog("Module(45) thread inited"));
  ASSERT_TRUE(waitUntil([&] { return agent.threadNames().count("m45-worker-2") != 0; }));
  agent.makeFile("fork");
  hasExited(agent.waitForEnd(), 3);
}

TEST_F(AgentExit, OnAThreadThatAStartWaitsForIsBroughtAboutByTheGuard) {
  agent.setEnvironment("QOV_TEST_STUCK", "exits");
  hangsAndIsAborted(agent);
}

/// A module ends the process while it is being initialised: the table of modules is held for that,
/// and threads wait for it.
class AgentExitDuringTheStart : public AgentTest,
                                public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Module, AgentExitDuringTheStart, ::testing::Values("first", "second"));

TEST_P(AgentExitDuringTheStart, StopsTheModulesInOrder) {
  agent.setEnvironment("QOV_TEST_EXIT", GetParam());
  agent.useModules({"chatter", "other_chatter"});
  agent.start({"-n"});
  hasExited(agent.waitForEnd(), 3);
}

}  // namespace
}  // namespace qov::test
