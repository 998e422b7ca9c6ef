#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_app.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>
#include <qovpub/qov_utility.h>

#include <csignal>
#include <cstdlib>

#include "tests/support/agent_root.h"
#include "tests/support/failing_allocations.h"

using ::testing::HasSubstr;

namespace {

/// The process reads its configuration once, so this test is alone in its program.
class Reload : public ::testing::Test {
 protected:
  Reload() {
    ::setenv("QOV_ROOT", root.path().c_str(), 1);
    root.writeConfig();
  }

  static std::string processName() {
    std::string name;
    CProcInfo::getProcName(name);
    return name;
  }

  /// Reloads with memory for no allocation, for one, and so on until it takes no more.
  void reloadWithEverMoreMemory() {
    bool ranOut = true;
    for (long allocations = 0; ranOut; ++allocations) {
      const auto failing = qov::test::FailingAllocations::ofThoseThatThrow(allocations);
      EXPECT_EQ(handler.handle_signal(SIGUSR1), 0);
      ranOut = failing.hasFailed();
    }
  }

  bool logs(const std::string& text) {
    CQOVDebugKitGuard guard(0, "bool Reload::logs(const std::string&)");
    guard.info(1, __FUNCTION__, __LINE__, "%s", text.c_str());
    return qov::test::readFile(root.logFile()).find(text) != std::string::npos;
  }

  AgentRoot root{processName()};
  CQOV_Logging_Strategy strategy;
  SigintHandler handler{&strategy};
};

TEST_F(Reload, WithoutMemoryLeavesTheLogAsItIs) {
  // The first time the process does not even know its own name and files yet.
  reloadWithEverMoreMemory();
  EXPECT_TRUE(logs("the log was set up"));
  reloadWithEverMoreMemory();
  EXPECT_TRUE(logs("the log goes on"));
}

}  // namespace
