#ifndef QOV_MODULE_MODULE_ENTRY_H
#define QOV_MODULE_MODULE_ENTRY_H

#include <ace/DLL_Manager.h>

#include <cstdint>
#include <memory>

#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_task_mgr.h>

#include "task/running_managers.h"

/// One loaded module: its manager, and the library that the manager's code lives in.
struct CQOV_Module_Loader::ModuleEntry {
  /// Stops and deletes the module, and tells the others, which may wait for its answers.
  void end() {
    const auto id = static_cast<std::uint8_t>(taskMgr->moduleId());
    taskMgr.reset();
    qov::RunningManagers::tellEnded(id);
  }

  ManagerPtr taskMgr;
  /// Belongs to ACE's DLL manager, which keeps handle and name even after the library is closed.
  ACE_DLL_Handle* dll = nullptr;
};

#endif
