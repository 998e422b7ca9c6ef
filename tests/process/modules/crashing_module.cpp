// A module that crashes once there is the file "go". QOV_TEST_CRASH says on which of its threads:
// "worker", "static", "leader" or "own" (one that the module has made itself); "main", in the
// module's start; or "two", a worker and its own, at once. QOV_TEST_CRASH_HOW says how: "write" to
// page 1 of the address space, "recursion", "call" through a null pointer, "abort", a system call
// that is "refused", in a thread that is to be cancelled ("cancelled"), or in a "child" that the
// thread forks; the file "child" says by which signal that ended.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>
#include <thread>

#include "tests/process/modules/agent_files.h"
#include "tests/process/modules/own_message.h"

namespace {

constexpr int kGid = 50;

/// What the compiler does not turn into a loop.
[[gnu::noinline]] int recurse(volatile int* deeper) {
  volatile int here[256] = {*deeper};
  return *deeper == 0 ? 0 : recurse(here) + here[0];
}

/// Also of two threads at once, which ThreadSanitizer would tell as a race.
__attribute__((no_sanitize("thread"))) void writeToPageOne() {
  volatile std::uintptr_t address = 0x1008;
  *reinterpret_cast<volatile char*>(address) = 1;
}

/// This thread's acct() becomes a SIGSYS.
void callWhatIsRefused() {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_acct, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter{4, steps};
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter);
  ::syscall(SYS_acct, nullptr);
}

void crashInAChild() {
  const pid_t child = ::fork();
  if (child == 0) {
    writeToPageOne();
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  qov::test::makeFile("child", std::to_string(child) + " " + std::to_string(WTERMSIG(status)));
}

void crash() {
  qov::test::waitForFile("go");
  const std::string how = std::getenv("QOV_TEST_CRASH_HOW");
  if (how == "write") {
    writeToPageOne();
  } else if (how == "recursion") {
    volatile int deeper = 1;
    recurse(&deeper);
  } else if (how == "call") {
    void (*volatile nowhere)() = nullptr;
    nowhere();
  } else if (how == "abort") {
    std::abort();
  } else if (how == "refused") {
    callWhatIsRefused();
  } else if (how == "child") {
    crashInAChild();
  } else {
    ::pthread_cancel(::pthread_self());
    writeToPageOne();
  }
}

void crashIfAt(const std::string& thread) {
  const std::string crashing = std::getenv("QOV_TEST_CRASH");
  if (crashing == "two" && (thread == "worker" || thread == "own")) {
    static std::atomic<int> here{0};
    for (++here; here < 2;) {
    }
    crash();
  } else if (thread == crashing) {
    crash();
  }
}

class Worker : public CQOV_CommonTask {
 public:
  explicit Worker(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}
  int handleMessage(CQOV_MsgPackage&) override {
    crashIfAt("worker");
    return 0;
  }
};

class Static : public CQOV_StaticSchecheduledTask {
 public:
  using CQOV_StaticSchecheduledTask::CQOV_StaticSchecheduledTask;

  int putMsg(int type, ACE_Message_Block* block, ACE_Time_Value* timeout) override {
    crashIfAt("leader");
    return CQOV_StaticSchecheduledTask::putMsg(type, block, timeout);
  }
  int handleMessage(CQOV_MsgPackage&) override {
    crashIfAt("static");
    return 0;
  }
  void getOpcList(std::list<unsigned long long>& codes) override {
    const std::string crashing = std::getenv("QOV_TEST_CRASH");
    if (crashing != "worker" && crashing != "two") {
      codes.push_back(0);
    }
  }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(kGid, 1, "crashing") {}
  ~Module() override { stop(); }

  CQOV_Task* createTask() override { return new Worker(this); }
  bool initEnv() override {
    crashIfAt("main");
    std::thread([] {
      ::pthread_setname_np(::pthread_self(), "m50-own");
      crashIfAt("own");
    }).detach();
    const bool isInserted = insertStaticScheduledTask(&static_) == 0;
    qov::test::putAMessageTo(
        kGid, [this](ACE_Message_Block* block) { return putq(block, nullptr) != -1; });
    return isInserted;
  }

 private:
  Static static_{this};
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
