// What a start says that goes wrong: tests/process/broken_set_ups.cpp holds the rows.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>

#include "tests/process/agent_test.h"
#include "tests/process/broken_set_ups.h"
#include "tests/support/counts.h"
#include "tests/support/sanitizers.h"

using ::testing::HasSubstr;

namespace qov::test {
namespace {

class BrokenAgent : public AgentTest {
 protected:
  std::string filledIn(const std::string& text) { return test::filledIn(text, agent.root()); }

  bool hasStarted() {
    return waitUntil([&] { return !agent.state("pid").empty(); });
  }
};

class BrokenSetUpTest : public BrokenAgent, public ::testing::WithParamInterface<BrokenSetUp> {
 protected:
  void SetUp() override {
    if (GetParam().notAsRoot && ::geteuid() == 0) {
      GTEST_SKIP() << "root may do everything";
    }
    if (GetParam().letsALibraryGo) {
      QOV_SKIP_IF_ACE_IS_REPORTED();
    }
    if (GetParam().result == Result::kWarns) {
      agent.useModules({"state"});
    }
    GetParam().breakIt(agent);
  }

  void saysAllOnce(const std::string& where) {
    for (const std::string& line : GetParam().says) {
      EXPECT_EQ(timesOf(filledIn(line), where), 1) << filledIn(line) << "\nis in\n" << where;
    }
  }

