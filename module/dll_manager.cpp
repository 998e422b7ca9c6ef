#include "module/dll_manager.h"

#include <ace/OS_NS_dlfcn.h>
#include <dlfcn.h>
#include <link.h>

#include <vector>

#include "module/library_search.h"

namespace qov {
namespace {

/// How many libraries ACE's manager has room for.
constexpr int kLibraries = 1024;

ACE_DLL_Manager& dllManager() {
  return *ACE_DLL_Manager::instance(kLibraries);
}

ACE_DLL_Handle* open(const char* name, ACE_DLL_Handle::ERROR_STACK* errors = nullptr) {
  return dllManager().open_dll(name, RTLD_LAZY | RTLD_GLOBAL, nullptr, errors);
}

/// The oldest first.
std::vector<std::string> textsOf(ACE_DLL_Handle::ERROR_STACK& errors) {
  std::vector<std::string> texts;
  for (ACE_TString text; errors.pop(text) == 0;) {
    texts.insert(texts.begin(), text.c_str());
  }
  return texts;
}

}  // namespace

ACE_DLL_Handle* openLibrary(const char* name, std::string& whyNot) {
  ACE_DLL_Handle::ERROR_STACK errors;
  ACE_DLL_Handle* const opened = open(name, &errors);
  if (opened == nullptr) {
    const std::vector<std::string> said = textsOf(errors);
    whyNot = said.empty() ? std::to_string(kLibraries) + " library names are in use"
                          : whyNotOpened(name, said);
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

std::string pathOf(ACE_DLL_Handle& library) {
  const link_map* map = nullptr;
  const bool known = ::dlinfo(library.get_handle(), RTLD_DI_LINKMAP, &map) == 0;
  return known && map != nullptr ? map->l_name : library.dll_name();
}

void closeLibrary(const ACE_DLL_Handle& library) {
  dllManager().close_dll(library.dll_name());
}

}  // namespace qov
