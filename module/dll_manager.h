#ifndef QOV_MODULE_DLL_MANAGER_H
#define QOV_MODULE_DLL_MANAGER_H

#include <ace/DLL_Manager.h>

namespace qov {

/// ACE's manager of shared libraries, with room for 1024.
ACE_DLL_Manager& dllManager();

/// Opens the library `name` as ACE decorates and searches it, binding lazily, its symbols visible
/// to the libraries that are opened later; null when it cannot be opened. Each success is counted
/// and undone by one close_dll() with the handle's dll_name(), which stays good after that.
ACE_DLL_Handle* openLibrary(const char* name);

}  // namespace qov

#endif
