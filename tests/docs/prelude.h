// What the C++ blocks of README.md and docs/ may use without showing it: everything that is public,
// and these few names. A block is the body of a member function of a Page, unless it begins with an
// include (then it is a file of its own) or with a member function of MyTask.
#include <qovpub/qov_app.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_log.h>
#include <qovpub/qov_long_socket.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_periodic_task.h>
#include <qovpub/qov_plugins.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_stats.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_testkit.h>
#include <qovpub/qov_utility.h>
#include <qovpub/qov_version.h>
#include <qovpub/qov_xml.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class MyTask : public CQOV_Task {
 public:
  using CQOV_Task::CQOV_Task;
  void notifyExit() override;

 private:
  CQOVLongSocket link_;
};

struct MyModule : CQOV_TaskMgr {
  MyModule() : CQOV_TaskMgr(42, 1, "mine") {}
  CQOV_Task* createTask() override { return nullptr; }
};

struct MyWorker : CQOV_CommonTask {
  using CQOV_CommonTask::CQOV_CommonTask;
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
};

struct Page : CQOV_Task {
  using CQOV_Task::CQOV_Task;

  template <class Anything>
  static void use(const Anything&) {}
  static void say(const std::string&) {}
  static void expect(bool) {}
  static std::vector<unsigned char> read() { return {}; }

  static constexpr std::uint64_t command = 1;
  CT7QPackageV3 package;
  QOVTestKit kit{42};
  MyWorker worker{kit.module()};
};
