#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "tests/diag/log_in_file.h"
#include "tests/diag/process_root.h"

// What the log says about its own settings.

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

class LogLines : public LogInFile {
 protected:
  /// The five keys with values that can be meant, then `lines`, of which the last ones count.
  static void configure(const std::string& lines) {
    ProcessRoot::configure(
        "SendTerminal=0\nChkInterval=600\nLogFileMaxSize=10240\nLogFileMaxCnt=3\nLogLevel=2\n" +
        lines);
  }

  void init() { strategy_.initLogStrategy(nullptr, path_.c_str()); }
  void reload() { strategy_.reloadLogStrategy(nullptr, path_.c_str()); }

  /// Tag and message of each record in the log, without their origin.
  std::vector<std::string> records() const { return recordsIn(path_); }
  static std::vector<std::string> recordsIn(const std::string& path) {
    std::vector<std::string> all;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
      const std::size_t tag = line.find("][", line.find("][") + 2) + 2;
      all.push_back(line.substr(tag, line.find(']', tag) - tag) + " " +
                    line.substr(line.find("] ", line.find("[][")) + 2));
    }
    return all;
  }

  static std::string warning(const std::string& key, const std::string& why) {
    return "WARN Failed to take a value as it stands: " + ProcessRoot::cfgFile() + ": LOG_CFG/" +
           key + ": " + why;
  }
};

TEST_F(LogLines, NameEachValueThatCannotBeMeantAndWhatIsTaken) {
  configure("LogFileMaxSize=10MB\nLogLevel=verbose\n");
  init();
  EXPECT_THAT(records(),
              ElementsAre(warning("LogFileMaxSize", "\"10MB\" is no whole number, 10 is taken"),
                          warning("LogLevel", "\"verbose\" is no whole number, 0 is taken")));
}

TEST_F(LogLines, NameEachValueOutOfRangeAndWhatIsTaken) {
  const std::vector<std::pair<std::string, std::string>> values = {
      {"SendTerminal=no", "no whole number, 0"},
      {"SendTerminal=", "no whole number, 0"},
      {"ChkInterval=-1", "out of range, 0"},
      {"ChkInterval=2147483648", "out of range, 2147483647"},
      {"ChkInterval=60s", "no whole number, 60"},
      {"LogFileMaxSize=-1", "out of range, 0"},
      {"LogFileMaxSize=99999999999999999999", "out of range, 2147483647"},
      {"LogFileMaxSize=1.5", "no whole number, 1"},
      {"LogFileMaxCnt=0", "out of range, 1"},
      {"LogFileMaxCnt=many", "no whole number, 1"},
      {"LogLevel=-1", "out of range, 0"}};
  for (const auto& [line, why] : values) {
    fs::remove(path_);
    configure(line + "\n");
    init();
    const std::string key = line.substr(0, line.find('='));
    const std::string value = line.substr(key.size() + 1);
    EXPECT_THAT(records(), ElementsAre(warning(key, "\"" + value + "\" is " + why + " is taken")));
  }
}

TEST_F(LogLines, SayNothingOfValuesJustWithinTheirRange) {
  for (const char* const line :
       {"ChkInterval=0", "ChkInterval=2147483647", "LogFileMaxSize=0", "LogFileMaxSize=2147483647",
        "LogFileMaxCnt=1", "LogFileMaxCnt=2147483647", "LogLevel=0", "LogLevel=+1",
        "LogLevel=\" 2\""}) {
    configure(std::string(line) + "\n");
    init();
    EXPECT_THAT(records(), IsEmpty()) << line;
  }
}

TEST_F(LogLines, NameALevelAboveTheHighestWhereItCanBeSeen) {
  configure("LogLevel=9\n");
  init();
  EXPECT_THAT(records(), IsEmpty()) << "it counts as 5, which lets no warning through";
  configure("SendTerminal=1\nLogLevel=9\n");
  testing::internal::CaptureStderr();
  LogStateKeeper::log().priority_mask(LM_WARNING, ACE_Log_Msg::PROCESS);
  init();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("LOG_CFG/LogLevel: \"9\" is out of range, 5 is taken\n"));
}

TEST_F(LogLines, NameAValueOnceForEachReading) {
  configure("LogFileMaxSize=10MB\n");
  init();
  init();
  EXPECT_EQ(records().size(), 2U);
  configure("");
  init();
  EXPECT_EQ(records().size(), 2U);
}

TEST_F(LogLines, SayWhatIsInForceAfterAReload) {
  configure("LogLevel=1\nChkInterval=7\nLogFileMaxSize=8\nLogFileMaxCnt=9\n");
  init();
  EXPECT_THAT(records(), IsEmpty()) << "only a reload is told";
  reload();
  EXPECT_THAT(records(), ElementsAre("INFO Log settings in force: LogLevel 1, file " + path_ +
                                     ", LogFileMaxSize 8 KB, LogFileMaxCnt 9, ChkInterval 7 s"));
}

