#include "tests/modules/status/tmux.h"

#include <gtest/gtest.h>

#include <exception>

#include "tests/support/process_end.h"
#include "tests/support/spawn.h"

namespace qov::test {
namespace {

constexpr const char* kConfiguration = R"(set -g status off
set -g default-terminal screen
set -g default-shell /bin/sh
)";

/// The exit status of tmux with these arguments, which writes to `output`.
int runTmux(const std::vector<std::string>& arguments, const std::string& output) {
  // Also where the tests run in one.
  std::vector<std::string> words{"-u", "TMUX", "tmux"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  BeforeProgram before;
  before.readFrom(STDIN_FILENO, "/dev/null");
  before.writeTo(STDOUT_FILENO, output);
  before.writeTo(STDERR_FILENO, output + ".err");
  pid_t pid = spawn("/usr/bin/env", words, before);
  const Ending ending = waitForEndOf(pid);
  killChild(pid);
  return ending.exitStatus;
}

}  // namespace

bool Tmux::isInstalled() {
  const TemporaryDirectory folder;
  return runTmux({"-V"}, folder.file("version")) == 0;
}

Tmux::Tmux(int columns, int rows) {
  writeFile(folder_.path() / "tmux.conf", kConfiguration);
  run({"new-session", "-d", "-c", folder_.path(), "-x", std::to_string(columns), "-y",
       std::to_string(rows), "env LC_ALL=C.UTF-8 PS1='$ ' HISTFILE= bash --norc --noprofile -i"});
}

Tmux::~Tmux() {
  try {
    // Without a server, which a test may have ended, it fails.
    runTmux({"-S", folder_.file("server"), "kill-server"}, folder_.file("output"));
  } catch (const std::exception& e) {
    ADD_FAILURE() << "tmux goes on: " << e.what();
  }
}

void Tmux::type(const std::string& text) const {
  run({"send-keys", "-l", text});
}

void Tmux::resize(int columns, int rows) const {
  run({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(rows)});
}

bool Tmux::shows(const std::string& text) const {
  return waitUntil([&] { return screen().find(text) != std::string::npos; });
}

std::string Tmux::run(std::vector<std::string> command) const {
  command.insert(command.begin(), {"-S", folder_.file("server"), "-f", folder_.file("tmux.conf")});
  const std::string output = folder_.file("output");
  EXPECT_EQ(runTmux(command, output), 0)
      << "tmux " << command[4] << ": " << readFile(output + ".err");
  return readFile(folder_.path() / "output");
}

}  // namespace qov::test
