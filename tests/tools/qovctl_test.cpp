#include "tests/tools/qovctl_test.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace qov::test {
namespace {

/// What happens in the child before the program begins.
class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void open(int descriptor, const std::string& file, int flags) {
    ::posix_spawn_file_actions_addopen(&actions_, descriptor, file.c_str(), flags, 0600);
  }
  void close(int descriptor) { ::posix_spawn_file_actions_addclose(&actions_, descriptor); }
  void changeDirectory(const std::string& to) {
    ::posix_spawn_file_actions_addchdir_np(&actions_, to.c_str());
  }
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

std::vector<char*> environmentWithoutRoot() {
  std::vector<char*> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "QOV_ROOT=", 9) != 0) {
      variables.push_back(*variable);
    }
  }
  variables.push_back(nullptr);
  return variables;
}

}  // namespace

void QovctlTest::start(const std::vector<std::string>& arguments, const std::string& input) {
  std::vector<std::string> words{QOVCTL};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  constexpr int kWrite = O_WRONLY | O_CREAT | O_TRUNC;
  FileActions actions;
  actions.open(STDIN_FILENO, file("stdin", input), O_RDONLY);
  actions.open(STDERR_FILENO, files_.file("stderr"), kWrite);
  if (outputFile_.empty()) {
    actions.close(STDOUT_FILENO);
  } else {
    actions.open(STDOUT_FILENO, outputFile_, kWrite);
  }
  actions.changeDirectory(working_.path());
  if (::posix_spawn(&pid_, QOVCTL, actions.get(), nullptr, pointers.data(),
                    environmentWithoutRoot().data()) != 0) {
    pid_ = -1;
    throw std::runtime_error("cannot start qovctl");
  }
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
