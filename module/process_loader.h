#ifndef QOV_MODULE_PROCESS_LOADER_H
#define QOV_MODULE_PROCESS_LOADER_H

#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>

#include <new>

#include <qovpub/qov_module_loader.h>

namespace qov {

/// The one loader of the process. Throws std::bad_alloc where ACE gives null.
inline CQOV_Module_Loader& processLoader() {
  CQOV_Module_Loader* const loader =
      ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance();
  if (loader == nullptr) {
    throw std::bad_alloc();
  }
  return *loader;
}

}  // namespace qov

#endif
