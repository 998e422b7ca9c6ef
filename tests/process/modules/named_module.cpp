// A module with a thread of every kind.
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <memory>

namespace {

constexpr unsigned int kGid = 255;

class Worker : public CQOV_CommonTask {
 public:
  explicit Worker(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
};

class StaticTask : public CQOV_StaticSchecheduledTask {
 public:
  explicit StaticTask(CQOV_TaskMgr* mgr) : CQOV_StaticSchecheduledTask(mgr) {}
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
  void getOpcList(std::list<unsigned long long>&) override {}
};

class Module : public CQOV_TaskMgr {
 public:
  Module()
      : CQOV_TaskMgr(kGid, 2, "named"),
        static_(this),
        own_(this),
        christened_(this),
        shortened_(this) {}
  CQOV_Task* createTask() override { return new Worker(this); }

  bool initEnv() override {
    const char* names[] = {"christened"};
    const char* tooLong[] = {"m255-sixteen-abc"};
    return insertStaticScheduledTask(&static_) == 0 &&
           own_.activate(kFlags, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, kGid) == 0 &&
           shortened_.activate(kFlags, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, kGid, nullptr, nullptr,
                               nullptr, nullptr, nullptr, tooLong) == 0 &&
           christened_.activate(kFlags, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, kGid, nullptr, nullptr,
                                nullptr, nullptr, nullptr, names) == 0;
  }

 private:
  static constexpr long kFlags = THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED;

  StaticTask static_;
  Worker own_;
  Worker christened_;
  Worker shortened_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
