#include <gmock/gmock.h>
#include <qovpub/qov_log.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/diag/log_capture.h"

/// Outside of all namespaces: its signature is easily written by hand.
unsigned int logsByMacros(unsigned int value);

unsigned int logsByMacros(unsigned int value) {
  QOV_GUARD(guard, 0);
  return value;
}

namespace {

using testing::HasSubstr;

class LogMacros : public testing::Test {
 protected:
  ~LogMacros() override { CQOVDebugKitMgr::close(); }

  /// The records so far, from the log id on: the time in front of it goes on.
  std::vector<std::string> records() const {
    std::vector<std::string> records;
    std::istringstream text(capture_.text());
    for (std::string line; std::getline(text, line);) {
      records.push_back(line.substr(line.find("][")));
    }
    return records;
  }

  LogCapture capture_;
};

TEST_F(LogMacros, AGuardTracesTheSignatureThatTheCompilerKnows) {
  logsByMacros(1);
  const std::vector<std::string> byMacro = records();
  capture_.clear();
  { const CQOVDebugKitGuard guard(0, "unsigned int logsByMacros(unsigned int)"); }
  EXPECT_EQ(records(), byMacro);
  EXPECT_EQ(2U, byMacro.size());
}

// Both forms stand in one line of the source, as they must to be compared.
#define EXPECT_SAME(Macro, operation, ...)                                          \
  {                                                                                 \
    Macro(guard, 77, __VA_ARGS__);                                                  \
    guard.operation(77, __FUNCTION__, __LINE__, __VA_ARGS__);                       \
    const std::vector<std::string> both = records();                                \
    ASSERT_EQ(2U, both.size());                                                     \
    EXPECT_EQ(both[1], both[0]);                                                    \
    EXPECT_THAT(both[0], HasSubstr("[TestBody," + std::to_string(__LINE__) + "]")); \
    capture_.clear();                                                               \
  }

TEST_F(LogMacros, WriteWhatTheGuardsOperationsDo) {
  QOV_GUARD(guard, 0);
  capture_.clear();
  EXPECT_SAME(QOV_DEBUG, debug, "%d of %s", 3, "four");
  EXPECT_SAME(QOV_INFO, info, "no argument");
  EXPECT_SAME(QOV_WARN, warn, "%s", "a text");
  EXPECT_SAME(QOV_ERROR, error, "%c", 'x');
}

TEST_F(LogMacros, AWarningMakesTheGuardLeaveWithNok) {
  {
    QOV_GUARD(guard, 0);
    QOV_WARN(guard, 1, "late");
  }
  EXPECT_THAT(capture_.text(), HasSubstr(": NOK\n"));
}

TEST_F(LogMacros, EvaluateTheirArgumentsOnce) {
  int calls = 0;
  QOV_GUARD(guard, 0);
  QOV_INFO(guard, 1, "%d", ++calls);
  EXPECT_EQ(1, calls);
}

}  // namespace
