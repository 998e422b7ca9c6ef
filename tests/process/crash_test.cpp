#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>
#include <sstream>

#include "tests/process/agent_test.h"

namespace qov::test {
namespace {

using ::testing::MatchesRegex;

class AgentCrash : public AgentTest {
 protected:
  AgentCrash() {
    // Sanitizers leave the signals to the agent.
    constexpr const char* kOthers =
        "handle_segv=0:handle_abort=0:use_sigaltstack=0:allow_user_segv_handler=1";
    for (const char* const options : {"ASAN_OPTIONS", "TSAN_OPTIONS"}) {
      agent.setEnvironment(options, kOthers);
    }
  }

  void crashes(const char* thread, const char* how, const std::vector<std::string>& arguments) {
    agent.setEnvironment("QOV_TEST_CRASH", thread);
    agent.setEnvironment("QOV_TEST_CRASH_HOW", how);
    agent.useModules({"crashing"});
    agent.makeFile("go");
    agent.start(arguments);
  }

  /// With one line, which is in the log, too, and stands for `text` there.
  void endsBy(int signum, const std::string& text) {
    const Ending ending = agent.waitForEnd();
    EXPECT_TRUE(ending.ended) << "hangs";
    EXPECT_EQ(ending.signal, signum) << agent.errors();
    const std::string told = agent.errors();
    EXPECT_THAT(told, MatchesRegex("Failed to go on in thread " + text + "\n"));
    EXPECT_THAT(agent.log(), ::testing::HasSubstr("] " + told));
    EXPECT_THAT(agent.log(), ::testing::ContainsRegex(
                                 "\\[[0-9/]+ [0-9:]+\\]\\[65753\\]\\[ERR\\]\\[QOVPUBLIC\\]"));
  }

  static std::string place(const std::string& library) {
    return ", in /[^\n]*/" + library + "\\+0x[0-9a-f]+";
  }

