#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>

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
