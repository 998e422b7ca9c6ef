#include <gtest/gtest.h>
#include <qovpub/qov_app.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

/// A command line as main() gets it.
class CommandLine {
 public:
  explicit CommandLine(std::vector<std::string> words) : words_(std::move(words)) {
    for (std::string& word : words_) {
      argv_.push_back(word.data());
    }
    argv_.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(words_.size()); }
  char** argv() { return argv_.data(); }
  const std::vector<std::string>& words() const { return words_; }
  const std::vector<char*>& pointers() const { return argv_; }

 private:
  std::vector<std::string> words_;
  std::vector<char*> argv_;
};

class AppOptions : public ::testing::Test {
 protected:
  AppOptions() { CQOVapp::bDeaemonize_ = true; }
  ~AppOptions() override {
    CQOVapp::bDeaemonize_ = true;
    ::unsetenv("POSIXLY_CORRECT");
  }

  static bool makesADaemon(std::vector<std::string> words) {
    CommandLine line(std::move(words));
    CQOVapp app;
    app.parse_args(line.argc(), line.argv());
    return CQOVapp::bDeaemonize_;
  }
};

TEST_F(AppOptions, MakeADaemonByThemselves) {
  EXPECT_TRUE(makesADaemon({"agent"}));
}

TEST_F(AppOptions, StayInTheForegroundWithN) {
  EXPECT_FALSE(makesADaemon({"agent", "-n"}));
}

TEST_F(AppOptions, TakeNAnywhere) {
  EXPECT_FALSE(makesADaemon({"agent", "word", "-", "-n"}));
}

TEST_F(AppOptions, TakeNAfterTwoDashes) {
  EXPECT_FALSE(makesADaemon({"agent", "--", "-n"}));
}

TEST_F(AppOptions, TakeNAmongOtherLetters) {
  EXPECT_FALSE(makesADaemon({"agent", "-xny"}));
}

TEST_F(AppOptions, TakeNBehindAWordUnderPosixlyCorrect) {
  ::setenv("POSIXLY_CORRECT", "1", 1);
  EXPECT_FALSE(makesADaemon({"agent", "word", "-n"}));
}

TEST_F(AppOptions, TakeNoOtherWordForN) {
  EXPECT_TRUE(makesADaemon({"-n", "n", "--n", "--now", "-x", "-", "", "--", "N", "-N"}));
}

TEST_F(AppOptions, LeaveTheCommandLineAsItIs) {
  CommandLine line({"agent", "word", "-x", "--", "-n", "last"});
  const std::vector<std::string> words = line.words();
  const std::vector<char*> pointers = line.pointers();
  CQOVapp app;
  app.parse_args(line.argc(), line.argv());
  EXPECT_EQ(line.words(), words);
  EXPECT_EQ(line.pointers(), pointers);
}

TEST_F(AppOptions, SurviveAnEmptyCommandLine) {
  CQOVapp app;
  app.parse_args(0, nullptr);
  char* none[] = {nullptr};
  app.parse_args(0, none);
  EXPECT_TRUE(CQOVapp::bDeaemonize_);
}

}  // namespace
