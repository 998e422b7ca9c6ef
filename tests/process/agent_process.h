#ifndef QOV_TESTS_PROCESS_AGENT_PROCESS_H
#define QOV_TESTS_PROCESS_AGENT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/agent_root.h"
#include "tests/support/process_end.h"

namespace qov::test {

/// One run of an agent, the test agent unless told otherwise, in a root directory of its own. A
/// process that is still there when the object goes is killed.
///
/// Daemons are collected by this process, too (it makes itself their reaper), so that the way they
/// end is seen.
class AgentProcess {
 public:
  explicit AgentProcess(const std::filesystem::path& program = QOV_TEST_AGENT);
  ~AgentProcess();

  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  AgentRoot& root() { return root_; }
  const std::string& program() const { return program_; }
  /// Of the process that was started.
  pid_t pid() const { return started_; }

  /// For the next start.
  void setEnvironment(const std::string& name, const std::string& value);
  void useModules(const std::vector<std::string>& modules);
  /// Runs in the child before the agent does; async-signal-safe calls only.
  void prepareChild(std::function<void()> prepare) { prepare_ = std::move(prepare); }

  void start(const std::vector<std::string>& arguments) { run(program_, arguments); }
  /// Starts another program in the agent's place, with its environment.
  void run(const std::string& program, const std::vector<std::string>& arguments);

  /// Sends to the daemon if there is one, else to the process that was started.
  void send(int signum);

  /// Whether the process that was started has a handler for the signal.
  bool catches(int signum) const;

  /// Whether it has begun with a signal that was sent to it.
  bool hasTaken(int signum) const;

  /// The names of the threads of the process that was started, and its main thread's.
  std::multiset<std::string> threadNames() const;
  std::string mainThreadName() const;
  /// The most memory that the process that was started has had so far, in kilobytes.
  std::size_t peakKilobytes() const;
  /// How often the thread of that name has waited for something so far; 0 when there is none.
  long waitsOf(const std::string& threadName) const;
  /// For how long it has run so far, in the system's clock ticks; 0 when there is none.
  long ticksOf(const std::string& threadName) const;

  /// Until every thread of the process that was started stands still, after a SIGSTOP.
  bool waitForStop() const;
  bool waitForLog(const std::string& text);
  bool waitForFile(const std::string& name);
  void makeFile(const std::string& name);

  /// The end of the process that was started.
  Ending waitForEnd(std::chrono::seconds most = kGenerous);

  /// Learns the daemon's process id from the module "state".
  bool findDaemon();
  Ending waitForDaemonEnd();
  /// Whether it has not ended; one that has not been collected has.
  bool daemonIsThere() const;

  /// The value of `key` in what the module "state" has written.
  std::string state(const std::string& key) const;
  std::string log() const { return readFile(root_.logFile()); }
  std::string output() const { return readFile(root_.path() / "stdout"); }
  std::string errors() const { return readFile(root_.path() / "stderr"); }
  /// What it has told the system's log.
  std::string systemLog() const { return readFile(root_.path() / "syslog"); }

 private:
  /// Whether the signal is in that mask of the process that was started.
  bool isIn(const std::string& mask, int signum) const;
  [[noreturn]] void become(const std::string& program, const std::vector<std::string>& arguments);

  std::string program_;
  AgentRoot root_;
  std::vector<std::string> environment_;
  std::function<void()> prepare_ = [] {};
  pid_t started_ = -1;
  pid_t daemon_ = -1;
};

}  // namespace qov::test

#endif
