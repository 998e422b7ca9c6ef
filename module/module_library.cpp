#include "module/module_library.h"

#include <ace/DLL_Manager.h>
#include <cxxabi.h>
#include <dlfcn.h>
#include <link.h>

#include <cstdlib>
#include <memory>
#include <string>

#include <qovpub/qov_common_debugkit.h>

#include "diag/log_ids.h"
#include "task/module_context.h"

namespace qov {
namespace {

/// The library that holds `address`; null when there is none.
const link_map* libraryOf(const void* address) {
  Dl_info info;
  void* map = nullptr;
  return ::dladdr1(address, &info, &map, RTLD_DL_LINKMAP) != 0 ? static_cast<link_map*>(map)
                                                               : nullptr;
}

/// Whether `library` has an entry function of its own, not only in a library that it needs.
bool isModule(const link_map& library) {
  if (*library.l_name == '\0') {
    return false;  // the executable
  }
  void* const handle = ::dlopen(library.l_name, RTLD_LAZY | RTLD_NOLOAD);
  if (handle == nullptr) {
    return false;
  }
  const void* const entry = ::dlsym(handle, kEntryFunction);
  ::dlclose(handle);
  return entry != nullptr && libraryOf(entry) == &library;
}

std::string nameOf(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return name != nullptr ? name.get() : type.name();
}

}  // namespace

void ModuleLibrary::set(CQOV_TaskMgr& manager, ACE_DLL_Handle& library) {
  link_map* map = nullptr;
  if (::dlinfo(library.get_handle(), RTLD_DI_LINKMAP, &map) == 0) {
    ModuleContext::of(manager).library_ = map;
  }
}

void ModuleLibrary::checkClass(CQOV_TaskMgr& manager, const std::type_info& type) {
  std::atomic<const link_map*>& library = ModuleContext::of(manager).library_;
  const link_map* own = library;
  const link_map* const found = own == nullptr ? nullptr : libraryOf(&type);
  if (found == nullptr || found == own || !isModule(*found)) {
    return;
  }
  own = library.exchange(nullptr);
  CQOVDebugKit* const kit = CQOVDebugKitMgr::instance()->find(0);
  if (own != nullptr && kit != nullptr) {
    kit->warn(log_id::kForeignClass, __FUNCTION__, __LINE__,
              "Module " + manager.name() + " runs code of another module: its class " +
                  nameOf(type) + " comes from " + found->l_name + ", not from " + own->l_name +
                  ". Where both have a class of that name, qov_add_module() keeps them apart.");
  }
}

}  // namespace qov
