#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Reactor.h>
#include <ace/Thread_Manager.h>
#include <gmock/gmock.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "diag/file_strategy.h"
#include "tests/diag/log_in_file.h"
#include "tests/support/cancelled_thread.h"

namespace {

namespace fs = std::filesystem;
using qov::test::cancelIn;
using qov::test::readFile;
using testing::EndsWith;

ACE_THR_FUNC_RETURN runFunction(void* argument) {
  (*static_cast<std::function<void()>*>(argument))();
  return nullptr;
}

/// A thread as the task runtime starts them: it inherits the logging of the one that starts it.
class AceThread {
 public:
  explicit AceThread(std::function<void()> run) : run_(std::move(run)) {
    ACE_Thread_Manager::instance()->spawn(runFunction, &run_, THR_NEW_LWP | THR_JOINABLE, &id_);
  }
  ~AceThread() { ACE_Thread_Manager::instance()->join(id_); }
  AceThread(const AceThread&) = delete;
  AceThread& operator=(const AceThread&) = delete;

 private:
  std::function<void()> run_;
  ACE_thread_t id_ = 0;
};

class LogThreads : public LogInFile {
 protected:
  LogThreads() {
    std::snprintf(param_.logFile_, sizeof(param_.logFile_), "%s", path_.c_str());
    param_.chkInterval_ = 0;
  }

  /// The messages of all records in the log file and its predecessors, and how often each is there.
  std::map<std::string, int> messages() const {
    std::map<std::string, int> found;
    for (const auto& entry : fs::directory_iterator(directory_.path())) {
      std::ifstream lines(entry.path());
      for (std::string line; std::getline(lines, line);) {
        ++found[line.substr(line.rfind("] ") + 2)];
      }
    }
    return found;
  }