  void saysAllIn(const std::string& where) {
    for (const std::string& line : GetParam().says) {
      EXPECT_THAT(where, HasSubstr(filledIn(line)));
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Of, BrokenSetUpTest, ::testing::ValuesIn(brokenSetUps()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(BrokenSetUpTest, IsToldInTheForeground) {
  const BrokenSetUp& row = GetParam();
  agent.start({"-n"});
  if (row.result == Result::kWarns) {
    ASSERT_TRUE(hasStarted()) << agent.errors();
    agent.send(SIGINT);
  }
  const Ending ending = agent.waitForEnd();
  ASSERT_TRUE(ending.ended) << "hangs";
  EXPECT_EQ(ending.signal, row.signal) << agent.errors();
  if (row.signal == 0) {
    EXPECT_EQ(ending.exitStatus, row.result == Result::kWarns ? 0 : row.exitStatus)
        << agent.errors();
  }
  if (row.result != Result::kEnds) {
    saysAllOnce(agent.errors());
  }
  if (row.log == Log::kFile) {
    saysAllIn(agent.log());
  }
  EXPECT_EQ(agent.systemLog(), "");
}

TEST_P(BrokenSetUpTest, IsToldByTheStarterOfADaemon) {
  const BrokenSetUp& row = GetParam();
  agent.start({});
  const Ending ending = agent.waitForEnd();
  ASSERT_TRUE(ending.ended) << "hangs";
  EXPECT_EQ(ending.exitStatus, row.result == Result::kWarns ? 0 : 1) << agent.errors();
  saysAllOnce(agent.errors());
  if (row.log == Log::kFile) {
    saysAllIn(agent.log());
    EXPECT_EQ(agent.systemLog(), "");
  } else if (row.log == Log::kNone) {
    saysAllIn(agent.systemLog());
  }
  if (row.result == Result::kWarns) {
    ASSERT_TRUE(agent.findDaemon());
    agent.send(SIGINT);
    hasExited(agent.waitForDaemonEnd(), 0);
  }
}

TEST_F(BrokenAgent, HasAtLeastSixtyRows) {
  EXPECT_GE(brokenSetUps().size(), 60U);
}

TEST_F(BrokenAgent, NamesTheModuleThatCallsExitInTheForeground) {
  agent.setEnvironment("QOV_TEST_BREAK", "exit_3");
  agent.useModules({"broken"});
  agent.start({"-n"});
  hasExited(agent.waitForEnd(), 3);
  EXPECT_EQ(agent.errors(),
            "Failed to start the agent: exit() was called before it ran, while loading module "
            "qovp_broken\n");
}

TEST_F(BrokenAgent, NamesTheModuleItLoadsInTheLog) {
  agent.setEnvironment("QOV_TEST_BREAK", "entry_kills");
  agent.useModules({"broken"});
  agent.start({"-n"});
  EXPECT_EQ(agent.waitForEnd().signal, SIGKILL);
  const std::string last = "] Loading module qovp_broken\n";
  EXPECT_EQ(agent.log().rfind(last), agent.log().size() - last.size()) << agent.log();
}

/// The values that the configuration reads as a number from 0 to 255.
class ProcPid : public BrokenAgent, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Of, ProcPid, ::testing::Values("\" 7\"", "0000000007", "+7", "0", "255"));

TEST_P(ProcPid, IsNoReasonToWarn) {
  AgentRoot::write(agent.root().cfgFile(),
                   readFile(agent.root().cfgFile())
                       .replace(0, std::string("[QOV_GLOBAL]\nPROC_PID=7").size(),
                                std::string("[QOV_GLOBAL]\nPROC_PID=") + GetParam()));
  starts({"state"});
  EXPECT_EQ(agent.errors(), "");
  stopsInOrder();
}

TEST_F(BrokenAgent, RefusesARelativeRootAsADaemonWithOneLine) {
  agent.setEnvironment("QOV_ROOT", "no/such");
  agent.start({});
  hasExited(agent.waitForEnd(), 1);
  EXPECT_EQ(agent.errors(),
            "Failed to become a daemon: no/such: the environment variable QOV_ROOT is no absolute "
            "path\nthe agent did not start\n");
}

TEST_F(BrokenAgent, TellsWhoElseHasItsConfigurationDirectory) {
  starts({"state"});
  const std::string pid = agent.state("pid");
  const bool systemSays = readFile("/proc/locks").find(" " + pid + " ") != std::string::npos;
  const std::string line = "Failed to have the configuration directory for this process alone: " +
                           agent.root().confDirectory().string() +
                           "/: " + (systemSays ? "process " + pid : "another process") +
                           " uses it, too\n";
  AgentProcess second;
  second.setEnvironment("QOV_ROOT", agent.root().path());
  second.start({"-n"});
  EXPECT_TRUE(waitUntil([&] { return second.errors() == line; })) << second.errors();
  EXPECT_TRUE(agent.waitForLog("] " + line));
  second.send(SIGINT);
  hasExited(second.waitForEnd(), 0);
  stopsInOrder();
}

TEST_F(BrokenAgent, LeavesItsConfigurationDirectoryToTheNext) {
  starts({"state"});
  const int next = ::open(agent.root().confDirectory().c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_NE(::flock(next, LOCK_EX | LOCK_NB), 0) << "a running agent has it";
  EXPECT_EQ(agent.errors(), "");
  stopsInOrder();
  EXPECT_EQ(::flock(next, LOCK_EX | LOCK_NB), 0);
  ::close(next);
}

TEST_F(BrokenAgent, BeginsItsLogWithWhoItIs) {
  starts({"state"});
  EXPECT_THAT(agent.log(), HasSubstr("] libqovpub 1.0.0: process 7, pid " + agent.state("pid") +
                                     ", root " + agent.root().path().string() + ", configuration " +
                                     agent.root().cfgFile().string() + ", log level DBG\n"));
  stopsInOrder();
}

/// An executable whose path has its only dot in a folder.
TEST(NamelessAgent, SaysWhatEndsItsName) {
  const TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "rel1.2");
  const std::filesystem::path program = directory.path() / "rel1.2" / "agent";
  std::filesystem::copy_file(QOV_TEST_AGENT, program);
  for (const char* option : {"-n", "-d"}) {
    AgentProcess agent(program);
    agent.start({option});
    EXPECT_EQ(agent.waitForEnd().exitStatus, 1);
    EXPECT_THAT(agent.errors(),
                HasSubstr("/conf//.cfg: No such file or directory; the process name "
                          "is empty"));
    EXPECT_THAT(agent.errors(),
                HasSubstr("which stands in the folder name " + directory.path().string() +
                          "/rel1.2; give the file a suffix (" + program.string() + ".bin)\n"));
  }
}

}  // namespace
}  // namespace qov::test
