#include "module/dll_manager.h"

#include <ace/Framework_Component.h>
#include <ace/OS_NS_dlfcn.h>

namespace qov {
namespace {

constexpr int kLibraries = 1024;

}  // namespace

ACE_DLL_Manager& dllManager() {
  // ACE would make this repository when it closes the first library: the lock that guards the making
  // inside the library's lock. At the end of the process it takes the two the other way round.
  ACE_Framework_Repository::instance();
  return *ACE_DLL_Manager::instance(kLibraries);
}

ACE_DLL_Handle* openLibrary(const char* name) {
  return dllManager().open_dll(name, RTLD_LAZY | RTLD_GLOBAL, nullptr);
}

}  // namespace qov