  CLogging_Cfg_Param param_;
};

TEST_F(LogThreads, LoseAndRepeatNothingWhileTheSettingsAreApplied) {
  constexpr int kRounds = 100;
  param_.logFileMaxSize_ = 8;
  param_.logFileMaxCnt_ = 1000000;
  LogStateKeeper::log().msg_ostream(nullptr, false);
  std::promise<void> applied;
  const std::shared_future<void> start = applied.get_future().share();
  std::atomic<bool> enough{false};
  std::atomic<size_t> written{0};
  const auto work = [&](const std::string& name) {
    start.wait();
    for (int i = 0; i < 100 || !enough; ++i, ++written) {
      kit_.error(1, "f", 2, name + std::to_string(i));
    }
  };
  {
    const AceThread early([&] { work("early ACE "); });
    std::thread earlyOther([&] { work("early std "); });
    strategy_.initLogStrategy(param_);
    applied.set_value();
    const AceThread late([&] { work("late ACE "); });
    std::thread lateOther([&] { work("late std "); });
    for (int round = 0; round < kRounds || !fs::exists(path_ + ".2"); ++round) {
      strategy_.initLogStrategy(param_);
    }
    enough = true;
    earlyOther.join();
    lateOther.join();
  }
  const std::map<std::string, int> found = messages();
  EXPECT_EQ(found.size(), written);
  for (const auto& [message, times] : found) {
    EXPECT_EQ(times, 1) << message;
  }
}

TEST_F(LogThreads, LoseNothingWhileTheReactorRotates) {
  param_.logFileMaxSize_ = 8;
  param_.logFileMaxCnt_ = 1000000;
  param_.chkInterval_ = 1;
  strategy_.initLogStrategy(param_);
  std::atomic<bool> enough{false};
  size_t written = 0;
  std::thread writer([&] {
    for (; written < 200 || (!enough && written < 200000); ++written) {
      kit_.error(1, "f", 2, std::to_string(written));
    }
  });
  ACE_Time_Value limit(30);
  while (!fs::exists(path_ + ".1") && limit > ACE_Time_Value::zero) {
    ACE_Reactor::instance()->handle_events(limit);
  }
  enough = true;
  writer.join();
  EXPECT_TRUE(fs::exists(path_ + ".1"));
  EXPECT_EQ(messages().size(), written);
}

/// Logs when its thread is almost gone.
struct LastWords {
  ~LastWords() { kit_->error(1, "f", 2, "from a thread that ends"); }
  const CQOVDebugKit* kit_ = nullptr;
};

TEST_F(LogThreads, LogFromTheDestructorsOfTheirObjects) {
  strategy_.initLogStrategy(param_);
  std::thread([this] {
    thread_local LastWords words;
    words.kit_ = &kit_;
  }).join();
  EXPECT_THAT(readFile(path_), EndsWith("] from a thread that ends\n"));
}

void logWhenTheProgramEnds(const CLogging_Cfg_Param& param) {
  static const CQOVDebugKit kit("KIT", 5);
  static CQOV_Logging_Strategy strategy;
  strategy.initLogStrategy(param);
  static LastWords words;
  words.kit_ = &kit;
  std::exit(0);
}

using LogThreadsDeathTest = LogThreads;

TEST_F(LogThreadsDeathTest, LogFromTheDestructorsOfTheProgram) {
  param_.chkInterval_ = 600;
  EXPECT_EXIT(logWhenTheProgramEnds(param_), testing::ExitedWithCode(0), "");
  EXPECT_THAT(readFile(path_), EndsWith("] from a thread that ends\n"));
}

TEST_F(LogThreads, NeverFindTheDestinationsSwitchedOff) {
  strategy_.initLogStrategy(param_);
  std::atomic<bool> enough{false};
  std::atomic<int> looks{0};
  int timesOff = 0;
  std::thread observer([&] {
    for (; !enough; ++looks) {
      timesOff += (LogStateKeeper::log().flags() & ACE_Log_Msg::OSTREAM) == 0 ? 1 : 0;
    }
  });
  for (int round = 0; round < 3000 || looks < 300000; ++round) {
    strategy_.initLogStrategy(param_);
  }
  enough = true;
  observer.join();
  EXPECT_EQ(timesOff, 0);
}

TEST_F(LogThreads, WriteToTheFileThatIsCurrentAfterTheSettingsAreAppliedAgain) {
  strategy_.initLogStrategy(param_);
  std::promise<void> other;
  std::promise<void> first;
  std::thread thread([&] {
    kit_.error(1, "f", 2, "to the first");
    first.set_value();
    other.get_future().wait();
    kit_.error(1, "f", 2, "to the second");
  });
  first.get_future().wait();
  const std::string second = directory_.file("y.log");
  std::snprintf(param_.logFile_, sizeof(param_.logFile_), "%s", second.c_str());
  strategy_.initLogStrategy(param_);
  other.set_value();
  thread.join();
  EXPECT_THAT(readFile(path_), EndsWith("] to the first\n"));
  EXPECT_THAT(readFile(second), EndsWith("] to the second\n"));
}

TEST_F(LogThreads, ReachTheFileThroughAceAlone) {
  strategy_.initLogStrategy(param_);
  std::thread([] { ACE_ERROR((LM_ERROR, "%D %M (%t) straight to ACE\n")); }).join();
  EXPECT_THAT(readFile(path_), EndsWith(" straight to ACE\n"));
  EXPECT_EQ(messages().size(), 1U);
  ACE_ERROR((LM_ERROR, "from main\n"));
  {
    const AceThread thread([] { ACE_ERROR((LM_ERROR, "from one that inherits\n")); });
  }
  EXPECT_THAT(readFile(path_), EndsWith(" straight to ACE\nfrom main\nfrom one that inherits\n"));
}

TEST_F(LogThreads, ReachTheFileThroughAceAfterOneWasCancelledInItsRecord) {
  strategy_.initLogStrategy(param_);
  cancelIn([] { ACE_ERROR((LM_ERROR, "whole\n")); });
  ACE_ERROR((LM_ERROR, "after\n"));
  EXPECT_EQ(readFile(path_), "whole\nafter\n");
}

TEST_F(LogThreads, AreCancelledAfterTheSettingsAreApplied) {
  cancelIn([&] { strategy_.initLogStrategy(param_); });
  kit_.error(1, "f", 2, "after");
  EXPECT_THAT(readFile(path_), EndsWith("] after\n"));
}

TEST_F(LogThreads, AreCancelledAfterTheLookAtTheFile) {
  strategy_.initLogStrategy(param_);
  kit_.error(1, "f", 2, "before");
  cancelIn([] { qov::FileStrategy(1, 2).handle_timeout(ACE_Time_Value::zero, nullptr); });
  kit_.error(1, "f", 2, "after");
  EXPECT_THAT(readFile(path_ + ".1"), EndsWith("] before\n"));
  EXPECT_THAT(readFile(path_), EndsWith("] after\n"));
}

TEST_F(LogThreads, ReachTheFileThroughAceAfterItsStreamWasMadeToFail) {
  strategy_.initLogStrategy(param_);
  LogStateKeeper::log().msg_ostream()->setstate(std::ios_base::badbit);
  ACE_ERROR((LM_ERROR, "from main\n"));
  EXPECT_EQ(readFile(path_), "from main\n");
}

/// A program's own destination beside ours.
class CountingBackend : public ACE_Log_Msg_Backend {
 public:
  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record&) override {
    ++records_;
    return 0;
  }
  int records_ = 0;
};

