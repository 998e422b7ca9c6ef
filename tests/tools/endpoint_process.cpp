#include "tests/tools/endpoint_process.h"

#include "tests/support/spawn.h"

namespace qov::test {
namespace {

const std::string kListening = "listening on ";

}  // namespace

void EndpointProcess::spawn(const std::vector<std::string>& arguments) {
  killChild(pid_);
  pid_ = -1;
  BeforeProgram before;
  before.writeTo(STDOUT_FILENO, path("stdout"));
  if (hasErrors_) {
    before.writeTo(STDERR_FILENO, path("stderr"));
  } else {
    before.close(STDERR_FILENO);
  }
  if (files_ == 0) {
    pid_ = qov::test::spawn(QOV_ENDPOINT, arguments, before);
    return;
  }
  std::vector<std::string> words{
      "-c", "ulimit -n " + std::to_string(files_) + R"( && exec "$0" "$@")", QOV_ENDPOINT};
  words.insert(words.end(), arguments.begin(), arguments.end());
  pid_ = qov::test::spawn("/bin/sh", words, before);
}

bool EndpointProcess::start(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"--port", std::to_string(port_)});
  spawn(arguments);
  return waitUntil([&] { return hasLine() || hasEnded(); }) && readPort();
}

bool EndpointProcess::hasEnded() const {
  siginfo_t ended = {};
  ::waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
  return ended.si_pid != 0;
}

/// From the first line, which has to be exactly as documented.
bool EndpointProcess::readPort() {
  const std::string line = output().substr(0, output().find('\n'));
  const std::string begin = kListening + host_ + ":";
  if (line.compare(0, begin.size(), begin) != 0) {
    return false;
  }
  const unsigned long port = std::stoul(line.substr(begin.size()));
  port_ = static_cast<std::uint16_t>(port);
  return port != 0 && line == begin + std::to_string(port);
}

Ending EndpointProcess::run(const std::vector<std::string>& arguments) {
  spawn(arguments);
  return waitForEnd();
}

}  // namespace qov::test
