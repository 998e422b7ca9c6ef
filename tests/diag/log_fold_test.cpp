#include <ace/Reactor.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "diag/folding.h"
#include "tests/diag/configured_log.h"
#include "tests/diag/reactor_timers.h"
#include "tests/support/child.h"
#include "tests/support/process_end.h"

// The optional key "LogFold". How many of a record's repeats fall into one second is up to the
// machine; that none is lost, and when a count comes at the latest, is not.

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class LogFold : public ConfiguredLog {
 protected:
  LogFold() { applies("LogFold=1\n"); }

  /// How often the log has `message`, what it counts included.
  unsigned long told(const std::string& message) const {
    const std::regex count("[0-9]+ more of record 7 within a second: " + message);
    unsigned long sum = 0;
    for (const std::string& line : lines()) {
      const std::string text = line.substr(line.find("] ", line.find("[][")) + 2);
      if (text == message) {
        ++sum;
      } else if (std::regex_match(text, count)) {
        sum += std::stoul(text);
      }
    }
    return sum;
  }

  void flood(const std::string& message, int times) const {
    for (int i = 0; i < times; ++i) {
      log(message);
    }
  }
};

TEST_F(LogFold, WritesARecordOnceAndCountsTheOthers) {
  flood("m", 3000);
  init();
  EXPECT_EQ(told("m"), 3000U);
  EXPECT_LT(lines().size(), 1000U);
}

TEST_F(LogFold, WritesTheCountWithLevelKitFunctionAndLine) {
  log("m");
  for (std::size_t i = 0; lines().size() < 2; ++i) {
    log("m");
  }
  EXPECT_TRUE(std::regex_match(
      lines()[1], std::regex("\\[[0-9/]+ [0-9:]+\\]\\[66050\\]\\[ERR\\]\\[KIT\\]\\[f,2\\]\\[\\]"
                             "\\[tests_diag:[0-9]+\\] [0-9]+ more of record 7 within a second: m")))
      << lines()[1];
}

TEST_F(LogFold, HoldsNoEndUpWhereNobodyReadsStandardError) {
  const int status = qov::test::endOfChild([&] {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_NONBLOCK), 0);
    ::dup2(ends[1], STDERR_FILENO);
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::OSTREAM);
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::STDERR);
    flood("m", 5);
    while (::write(ends[1], "full", 1) == 1) {
    }
    ::fcntl(ends[1], F_SETFL, 0);
    // For an end that hangs.
    ::alarm(60);
    qov::tellCountsAtEnd();
    ::_exit(3);
    return false;
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
}

TEST_F(LogFold, WritesTheCountsAtAnEndByAThreadThatIsToBeCancelled) {
  const int status = qov::test::endOfChild([&] {
    flood("m", 5);
    ::pthread_cancel(::pthread_self());
    qov::tellCountsAtEnd();
    ::_exit(3);
    return false;
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
  EXPECT_EQ(told("m"), 5U);
}

TEST_F(LogFold, WritesTheCountInJsonToo) {
  applies("LogFold=1\nLogJson=1\n");
  flood("a \"b\"\n", 2);
  init();
  const std::string last = lines().back();
  if (last.find("more of record") != std::string::npos) {  // both have come within a second
    EXPECT_THAT(last, HasSubstr(",\"id\":66050,\"level\":\"ERR\",\"kit\":\"KIT\","));
    EXPECT_THAT(last, EndsWith(",\"message\":\"1 more of record 7 within a second: a "
                               "\\\"b\\\"\\n\"}"));
  }
  flood("m", 3000);
  init();
  EXPECT_THAT(logged(), HasSubstr(",\"id\":66050,\"level\":\"ERR\",\"kit\":\"KIT\",\"function\":"
                                  "\"f\",\"line\":2,\"process\":\"tests_diag\",\"thread\":"));
}

TEST_F(LogFold, LosesNothingOfAFloodOfSeveralKindsInTurnFromSeveralThreads) {
  constexpr int kTimes = 500;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this, thread] {
      for (int i = 0; i < kTimes; ++i) {
        for (int kind = 0; kind < 5; ++kind) {
          log("kind " + std::to_string(kind));
        }
        log("own " + std::to_string(thread) + " " + std::to_string(i));
      }
    });
  }
  for (int i = 0; i < 5; ++i) {
    init();  // what SIGUSR1 does
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  init();
  for (int kind = 0; kind < 5; ++kind) {
    EXPECT_EQ(told("kind " + std::to_string(kind)), 4U * kTimes);
  }
  EXPECT_EQ(told("own 3 499"), 1U);
}

