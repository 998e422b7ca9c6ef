#ifndef QOV_TESTS_TOOLS_QOVCTL_FIXTURE_H
#define QOV_TESTS_TOOLS_QOVCTL_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/process_end.h"

namespace qov::test {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// How a run of qovctl ended and what it wrote.
struct QovctlRun {
  int status = -1;  ///< -1 when it did not exit
  int signal = 0;
  std::string out;
  std::string err;
};

/// Runs qovctl, in an empty directory and without the variables that it reads. A process that is
/// still there at the end is killed.
class QovctlTest : public ::testing::Test {
 protected:
  ~QovctlTest() override { killChild(pid_); }

  /// Runs it to its end with `input` as standard input.
  QovctlRun run(const std::vector<std::string>& arguments, const std::string& input = {}) {
    start(arguments, input);
    return finish();
  }
  void start(const std::vector<std::string>& arguments, const std::string& input = {});
  QovctlRun finish();
  void send(int signum) const { ::kill(pid_, signum); }
  bool waitForError(const std::string& text) const {
    return waitUntil([&] { return errors().find(text) != std::string::npos; });
  }

  bool waitForOutput(const std::string& text) const {
    return waitUntil([&] { return output().find(text) != std::string::npos; });
  }
  std::string output() const { return readFile(outputFile_); }

  /// For the next starts: the name two.test has the addresses ::1 and 127.0.0.1, in this order.
  void knowsTwo() { program_ = QOVCTL_KNOWING_TWO; }
  /// For the next start: standard output is that file, or closed.
  void writesTo(const std::string& file) { outputFile_ = file; }
  void hasNoOutput() { outputFile_.clear(); }

  /// For the next starts: these variables, "NAME=value", and no others that qovctl reads.
  void sets(std::vector<std::string> variables) { variables_ = std::move(variables); }

  std::string file(const std::string& name, const std::string& content) const {
    writeFile(files_.path() / name, content);
    return files_.file(name);
  }
  /// Where qovctl runs.
  const std::filesystem::path& workingDirectory() const { return working_.path(); }

 private:
  std::string errors() const { return readFile(files_.path() / "stderr"); }

  const TemporaryDirectory files_;
  const TemporaryDirectory working_;
  std::string program_ = QOVCTL;
  std::vector<std::string> variables_;
  std::string outputFile_ = files_.file("stdout");
  pid_t pid_ = -1;
};

/// qovctl beside what another fixture starts.
class Qovctl : public QovctlTest {
 public:
  using QovctlTest::finish;
  using QovctlTest::run;
  using QovctlTest::send;
  using QovctlTest::start;
  using QovctlTest::writesTo;

 private:
  void TestBody() override {}
};

}  // namespace qov::test

#endif
