// A module whose gid, name and misbehaviour come from its compile definitions:
//   QOV_TEST_NAME  the name in its events
//   QOV_TEST_GID   its gid
//   QOV_TEST_INIT  what initEnv() does: a statement
//   QOV_TEST_GATED_FACTORY  if defined, its worker is made when the gate is open
//   QOV_TEST_OWN_THREAD  if defined, it has a thread in its group, which its destructor alone ends
//   QOV_TEST_POLICY  if defined, what ACE does with the library when it is closed; it has a static
//                    object then
#include <ace/DLL_Manager.h>
#include <ace/Thread_Manager.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <string>

#include "tests/module/libs/events.h"
#include "tests/module/libs/opcodes.h"

namespace {

void record(const std::string& event) {
  qov::test::recordEvent(QOV_TEST_NAME " " + event);
}

std::string contentOf(const CQOV_MsgPackage& package) {
  const auto* const om = dynamic_cast<const CQOV_OM_MsgPackage*>(&package);
  return om != nullptr && om->get() != nullptr ? "an inner package"
                                               : std::to_string(package.count()) + " records";
}

#ifdef QOV_TEST_OWN_THREAD
ACE_THR_FUNC_RETURN waitForTheEnd(void*) {
  qov::test::waitAtGate();
  record("thread ends");
  return nullptr;
}
#endif

class Worker : public CQOV_CommonTask {
 public:
  explicit Worker(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}

  int handleMessage(CQOV_MsgPackage& package) override {
    const unsigned long long opc = package.head().opc_;
    record("got " + std::to_string(opc) + " with " + contentOf(package));
    if (opc == qov::test::kWaitAtGate) {
      qov::test::waitAtGate();
    }
    return 0;
  }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(QOV_TEST_GID, 1, QOV_TEST_NAME) { record("created"); }
  ~Module() override {
    record("deleted");
#ifdef QOV_TEST_OWN_THREAD
    qov::test::openGate();
#endif
  }

  CQOV_Task* createTask() override {
#ifdef QOV_TEST_GATED_FACTORY
    qov::test::waitAtGate();
#endif
    return new Worker(this);
  }

  bool initEnv() override {
    record("initialised");
#ifdef QOV_TEST_OWN_THREAD
    ACE_Thread_Manager::instance()->spawn(&waitForTheEnd, nullptr, THR_NEW_LWP | THR_JOINABLE,
                                          nullptr, nullptr, ACE_DEFAULT_THREAD_PRIORITY, gid());
#endif
    QOV_TEST_INIT;
  }
};

}  // namespace

#ifdef QOV_TEST_POLICY
namespace {

struct Static {
  ~Static() { record("static object gone"); }
};

const Static object;

}  // namespace

extern "C" __attribute__((visibility("default"))) int _get_dll_unload_policy() {
  return QOV_TEST_POLICY;
}
#endif

QOV_MODULE(Module)
