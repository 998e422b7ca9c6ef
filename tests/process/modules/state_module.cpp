// A module that writes down the state of its process as a module finds it. If QOV_TEST_WAIT is set
// it then waits for the file "go", and fails to initialise if that says "then fail".
#include <dlfcn.h>
#include <qovpub/qov_task_mgr.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "tests/process/modules/agent_files.h"

namespace {

bool isBlocked(int signum) {
  sigset_t mask;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  return sigismember(&mask, signum) == 1;
}

mode_t currentMask() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

/// How often the process has called close(), which the agent's own one counts.
long closes() {
  const auto count =
      static_cast<const std::atomic<long>*>(::dlsym(RTLD_DEFAULT, "qov_test_closes"));
  return count == nullptr ? -1 : count->load();
}

/// Open descriptors that lead to a file with `text` in its name.
int descriptorsTo(const std::string& text) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    const std::string target = std::filesystem::read_symlink(entry, ignored);
    count += target.find(text) == std::string::npos ? 0 : 1;
  }
  return count;
}

std::string state() {
  std::ostringstream out;
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  out << "pid " << ::getpid() << "\nparent " << ::getppid() << "\nsession " << ::getsid(0)
      << "\ndirectory " << std::filesystem::current_path().string() << "\numask " << currentMask()
      << "\nlimit " << limit.rlim_cur << "\nsigint_blocked " << isBlocked(SIGINT)
      << "\nsigusr1_blocked " << isBlocked(SIGUSR1) << "\nsigpipe_blocked " << isBlocked(SIGPIPE)
      << "\nhidden_descriptors " << descriptorsTo("qov_left_open") << "\ncloses " << closes()
      << "\nstdout " << std::filesystem::read_symlink("/proc/self/fd/1").string() << "\n";
  return out.str();
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(40, 0, "state") {}
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    qov::test::makeFile("state", state());
    const char* const wait = std::getenv("QOV_TEST_WAIT");
    return wait == nullptr || (qov::test::waitForFile("go") && std::string(wait) != "then fail");
  }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
