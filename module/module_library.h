#ifndef QOV_MODULE_MODULE_LIBRARY_H
#define QOV_MODULE_MODULE_LIBRARY_H

#include <typeinfo>

class ACE_DLL_Handle;
class CQOV_TaskMgr;

namespace qov {

/// What a module library exports.
constexpr const char* kEntryFunction = "QOV_CreateModule";
constexpr const char* kNoEntryFunction = "the library does not export QOV_CreateModule";

/// Which library a module was opened as. Modules are opened with global symbols: of two classes
/// with one name that two modules show, both run the one that was opened first, without an error.
///
/// Thread: set() on the loading thread, before the module's init(); the rest from any thread.
/// Owns:   nothing; ACE keeps a module's library open as long as its manager lives.
/// Errors: none.
class ModuleLibrary {
 public:
  static void set(CQOV_TaskMgr& manager, ACE_DLL_Handle& library);

  /// Logs at WARN when the class of `object`, which belongs to `manager`, comes from the library of
  /// another module; once for each module. A library that several modules share is nobody's.
  /// Managers that no loader has made are not looked at.
  template <class Object>
  static void check(CQOV_TaskMgr& manager, const Object& object) {
    checkClass(manager, typeid(object));
  }

 private:
  static void checkClass(CQOV_TaskMgr& manager, const std::type_info& type);
};

}  // namespace qov

#endif
