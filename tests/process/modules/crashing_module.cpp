// A module that crashes once there is the file "go". QOV_TEST_CRASH says on which of its threads:
// "worker", "static", "leader" or "own" (one that the module has made itself); or "main", in the
// module's start. QOV_TEST_CRASH_HOW says how: "write" to page 1 of the address space, "recursion"
// or "abort".
#include <pthread.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

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

void crash() {
  qov::test::waitForFile("go");
  const std::string how = std::getenv("QOV_TEST_CRASH_HOW");
  volatile std::uintptr_t address = 0x1008;
  if (how == "write") {
    *reinterpret_cast<volatile char*>(address) = 1;
  } else if (how == "recursion") {
    volatile int deeper = 1;
    recurse(&deeper);
  } else {
    std::abort();
  }
}

void crashIfAt(const std::string& thread) {
  if (thread == std::getenv("QOV_TEST_CRASH")) {
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
    if (std::string(std::getenv("QOV_TEST_CRASH")) != "worker") {
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
