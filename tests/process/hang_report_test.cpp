#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "tests/process/agent_test.h"
#include "tests/support/sanitizers.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

namespace qov::test {
namespace {

/// An agent that hangs and is given 450 milliseconds instead of seconds to stop.
class AgentHangReport : public AgentTest {
 protected:
  AgentHangReport() { agent.setEnvironment("PXOS_GUARD_SECOND_MS", "1"); }

  /// With a module that hangs at its end, and one whose threads are there until then: a leader that
  /// has not begun yet when the stop signal comes ends at once, and they with it.
  void startsStuck() {
    starts({"stuck", "named"});
    ASSERT_TRUE(agent.waitForLog("Module(255) thread inited"));
    // It may have waited for a lock before it began; this wait has no end of its own.
    long waits = 0;
    ASSERT_TRUE(waitUntil([&] {
      const long before = std::exchange(waits, agent.waitsOf("m255-leader"));
      return waits > 0 && waits == before;
    }));
  }

  void isAborted() {
    const Ending ending = agent.waitForEnd();
    EXPECT_TRUE(ending.ended) << "hangs";
    EXPECT_EQ(ending.signal, SIGABRT) << agent.errors();
  }

  static void tellsOf(const std::string& text, const std::string& step) {
    EXPECT_THAT(text, HasSubstr("Failed to stop within 450 s: " + step));
    EXPECT_THAT(text, ContainsRegex("thread [0-9]+ \\(m255-worker-1\\): sleeping"));
  }
};

constexpr const char* kUnloading = "unloading module qovp_stuck, stopping module 43 (stuck)";

TEST_F(AgentHangReport, NamesTheModuleAndWhatTheThreadsAreAt) {
  startsStuck();
  agent.send(SIGINT);
  isAborted();
  tellsOf(agent.errors(), kUnloading);
  tellsOf(agent.log(), kUnloading);
  EXPECT_THAT(agent.log(), ContainsRegex("\\[65750\\]\\[ERR\\]\\[QOVPUBLIC\\]"));
}

TEST_F(AgentHangReport, ComesIntoALogThatTheHangingThreadHolds) {
  agent.setEnvironment("QOV_TEST_STUCK", "holding the log");
  startsStuck();
  agent.send(SIGINT);
  isAborted();
  tellsOf(agent.errors(), kUnloading);
  tellsOf(agent.log(), kUnloading);
}

TEST_F(AgentHangReport, DoesNotKeepTheProcessWhereOnlyALogThatHangsCouldTakeIt) {
  agent.setEnvironment("QOV_TEST_STUCK", "holding the log");
  startsStuck();
  agent.send(SIGINT);
  ASSERT_TRUE(agent.waitForFile("lingering"));
  std::filesystem::remove(agent.root().logFile());
  isAborted();
  tellsOf(agent.errors(), kUnloading);
}

TEST_F(AgentHangReport, NamesAModuleThatHasFailedToStartAndDoesNotEnd) {
  agent.setEnvironment("QOV_TEST_STUCK", "fails");
  agent.useModules({"stuck"});
  agent.start({"-n"});
  isAborted();
  const std::string step =
      "Failed to stop within 450 s: loading module qovp_stuck, "
      "stopping module 43 (stuck)";
  EXPECT_THAT(agent.errors(), HasSubstr(step));
  EXPECT_THAT(agent.log(), HasSubstr(step));
}

TEST_F(AgentHangReport, ComesAlsoWhereTheMainThreadNeverComesToTheEventLoop) {
  agent.setEnvironment("QOV_TEST_MAIN", "loading");
  starts({"named"});
  agent.send(SIGINT);
  isAborted();
  tellsOf(agent.log(), "the main thread has not come to the stop signal");
}

/// An agent one of whose threads waits in the dynamic loader, which lets no other one begin.
class AgentLoading : public AgentHangReport {
 protected:
  AgentLoading() {
    agent.setEnvironment("QOV_TEST_MAIN", "loading");
    if (::mkfifo(library().c_str(), 0600) != 0) {
      throw std::runtime_error("no pipe");
    }
  }
  ~AgentLoading() override { ::close(writer_); }

