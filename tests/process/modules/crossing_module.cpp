// A module whose initialisation closes a plug-in on one thread while it opens another one on its
// own, in a static constructor, that is to say while the dynamic loader lets no other thread in.
// QOV_TEST_CLOSING says how the first one is closed: id, name, all or registry.
#include <dlfcn.h>
#include <qovpub/qov_plugins.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_utility.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "tests/process/modules/agent_files.h"

namespace {

constexpr const char* kClosed = "qovp_plugin";
constexpr const char* kOpened = "qovp_other_plugin";
constexpr u_int kClosedId = 1;
constexpr u_int kOpenedId = 2;

class Binder : public CQOV_PluginOperator {
 public:
  bool init(ACE_DLL_Handle*) override { return true; }
};

bool logHas(const std::string& text) {
  std::ifstream log(QOV_Utility::getProcessLogFileName());
  const std::string all{std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>()};
  return all.find(text) != std::string::npos;
}

bool open(const char* name, u_int id) {
  Binder binder;
  return CQOV_Plugins::instance()->open(name, binder, id);
}

void close() {
  const std::string way = std::getenv("QOV_TEST_CLOSING");
  if (way == "id") {
    CQOV_Plugins::instance()->remove(kClosedId);
  } else if (way == "name") {
    CQOV_Plugins::instance()->remove(kClosed);
  } else if (way == "all") {
    CQOV_Plugins::instance()->clear();
  } else {
    CQOV_Plugins::close();
  }
}

bool opened = false;

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(44, 0, "crossing") {}
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    if (!open(kClosed, kClosedId)) {
      return false;
    }
    std::thread closer([] {
      if (qov::test::waitForFile("constructing")) {
        close();
      }
    });
    void* const library = ::dlopen("libqovp_constructing.so", RTLD_NOW);
    closer.join();
    return library != nullptr && opened;
  }
};

}  // namespace

extern "C" void qov_test_while_constructing() {
  qov::test::makeFile("constructing");
  // The other thread tells this before it closes the library, for which it needs the loader.
  while (!logHas(std::string("Remove plugin name is ") + kClosed + "!")) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  opened = open(kOpened, kOpenedId);
}

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
