#include "module/dll_manager.h"

#include <ace/OS_NS_dlfcn.h>

namespace qov {
namespace {

/// How many libraries ACE's manager has room for.
constexpr int kLibraries = 1024;

ACE_DLL_Manager& dllManager() {
  return *ACE_DLL_Manager::instance(kLibraries);
}

ACE_DLL_Handle* open(const char* name) {
  return dllManager().open_dll(name, RTLD_LAZY | RTLD_GLOBAL, nullptr);
}

}  // namespace

ACE_DLL_Handle* openLibrary(const char* name) {
  ACE_DLL_Handle* const opened = open(name);
  if (opened == nullptr) {
    return nullptr;
  }
  // Two threads that open a library first at the same time get a handle each, of which ACE finds
  // only one by name. That one counts for both. No lock of our own could prevent it: a library's
  // static constructor may open others, and it runs under the lock of the dynamic loader.
  ACE_DLL_Handle* const found = open(name);
  if (found == opened) {
    found->close();
    return found;
  }
  if (found == nullptr) {
    return opened;
  }
  ACE_OS::dlclose(opened->get_handle(true));
  return found;
}

void closeLibrary(const ACE_DLL_Handle& library) {
  dllManager().close_dll(library.dll_name());
}

}  // namespace qov
