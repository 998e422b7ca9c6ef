#include "module/module_shutdown.h"

#include <cstdlib>

#include <qovplatform/platform_guard.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_module_loader.h>

#include "frame/shutdown_supervision.h"

namespace qov {

void ModuleShutdown::stopAll() {
  if (getCurrentTask() != nullptr) {
    return;
  }
  CQOV_Module_Loader* const loader =
      ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance();
  if (loader == nullptr) {
    return;
  }
  if (CQOV_Module_Loader::loading_ != nullptr || loader->holdsModules()) {
    MonitorGuard monitor(kShutdownSeconds);
    shutdownBegins(monitor);
    // exit() in a module's start has left this thread in the middle of that, with the table held.
    loader->endInterruptedLoad();
    loader->unload();
    loader->stopLeftovers();
  }
}

void ModuleShutdown::stopAtExit() {
  // A registration that fails leaves the frame's own call.
  static_cast<void>(std::atexit(&ModuleShutdown::stopAll));
}

}  // namespace qov
