#include "module/dll_manager.h"

#include <ace/OS_NS_dlfcn.h>

namespace qov {
namespace {

constexpr int kLibraries = 1024;

}  // namespace

ACE_DLL_Manager& dllManager() {
  return *ACE_DLL_Manager::instance(kLibraries);
}

ACE_DLL_Handle* openLibrary(const char* name) {
  return dllManager().open_dll(name, RTLD_LAZY | RTLD_GLOBAL, nullptr);
}

}  // namespace qov
