// A module that fails in the way that QOV_TEST_BREAK says.
#include <ace/DLL_Manager.h>
#include <qovpub/qov_long_socket.h>
#include <qovpub/qov_plugins.h>
#include <qovpub/qov_task_mgr.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <dlfcn.h>
#include <unistd.h>

extern "C" CQOV_TaskMgr* QOV_CreateModule();

namespace {

bool is(const std::string& way) {
  const char* const text = std::getenv("QOV_TEST_BREAK");
  return text != nullptr && text == way;
}

unsigned int gidToTake() {
  return is("gid_256") ? 256U : is("gid_taken") ? 1U : 50U;
}

class Refusing : public CQOV_PluginOperator {
 public:
  bool init(ACE_DLL_Handle*) override {
    if (is("plugin_throws")) {
      throw std::runtime_error("the operator's own words");
    }
    return false;
  }
};

/// Opens this library under as many names as ACE has room for.
void useUpTheNames() {
  Dl_info own{};
  ::dladdr(reinterpret_cast<void*>(&QOV_CreateModule), &own);
  std::string name = own.dli_fname;
  while (ACE_DLL_Manager::instance()->open_dll(name.c_str(), RTLD_LAZY, nullptr) != nullptr) {
    name.insert(0, "/");
  }
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(gidToTake(), 1, "broken") {
    if (is("constructor_throws")) {
      throw std::runtime_error("the constructor's own words");
    }
  }
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    endProcess();
    if (is("init_throws")) {
      throw std::runtime_error("the module's own words");
    }
    if (is("init_throws_number")) {
      throw 1;
    }
    if (is("unconnected")) {
      const CQOVLongSocket unconnected;
      return false;
    }
    Refusing refusing;
    if (is("plugin_missing")) {
      return CQOV_Plugins::instance()->open("qovp_no_such_plugin", refusing, 1);
    }
    if (is("plugin_path")) {
      return CQOV_Plugins::instance()->open("/no/such_plugin", refusing, 1);
    }
    if (is("plugin_no_name_left")) {
      useUpTheNames();
      return CQOV_Plugins::instance()->open("qovp_plugin", refusing, 1);
    }
    if (is("plugin_refused") || is("plugin_throws")) {
      return CQOV_Plugins::instance()->open("qovp_plugin", refusing, 1);
    }
    return false;
  }

 private:
  static void endProcess() {
    if (is("exit_0")) {
      std::exit(0);
    }
    if (is("exit_3")) {
      std::exit(3);
    }
    if (is("_exit_4")) {
      ::_exit(4);
    }
    if (is("abort")) {
      std::abort();
    }
    if (is("kill")) {
      ::raise(SIGKILL);
    }
  }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  if (is("entry_throws")) {
    throw std::runtime_error("the entry's own words");
  }
  if (is("entry_kills")) {
    ::raise(SIGKILL);
  }
  if (is("entry_throws_number")) {
    throw 1;
  }
  return is("null") ? nullptr : new Module;
}