TEST_F(LogThreads, ReachTheFileBesideABackendOfTheProgram) {
  CountingBackend backend;
  ACE_Log_Msg_Backend* const before = ACE_Log_Msg::msg_backend(&backend);
  LogStateKeeper::log().set_flags(ACE_Log_Msg::CUSTOM);
  strategy_.initLogStrategy(param_);
  std::thread([this] { kit_.error(1, "f", 2, "to both"); }).join();
  ACE_Log_Msg::msg_backend(before);
  EXPECT_EQ(backend.records_, 1);
  EXPECT_THAT(readFile(path_), EndsWith("] to both\n"));
}

TEST_F(LogThreads, ReachTheFileWhenTheBackendIsGone) {
  strategy_.initLogStrategy(param_);
  ACE_Log_Msg_Backend* const before = ACE_Log_Msg::msg_backend(nullptr);  // as ACE does at the end
  std::thread([this] { kit_.error(1, "f", 2, "late"); }).join();
  ACE_Log_Msg::msg_backend(before);
  EXPECT_THAT(readFile(path_), EndsWith("] late\n"));
}

TEST_F(LogThreads, KeepAStreamOfTheirOwn) {
  strategy_.initLogStrategy(param_);
  std::ostringstream own;
  std::thread([&] {
    LogStateKeeper::log().msg_ostream(&own, false);
    kit_.error(1, "f", 2, "to my own");
    LogStateKeeper::log().msg_ostream(nullptr, false);
  }).join();
  EXPECT_THAT(own.str(), EndsWith("] to my own\n"));
  EXPECT_EQ(readFile(path_), "");
}

TEST_F(LogThreads, FollowALevelAtOnce) {
  param_.logLevel_ = 5;
  strategy_.initLogStrategy(param_);
  std::promise<void> silent;
  std::promise<void> raised;
  std::thread thread([&] {
    kit_.debug(1, "f", 2, "off");
    silent.set_value();
    raised.get_future().wait();
    kit_.debug(1, "f", 2, "on");
  });
  silent.get_future().wait();
  param_.logLevel_ = 0;
  strategy_.initLogStrategy(param_);
  raised.set_value();
  thread.join();
  EXPECT_EQ(messages().count("off"), 0U);
  EXPECT_EQ(messages().count("on"), 1U);
}

}  // namespace