  void waitsInTheLoader() {
    ASSERT_TRUE(waitUntil([&] { return agent.threadNames().count("m255-worker-1") != 0; }));
    agent.makeFile("load");
    // It can be opened when there is a reader, and gives that nothing to read.
    ASSERT_TRUE(waitUntil([&] {
      writer_ = ::open(library().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
      return writer_ >= 0;
    }));
  }

  void runsTheEventLoop() {
    agent.makeFile("loop");
    agent.send(SIGUSR1);
    ASSERT_TRUE(agent.waitForLog(kReloaded)) << agent.log();
  }

  void isAbortedAndSaysWhy() {
    isAborted();
    tellsOf(agent.errors(), kUnloading);
    tellsOf(agent.log(), kUnloading);
  }

 private:
  std::string library() { return agent.root().path() / "unwritten.so"; }

  int writer_ = -1;
};

TEST_F(AgentLoading, WhileItsEventLoopRunsIsEnded) {
  startsStuck();
  runsTheEventLoop();
  waitsInTheLoader();
  agent.send(SIGINT);
  isAbortedAndSaysWhy();
}

TEST_F(AgentLoading, BeforeItsEventLoopIsEnded) {
  startsStuck();
  waitsInTheLoader();
  runsTheEventLoop();
  agent.send(SIGINT);
  isAbortedAndSaysWhy();
}

/// An agent with a pipe that nobody reads as its standard error.
class AgentUnread : public AgentHangReport {
 protected:
  AgentUnread() {
    if (::pipe2(ends_, O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    agent.prepareChild([this] { ::dup2(ends_[1], STDERR_FILENO); });
  }
  ~AgentUnread() override {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }

  void logsToStandardError() {
    AgentRoot::write(agent.root().cfgFile(),
                     "[QOV_GLOBAL]\nPROC_PID=7\n[LOG_CFG]\nSendTerminal=1\nChkInterval=600\n"
                     "LogFileMaxSize=10240\nLogFileMaxCnt=3\nLogLevel=0\n");
    agent.send(SIGUSR1);
  }

  bool hasSomethingToRead() {
    int waiting = 0;
    ::ioctl(ends_[0], FIONREAD, &waiting);
    return waiting > 0;
  }

  /// Leaves no room for a single byte in the pipe.
  void fill() {
    // A descriptor of its own: the agent's shall block.
    const std::string name = "/proc/self/fd/" + std::to_string(ends_[1]);
    const int end = ::open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(end, 0);
    const char byte = 'x';
    while (::write(end, &byte, 1) == 1) {
    }
    ::close(end);
  }

 private:
  int ends_[2] = {-1, -1};
};

// ThreadSanitizer's own abort() flushes the standard streams first, and waits for the lock.
#if !QOV_TEST_TSAN
TEST_F(AgentUnread, IsEndedAlthoughTheMainThreadHangsInTheLogWhenTheSignalComes) {
  // With traces, of which a reload writes some.
  agent.root().writeConfig(0);
  starts({"chatter", "named"});
  logsToStandardError();
  ASSERT_TRUE(waitUntil([&] { return hasSomethingToRead(); }));
  fill();
  agent.send(SIGUSR1);
  ASSERT_TRUE(waitUntil([&] { return agent.hasTaken(SIGUSR1); }));
  agent.send(SIGINT);
  isAborted();
  tellsOf(agent.log(), "the main thread has not come to the stop signal");
}

TEST_F(AgentUnread, IsEndedAlthoughTheMainThreadHangsInTheLogBeforeTheEventLoop) {
  agent.setEnvironment("QOV_TEST_MAIN", "unread");
  // With traces.
  agent.root().writeConfig(0);
  agent.useModules({"named"});
  agent.start({"-n"});
  ASSERT_TRUE(agent.waitForFile("unread"));
  agent.send(SIGINT);
  isAborted();
  tellsOf(agent.log(), "the main thread has not come to the stop signal");
}
#endif

}  // namespace
}  // namespace qov::test