TEST_F(LogFold, TellsTheCountWithoutAnotherRecordWhileTheReactorTurns) {
  flood("m", 100);
  ACE_Reactor::instance()->owner(ACE_OS::thr_self());
  const bool told = qov::test::waitUntil([this] {
    ACE_Time_Value wait(0, 100000);
    ACE_Reactor::instance()->handle_events(wait);
    return this->told("m") == 100;
  });
  EXPECT_TRUE(told);
}

TEST_F(LogFold, HasATimerOnlyWhileItIsOn) {
  EXPECT_EQ(reactorTimers(), 1) << "ChkInterval is 0";
  applies("LogFold=1\nChkInterval=600\n");
  EXPECT_EQ(reactorTimers(), 2);
  applies("LogFold=1\nSendTerminal=1\n");
  EXPECT_EQ(reactorTimers(), 1);
  applies("ChkInterval=600\n");
  EXPECT_EQ(reactorTimers(), 1);
  applies("");
  EXPECT_EQ(reactorTimers(), 0);
}

TEST_F(LogFold, TellsTheCountInTheFileOfBeforeWhenThatChanges) {
  flood("m", 100);
  const std::string other = directory_.file("other.log");
  strategy_.initLogStrategy(nullptr, other.c_str());
  EXPECT_EQ(told("m"), 100U);
  log("m");
  EXPECT_THAT(qov::test::readFile(other), EndsWith("] m\n")) << "not counted";
}

TEST_F(LogFold, TellsTheCountWhenItIsSwitchedOff) {
  flood("m", 100);
  applies("");
  EXPECT_EQ(told("m"), 100U);
  const std::size_t before = lines().size();
  flood("m", 3);
  EXPECT_EQ(lines().size(), before + 3);
}

TEST_F(LogFold, TellsTheCountOnStandardError) {
  configure("LogFold=1\nSendTerminal=1\n");
  testing::internal::CaptureStderr();
  init();
  flood("m", 3000);
  init();
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_THAT(shown, HasSubstr(" more of record 7 within a second: m\n"));
  EXPECT_EQ(logged(), "");
}

TEST_F(LogFold, TellsTheCountBeforeAForkAndNotInTheChild) {
  flood("m", 100);
  EXPECT_EQ(qov::test::endOfChild([this] {
              const bool toldBefore = told("m") == 100;
              log("m");
              log("m");
              return toldBefore;
            }),
            0);
  EXPECT_EQ(told("m"), 101U) << "the child has ended by _exit()";
}

TEST_F(LogFold, WritesEachRecordThatIsTooLongToBeRemembered) {
  flood(std::string(1024, 'x'), 50);
  EXPECT_EQ(lines().size(), 50U);
}

TEST_F(LogFold, WritesEachRecordToAStreamOfTheThreadsOwn) {
  std::ostringstream own;
  std::ostream* const before = LogStateKeeper::log().msg_ostream();
  LogStateKeeper::log().msg_ostream(&own, false);
  flood("m", 50);
  LogStateKeeper::log().msg_ostream(before, false);
  const std::string all = own.str();
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 50);
  init();
  EXPECT_EQ(logged(), "");
}

}  // namespace
