#include "module/module_shutdown.h"

#include <cxxabi.h>

#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_module_loader.h>

#include "module/shutdown_watch.h"

namespace qov {
namespace {

/// Whether this thread is taking its registration back, which runs the handler once.
thread_local bool registering = false;

void stopUnlessRegistering(void*) {
  if (!registering) {
    ModuleShutdown::stopAll();
  }
}

}  // namespace

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
    ShutdownWatch watch;
    watch.begins();
    // exit() in a module's start has left this thread in the middle of that, with the table held.
    loader->endInterruptedLoad();
    loader->unload();
    loader->stopLeftovers();
  }
}

void ModuleShutdown::stopAtExit() {
  // Exit handlers are kept for each library, and all of a library's are run and forgotten when it
  // goes. This token stands for a library that has nothing but this one handler: to let it go is
  // the only way to take a handler back. Where exit() runs on another thread, it has the handler
  // already or misses it only in between; the loader's own end stops the modules then.
  static char token;
  registering = true;
  abi::__cxa_finalize(&token);
  registering = false;
  // A registration that fails leaves the frame's own call.
  static_cast<void>(abi::__cxa_atexit(&stopUnlessRegistering, nullptr, &token));
}

}  // namespace qov
