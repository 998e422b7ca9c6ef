#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "tests/support/files.h"
#include "tests/support/process_end.h"
#include "tests/support/sanitizers.h"
#include "tests/support/spawn.h"

namespace qov::test {
namespace {

class LoggingProgram : public ::testing::Test {
 protected:
  void runs(const std::string& mode) {
    pid_t pid = spawn(QOV_LOGGING_PROGRAM, {log_, mode}, BeforeProgram());
    const Ending ending = waitForEndOf(pid);
    killChild(pid);
    ASSERT_TRUE(ending.ended) << "hangs";
    ASSERT_EQ(ending.signal, 0);
    ASSERT_EQ(ending.exitStatus, 0);
  }

  const TemporaryDirectory directory_;
  const std::string log_ = directory_.file("x.log");
};

TEST_F(LoggingProgram, EndsInOrderWhileDetachedThreadsLog) {
  const int runs = QOV_TEST_ASAN || QOV_TEST_TSAN ? 20 : 100;
  for (int run = 0; run < runs && !HasFatalFailure(); ++run) {
    this->runs("return");
  }
}

TEST_F(LoggingProgram, EndsInOrderWhileThreadsStart) {
  const int runs = QOV_TEST_ASAN || QOV_TEST_TSAN ? 20 : 300;
  for (int run = 0; run < runs && !HasFatalFailure(); ++run) {
    this->runs("start");
  }
}

/// What a line says: all behind the head of a record, the whole of a line of ACE's.
std::string messageOf(const std::string& line) {
  const std::size_t head = line.rfind("] ");
  return head == std::string::npos ? line : line.substr(head + 2);
}

/// Returns from main while twelve records are under way, which go on when the test lets them.
class SlowLoggingProgram : public LoggingProgram {
 protected:
  static constexpr int kRecords = 12;

  SlowLoggingProgram() {
    const std::string input = directory_.file("input");
    EXPECT_EQ(::mkfifo(input.c_str(), 0600), 0);
    writer_.open(input, std::ios::in | std::ios::out);  // does not wait for the other end
    BeforeProgram before;
    before.readFrom(0, input);
    pid_ = spawn(QOV_LOGGING_PROGRAM, {log_, "slow"}, before);
  }
  ~SlowLoggingProgram() override { killChild(pid_); }

  bool waitForLines(int count) const {
    return waitUntil([&] {
      const std::string text = readFile(log_);
      return std::count(text.begin(), text.end(), '\n') == count;
    });
  }

  void letOneThrough() { writer_ << 'x' << std::flush; }

  std::fstream writer_;
  pid_t pid_ = -1;
};

TEST_F(SlowLoggingProgram, FinishesRecordsThatTakeLongerThanItsPatienceTogether) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kPatience(3000);
  constexpr auto kPause = kPatience * 3 / 2 / kRecords;
  ASSERT_TRUE(waitForLines(1)) << "main returns";
  auto last = Clock::now();
  for (int record = 1; record <= kRecords; ++record) {
    std::this_thread::sleep_for(kPause);  // the slowness that the test is about
    letOneThrough();
    if (Clock::now() - last > kPatience / 2) {
      GTEST_SKIP() << "this machine is too busy to be slow on purpose";
    }
    last = Clock::now();
    ASSERT_TRUE(waitForLines(1 + record));
  }
  const Ending ending = waitForEndOf(pid_);
  EXPECT_EQ(ending.signal, 0);
  EXPECT_EQ(ending.exitStatus, 0);
}

TEST_F(SlowLoggingProgram, EndsAllTheSameWhenNoRecordComesThrough) {
  const Ending ending = waitForEndOf(pid_);
  EXPECT_TRUE(ending.ended) << "hangs";
  EXPECT_EQ(ending.signal, 0);
  EXPECT_EQ(ending.exitStatus, 0);
}

TEST_F(LoggingProgram, LogsFromChildrenThatItForksWhileItsThreadsLog) {
  const int children = QOV_TEST_ASAN || QOV_TEST_TSAN ? 200 : 1000;
  runs(std::to_string(children));
  std::map<std::string, int> lines;
  std::ifstream file(log_);
  for (std::string line; std::getline(file, line);) {
    ++lines[messageOf(line)];
  }
  lines.erase("thread 0");
  lines.erase("straight to ACE");
  EXPECT_EQ(lines["parent 0"], 1);
  for (int number = 0; number < children; ++number) {
    EXPECT_EQ(lines["child " + std::to_string(number)], 1);
    EXPECT_EQ(lines["child straight to ACE " + std::to_string(number)], 1);
  }
  EXPECT_EQ(lines.size(), 2U * static_cast<unsigned>(children) + 1) << "none is torn";
}

TEST_F(LoggingProgram, ForksWhileABackendOfAcesLooksForAKit) {
  runs("backend");
}

}  // namespace
}  // namespace qov::test
