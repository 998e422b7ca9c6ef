#include "module/module_shutdown.h"

#include <cstdlib>

#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_module_loader.h>

namespace qov {

void ModuleShutdown::stopAll() {
  if (getCurrentTask() != nullptr) {
    return;
  }
  CQOV_Module_Loader* const loader =
      ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance();
  if (loader != nullptr && loader->holdsModules()) {
    loader->unload();
    loader->stopLeftovers();
  }
}

void ModuleShutdown::stopAtExit() {
  // A registration that fails leaves the frame's own call.
  static_cast<void>(std::atexit(&ModuleShutdown::stopAll));
}

}  // namespace qov
