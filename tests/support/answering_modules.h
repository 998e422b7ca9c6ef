#ifndef QOV_TESTS_SUPPORT_ANSWERING_MODULES_H
#define QOV_TESTS_SUPPORT_ANSWERING_MODULES_H

#include <ace/DLL_Manager.h>
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_task_mgr.h>

#include <cstdint>
#include <stdexcept>

#include "tests/support/agent_root.h"

/// Two loaded modules that answer every request; see answering_module.cpp.
class AnsweringModules {
 public:
  static constexpr std::uint8_t kFirst = 30;
  static constexpr std::uint8_t kSecond = 31;

  /// `root` is what "QOV_ROOT" names.
  explicit AnsweringModules(const AgentRoot& root) {
    root.addModule("qovt_answering_first");
    root.addModule("qovt_answering_second");
    if (!loader().load()) {
      throw std::runtime_error("cannot load the answering modules");
    }
    first_ = managerOf("qovt_answering_first");
    second_ = managerOf("qovt_answering_second");
  }

  ~AnsweringModules() { loader().unload(); }

  AnsweringModules(const AnsweringModules&) = delete;
  AnsweringModules& operator=(const AnsweringModules&) = delete;

  CQOV_TaskMgr* first() const { return first_; }
  CQOV_TaskMgr* second() const { return second_; }

 private:
  static CQOV_TaskMgr* managerOf(const char* name) {
    using Manager = CQOV_TaskMgr* (*)();
    ACE_DLL_Manager& libraries = *ACE_DLL_Manager::instance();
    ACE_DLL_Handle* const library = libraries.open_dll(name, RTLD_LAZY, ACE_SHLIB_INVALID_HANDLE);
    CQOV_TaskMgr* const manager =
        reinterpret_cast<Manager>(library->symbol("qovAnsweringModule"))();
    libraries.close_dll(name);
    return manager;
  }

  static CQOV_Module_Loader& loader() {
    return *ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance();
  }

  CQOV_TaskMgr* first_ = nullptr;
  CQOV_TaskMgr* second_ = nullptr;
};

#endif
