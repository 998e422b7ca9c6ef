#include "diag/log_options.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

class LogOptionsTest : public testing::Test {
 protected:
  /// All options, a blank between them.
  static std::string optionsOf(const CLogging_Cfg_Param& param) {
    qov::LogOptions options(param);
    EXPECT_EQ(options.argv()[options.argc()], nullptr);
    std::string all;
    for (int i = 0; i < options.argc(); ++i) {
      all += (i > 0 ? " " : "") + std::string(options.argv()[i]);
    }
    return all;
  }

  static std::string prioritiesOf(int level) {
    CLogging_Cfg_Param param;
    param.logLevel_ = level;
    const std::string options = optionsOf(param);
    return options.substr(options.find("-p ") + 3);
  }

  static void setLogFile(CLogging_Cfg_Param& param, const char* path) {
    std::snprintf(param.logFile_, sizeof(param.logFile_), "%s", path);
  }
};

TEST_F(LogOptionsTest, HasSevenRowsByDefault) {
  EXPECT_EQ(optionsOf(CLogging_Cfg_Param()),
            "-f OSTREAM -s /var/log/KRV/NoSetLogFile.log -i 600 -m 10240 -N 3 -o -p "
            "~SHUTDOWN|~TRACE|~DEBUG|INFO|NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|"
            "~EMERGENCY");
}

TEST_F(LogOptionsTest, HasOneRowForTheTerminal) {
  CLogging_Cfg_Param param;
  for (const int value : {1, -1}) {
    param.sendTerminal_ = value;
    EXPECT_EQ(optionsOf(param), "-f STDERR");
  }
}

TEST_F(LogOptionsTest, PrintsNumbersInDecimal) {
  CLogging_Cfg_Param param;
  setLogFile(param, "/x");
  param.chkInterval_ = 0;
  param.logFileMaxSize_ = 2147483647;
  param.logFileMaxCnt_ = -1;
  EXPECT_EQ(optionsOf(param).substr(0, 45), "-f OSTREAM -s /x -i 0 -m 2147483647 -N -1 -o ");
}

TEST_F(LogOptionsTest, HasTheLongestFileNameWhole) {
  CLogging_Cfg_Param param;
  const std::string longest = "/" + std::string(254, 'x');
  setLogFile(param, longest.c_str());
  EXPECT_EQ(optionsOf(param).find("-s " + longest + " -i"), 11U);
}

TEST_F(LogOptionsTest, LeavesOutAnOptionThatWouldTakeTheNextForItsValue) {
  CLogging_Cfg_Param param;
  setLogFile(param, "");
  EXPECT_EQ(optionsOf(param).substr(0, 18), "-f OSTREAM -i 600 ");
}

TEST_F(LogOptionsTest, MapsEveryLevelToPriorities) {
  EXPECT_EQ(prioritiesOf(0),
            "~SHUTDOWN|TRACE|DEBUG|INFO|NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY");
  EXPECT_EQ(
      prioritiesOf(1),
      "~SHUTDOWN|~TRACE|DEBUG|INFO|NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY");
  EXPECT_EQ(
      prioritiesOf(2),
      "~SHUTDOWN|~TRACE|~DEBUG|INFO|NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY");
  EXPECT_EQ(prioritiesOf(3), prioritiesOf(2));
  EXPECT_EQ(prioritiesOf(4),
            "~SHUTDOWN|~TRACE|~DEBUG|~INFO|~NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|"
            "~EMERGENCY");
  EXPECT_EQ(prioritiesOf(5),
            "~SHUTDOWN|~TRACE|~DEBUG|~INFO|~NOTICE|~WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|"
            "~EMERGENCY");
}

TEST_F(LogOptionsTest, TakesLevelsOutOfRangeForTheNearest) {
  EXPECT_EQ(prioritiesOf(-1), prioritiesOf(0));
  EXPECT_EQ(prioritiesOf(6), prioritiesOf(5));
}

}  // namespace