TEST_F(LogLines, SayThatRecordsGoToStandardErrorAfterAReload) {
  configure("");
  init();
  configure("SendTerminal=1\nLogLevel=0\n");
  testing::internal::CaptureStderr();
  reload();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("] Log settings in force: standard error, levels as they were, from INFO "
                        "up\n"));
}

TEST_F(LogLines, NameStandardErrorInThePlaceOfAFileThatAReloadCannotOpen) {
  configure("");
  testing::internal::CaptureStderr();
  strategy_.reloadLogStrategy(nullptr, (path_ + "/missing.log").c_str());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("] Log settings in force: LogLevel 2, standard error, LogFileMaxSize "
                        "10240 KB, LogFileMaxCnt 3, ChkInterval 600 s\n"));
  reload();
  EXPECT_THAT(records().back(), HasSubstr("LogLevel 2, file " + path_));
}

TEST_F(LogLines, NameTheMovedFileThatRecordsGoOnToWhenAReloadCannotOpenTheLog) {
  const fs::path place = fs::canonical(directory_.path());
  const std::string folder = place / "logs";
  const std::string file = folder + "/x.log";
  const std::string moved = place / "moved/x.log";
  fs::create_directory(folder);
  configure("");
  strategy_.initLogStrategy(nullptr, file.c_str());
  fs::rename(folder, place / "moved");
  strategy_.reloadLogStrategy(nullptr, file.c_str());
  EXPECT_THAT(recordsIn(moved),
              ElementsAre("ERR Failed to open the log: " + file + ": there is no directory " +
                              folder + "/; records go to " + moved,
                          "INFO Log settings in force: LogLevel 2, file " + moved +
                              ", LogFileMaxSize 10240 KB, LogFileMaxCnt 3, ChkInterval 600 s"));
}

TEST_F(LogLines, NameStandardErrorInThePlaceOfADeletedFileThatAReloadCannotOpenAnew) {
  const std::string folder = directory_.file("logs");
  const std::string file = folder + "/x.log";
  fs::create_directory(folder);
  configure("");
  strategy_.initLogStrategy(nullptr, file.c_str());
  fs::remove_all(folder);
  testing::internal::CaptureStderr();
  strategy_.reloadLogStrategy(nullptr, file.c_str());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::AllOf(HasSubstr("/; records go to standard error\n"),
                             HasSubstr(" in force: LogLevel 2, standard error, ")));
  reload();
  EXPECT_THAT(records(), testing::Contains(EndsWith("could not be written: 2")));
}

TEST_F(LogLines, NameTheMovedPipeThatRecordsGoOnToWhenAReloadCannotOpenTheLog) {
  const fs::path place = fs::canonical(directory_.path());
  const std::string pipe = place / "pipes/x.log";
  const std::string moved = place / "moved/x.log";
  fs::create_directory(place / "pipes");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  configure("");
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  strategy_.initLogStrategy(nullptr, pipe.c_str());
  fs::rename(place / "pipes", place / "moved");
  strategy_.reloadLogStrategy(nullptr, pipe.c_str());
  std::string come(4096, '\0');
  come.resize(static_cast<std::size_t>(std::max<ssize_t>(0, ::read(reader, come.data(), 4096))));
  ::close(reader);
  EXPECT_THAT(come, testing::AllOf(HasSubstr("; records go to " + moved + "\n"),
                                   HasSubstr(" in force: LogLevel 2, file " + moved + ", ")));
  reload();
}

TEST_F(LogLines, NameStandardErrorInThePlaceOfAPipeThatNobodyReadsAnyMore) {
  const std::string pipe = directory_.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  configure("");
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  strategy_.initLogStrategy(nullptr, pipe.c_str());
  ::close(reader);
  auto* const before = ::signal(SIGPIPE, SIG_IGN);  // as agents do
  testing::internal::CaptureStderr();
  strategy_.reloadLogStrategy(nullptr, pipe.c_str());
  ::signal(SIGPIPE, before);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::AllOf(HasSubstr("while nobody reads it; records go to standard error\n"),
                             HasSubstr(" in force: LogLevel 2, standard error, ")));
  reload();
}

TEST_F(LogLines, SayWhyAReloadHasChangedNothing) {
  configure("");
  init();
  ProcessRoot::configure("SendTerminal=1\nChkInterval=2\nLogFileMaxSize=3\nLogLevel=5\n");
  reload();
  EXPECT_THAT(records(), ElementsAre("WARN Failed to configure the log: " + ProcessRoot::cfgFile() +
                                     ": LOG_CFG/LogFileMaxCnt: there is no such key; the log stays "
                                     "as it is"));
}

TEST_F(LogLines, NameTheFaultyLineThatAReloadHasMet) {
  configure("");
  init();
  ProcessRoot::configure("no equals sign\n");
  reload();
  ASSERT_EQ(records().size(), 1U);
  EXPECT_THAT(records()[0], HasSubstr(ProcessRoot::cfgFile() + ":4: "));
  EXPECT_THAT(records()[0], testing::StartsWith("WARN "));
}

}  // namespace
