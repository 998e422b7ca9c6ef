#include "tests/tools/qovctl_fixture.h"

#include <unistd.h>

#include <cstring>

#include "tests/support/spawn.h"

namespace qov::test {
namespace {

/// Whether qovctl reads it. The one who runs the tests may have it set.
bool isRead(const std::string& variable) {
  for (const char* start : {"QOV_ROOT=", "QOVCTL_", "XDG_CONFIG_HOME=", "HOME="}) {
    if (variable.compare(0, std::strlen(start), start) == 0) {
      return true;
    }
  }
  return false;
}

std::vector<char*> environmentWith(std::vector<std::string>& more) {
  std::vector<char*> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (!isRead(*variable)) {
      variables.push_back(*variable);
    }
  }
  for (std::string& variable : more) {
    variables.push_back(variable.data());
  }
  variables.push_back(nullptr);
  return variables;
}

}  // namespace

void QovctlTest::start(const std::vector<std::string>& arguments, const std::string& input) {
  BeforeProgram before;
  before.readFrom(STDIN_FILENO, file("stdin", input));
  before.writeTo(STDERR_FILENO, files_.file("stderr"));
  if (outputFile_.empty()) {
    before.close(STDOUT_FILENO);
  } else {
    before.writeTo(STDOUT_FILENO, outputFile_);
  }
  before.changeDirectory(working_.path());
  pid_ = spawn(program_, arguments, before, environmentWith(variables_).data());
}

QovctlRun QovctlTest::finish() {
  const Ending ending = waitForEndOf(pid_);
  EXPECT_TRUE(ending.ended);
  QovctlRun run{ending.exitStatus, ending.signal, {}, errors()};
  if (outputFile_ == files_.file("stdout")) {
    run.out = readFile(outputFile_);
  }
  return run;
}

}  // namespace qov::test
