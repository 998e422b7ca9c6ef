#include "tests/process/agent_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "tests/support/counts.h"

namespace qov::test {
namespace {

void redirect(const std::filesystem::path& file, int descriptor) {
  const int opened = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  ::dup2(opened, descriptor);
  ::close(opened);
}

std::string firstLineOf(const std::filesystem::path& file) {
  const std::string text = readFile(file);
  return text.substr(0, text.find('\n'));
}

std::filesystem::path procOf(pid_t process) {
  return "/proc/" + std::to_string(process);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

}  // namespace

AgentProcess::AgentProcess(const std::filesystem::path& program)
    : program_(program), root_(program.stem()) {
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  root_.writeConfig();
  for (char** variable = environ; *variable != nullptr; ++variable) {
    environment_.emplace_back(*variable);
  }
  setEnvironment("QOV_ROOT", root_.path());
  setEnvironment("LD_LIBRARY_PATH", QOV_TEST_AGENT_LIBRARIES);
}

AgentProcess::~AgentProcess() {
  killChild(started_);
  if (daemon_ < 0) {
    findDaemon();
  }
  killChild(daemon_);
}

void AgentProcess::setEnvironment(const std::string& name, const std::string& value) {
  const std::string start = name + "=";
  for (auto variable = environment_.begin(); variable != environment_.end(); ++variable) {
    if (variable->compare(0, start.size(), start) == 0) {
      environment_.erase(variable);
      break;
    }
  }
  environment_.push_back(start + value);
}

void AgentProcess::useModules(const std::vector<std::string>& modules) {
  for (const std::string& module : modules) {
    root_.addModule("qovp_" + module);
  }
}

void AgentProcess::run(const std::string& program, const std::vector<std::string>& arguments) {
  started_ = ::fork();
  if (started_ == 0) {
    become(program, arguments);
  }
}

void AgentProcess::become(const std::string& program, const std::vector<std::string>& arguments) {
  redirect(root_.path() / "stdout", STDOUT_FILENO);
  redirect(root_.path() / "stderr", STDERR_FILENO);
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  prepare_();
  ::execve(program.c_str(), pointers(words).data(), pointers(environment_).data());
  ::_exit(127);
}

void AgentProcess::send(int signum) {
  const pid_t target = daemon_ > 0 ? daemon_ : started_;
  // A number of 0 or below would be every process there is.
  if (target <= 0) {
    throw std::logic_error("no agent to send a signal to");
  }
  ::kill(target, signum);
}

bool AgentProcess::catches(int signum) const {
  return isIn("SigCgt:\t", signum);
}

bool AgentProcess::hasTaken(int signum) const {
  return !isIn("ShdPnd:\t", signum);
}

bool AgentProcess::isIn(const std::string& mask, int signum) const {
  const std::string status = readFile(procOf(started_) / "status");
  const std::size_t place = status.find(mask);
  return place != std::string::npos &&
         (std::stoull(status.substr(place + mask.size()), nullptr, 16) >> (signum - 1) & 1U) != 0;
}

std::size_t AgentProcess::peakKilobytes() const {
  return static_cast<std::size_t>(numberBehind("VmHWM:", readFile(procOf(started_) / "status")));
}

std::multiset<std::string> AgentProcess::threadNames() const {
  std::multiset<std::string> names;
  for (const auto& task : std::filesystem::directory_iterator(procOf(started_) / "task")) {
    names.insert(firstLineOf(task.path() / "comm"));
  }
  return names;
}

std::string AgentProcess::mainThreadName() const {
  return firstLineOf(procOf(started_) / "comm");
}

long AgentProcess::waitsOf(const std::string& threadName) const {
  for (const auto& task : std::filesystem::directory_iterator(procOf(started_) / "task")) {
    const std::string status = readFile(task.path() / "status");
    if (!status.empty() && firstLineOf(task.path() / "comm") == threadName) {
      return numberBehind("\nvoluntary_ctxt_switches:", status);
    }
  }
  return 0;
}

long AgentProcess::ticksOf(const std::string& threadName) const {
  for (const auto& task : std::filesystem::directory_iterator(procOf(started_) / "task")) {
    if (firstLineOf(task.path() / "comm") == threadName) {
      const std::string stat = readFile(task.path() / "stat");
      // The 14th and 15th field; the second one, the name, ends with ")".
      std::istringstream fields(stat.substr(stat.rfind(')') + 1));
      std::string skipped;
      for (int i = 3; i < 14; ++i) {
        fields >> skipped;
      }
      long user = 0;
      long system = 0;
      fields >> user >> system;
      return user + system;
    }
  }
  return 0;
}

bool AgentProcess::waitForStop() const {
  return waitUntil([&] {
    const std::filesystem::directory_iterator all(procOf(started_) / "task");
    return std::all_of(begin(all), end(all), [](const std::filesystem::directory_entry& task) {
      return readFile(task.path() / "status").find("\nState:\tT") != std::string::npos;
    });
  });
}

bool AgentProcess::waitForLog(const std::string& text) {
  return waitUntil([&] { return log().find(text) != std::string::npos; });
}

bool AgentProcess::waitForFile(const std::string& name) {
  return waitUntil([&] { return std::filesystem::exists(root_.path() / name); });
}

void AgentProcess::makeFile(const std::string& name) {
  AgentRoot::write(root_.path() / name, "");
}

Ending AgentProcess::waitForEnd(std::chrono::seconds most) {
  return waitForEndOf(started_, most);
}

bool AgentProcess::findDaemon() {
  const std::string pid = state("pid");
  daemon_ = pid.empty() ? -1 : static_cast<pid_t>(std::stol(pid));
  if (daemon_ == started_) {
    daemon_ = -1;
  }
  return daemon_ > 0;
}

Ending AgentProcess::waitForDaemonEnd() {
  return waitForEndOf(daemon_);
}

bool AgentProcess::daemonIsThere() const {
  siginfo_t ended{};
  return daemon_ > 0 &&
         ::waitid(P_PID, static_cast<id_t>(daemon_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == 0;
}

std::string AgentProcess::state(const std::string& key) const {
  std::istringstream lines(readFile(root_.path() / "state"));
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, key.size() + 1, key + " ") == 0) {
      return line.substr(key.size() + 1);
    }
  }
  return {};
}

}  // namespace qov::test