  static std::string write() {
    return ": SIGSEGV at address 0x1008" + place("libqovp_crashing\\.so");
  }
};

TEST_F(AgentCrash, OfAWorkerNamesThreadAddressAndLibrary) {
  crashes("worker", "write", {"-n"});
  endsBy(SIGSEGV, "m50-worker-1" + write());
}

TEST_F(AgentCrash, OfAStaticTaskNamesIt) {
  crashes("static", "write", {"-n"});
  endsBy(SIGSEGV, "m50-static" + write());
}

TEST_F(AgentCrash, OfALeaderNamesIt) {
  crashes("leader", "write", {"-n"});
  endsBy(SIGSEGV, "m50-leader" + write());
}

TEST_F(AgentCrash, OfAThreadOfTheModulesOwnNamesIt) {
  crashes("own", "write", {"-n"});
  endsBy(SIGSEGV, "m50-own" + write());
}

TEST_F(AgentCrash, OfAStartNamesTheMainThread) {
  crashes("main", "write", {"-n"});
  endsBy(SIGSEGV, "[^ ]+" + write());
}

TEST_F(AgentCrash, OfADaemonIsInItsLog) {
  crashes("worker", "write", {});
  EXPECT_TRUE(
      agent.waitForLog("Failed to go on in thread m50-worker-1: SIGSEGV at address 0x1008"));
}

TEST_F(AgentCrash, ByTheStacksEndSaysSo) {
  crashes("worker", "recursion", {"-n"});
  endsBy(SIGSEGV, "m50-worker-1: SIGSEGV at address 0x[0-9a-f]+, an overflow of the stack" +
                      place("libqovp_crashing\\.so"));
}

TEST_F(AgentCrash, ByACallToNowhereNamesTheCaller) {
  crashes("worker", "call", {"-n"});
  endsBy(SIGSEGV,
         "m50-worker-1: SIGSEGV at address 0x0, in no code: 0x0, called from "
         "/[^\n]*/libqovp_crashing\\.so\\+0x[0-9a-f]+");
}

TEST_F(AgentCrash, OfAThreadThatIsToBeCancelledEndsTheProcess) {
  crashes("worker", "cancelled", {"-n"});
  endsBy(SIGSEGV, "m50-worker-1" + write());
}

TEST_F(AgentCrash, OfAMainThreadByTheStacksEndSaysSo) {
  crashes("main", "recursion", {"-n"});
  endsBy(SIGSEGV, "[^ ]+: SIGSEGV at address 0x[0-9a-f]+, an overflow of the stack" +
                      place("libqovp_crashing\\.so"));
}

TEST_F(AgentCrash, IsToldInLocalTimeByAnAgentThatHasLoggedNothing) {
  agent.root().writeConfig(5);
  agent.setEnvironment("TZ", "EAST-5:30");
  crashes("worker", "write", {"-n"});
  endsBy(SIGSEGV, "m50-worker-1" + write());
  const time_t now = ::time(nullptr);
  const std::string hour = agent.log().substr(12, 2);
  const auto isHourOf = [&hour](time_t second) {
    return std::stol(hour) == (second + 19800) / 3600 % 24;
  };
  EXPECT_TRUE(isHourOf(now) || isHourOf(now - 3600)) << agent.log();
}

TEST_F(AgentCrash, EndsAProcessWhoseStandardErrorNobodyReads) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const char byte = 'x';
  while (::write(ends[1], &byte, 1) == 1) {
  }
  ::fcntl(ends[1], F_SETFL, 0);  // the agent's shall block
  agent.prepareChild([end = ends[1]] { ::dup2(end, STDERR_FILENO); });
  agent.root().writeConfig(5);
  crashes("worker", "write", {"-n"});
  const Ending ending = agent.waitForEnd();
  EXPECT_TRUE(ending.ended) << "hangs";
  EXPECT_EQ(ending.signal, SIGSEGV);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST_F(AgentCrash, ByAbortNamesTheThread) {
  crashes("worker", "abort", {"-n"});
  endsBy(SIGABRT, "m50-worker-1: SIGABRT" + place("libc\\.so\\.6"));
}

TEST_F(AgentCrash, ThatAnotherProcessSentNamesThat) {
  starts({"state"});
  agent.send(SIGSEGV);
  endsBy(SIGSEGV, "[^ ]+: SIGSEGV from process " + std::to_string(::getpid()) + ", in .*");
}

TEST_F(AgentCrash, OfTwoThreadsAtOnceIsToldOfOne) {
  crashes("two", "write", {"-n"});
  endsBy(SIGSEGV, "m50-(worker-1|own)" + write());
  const std::string log = agent.log();
  EXPECT_EQ(log.find("[65753]"), log.rfind("[65753]")) << log;
}

TEST_F(AgentCrash, ByARefusedSystemCallNamesIt) {
  crashes("worker", "refused", {"-n"});
  endsBy(SIGSYS, "m50-worker-1: SIGSYS at system call " + std::to_string(SYS_acct) +
                     place("libc\\.so\\.6"));
}

TEST_F(AgentCrash, OfAForkedChildNamesItAndLeavesTheAgentAlone) {
  crashes("worker", "child", {"-n"});
  ASSERT_TRUE(agent.waitForFile("child")) << agent.log();
  std::istringstream child(readFile(agent.root().path() / "child"));
  std::string pid;
  int signum = 0;
  child >> pid >> signum;
  EXPECT_EQ(signum, SIGSEGV);
  EXPECT_THAT(agent.errors(), MatchesRegex("Failed to go on in thread m50-worker-1 of the child "
                                           "process " +
                                           pid + write() + "\n"));
  EXPECT_THAT(agent.log(), ::testing::HasSubstr("] " + agent.errors()));
  stopsInOrder();
}

TEST_F(AgentCrash, ThatTheProgramHandlesIsLeftToIt) {
  agent.setEnvironment("QOV_TEST_MAIN", "handles");
  crashes("worker", "write", {"-n"});
  hasExited(agent.waitForEnd(), 5);
  EXPECT_EQ(agent.errors(), "");
  EXPECT_THAT(agent.log(), ::testing::Not(::testing::HasSubstr("[65753]")));
}

TEST_F(AgentCrash, IsAJsonObjectInALogOfThose) {
  agent.root().writeConfig();
  const std::string file = agent.root().cfgFile().string();
  AgentRoot::write(file, readFile(file) + "LogJson=1\n");
  crashes("worker", "write", {"-n"});
  const Ending ending = agent.waitForEnd();
  EXPECT_EQ(ending.signal, SIGSEGV);
  EXPECT_THAT(agent.log(),
              ::testing::ContainsRegex(
                  "\\{\"time\":\"[^\"]+\",\"id\":65753,\"level\":\"ERR\".*"
                  "\"message\":\"Failed to go on in thread m50-worker-1: SIGSEGV [^\"]+\"\\}\n"));
}

}  // namespace
}  // namespace qov::test
