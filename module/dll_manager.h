#ifndef QOV_MODULE_DLL_MANAGER_H
#define QOV_MODULE_DLL_MANAGER_H

#include <ace/DLL_Manager.h>

#include <memory>
#include <string>

namespace qov {

/// Opens the library `name` as ACE decorates and searches it, binding lazily, its symbols visible
/// to the libraries that are opened later; null when it cannot be opened, and `whyNot` says why.
/// Each success is counted and undone by one closeLibrary(). A name has one handle, whoever opens
/// it first.
///
/// Thread: any, as for closeLibrary(). Both wait for the dynamic loader, which may be running a
///         library's static constructor: a lock that such a one may want is not held meanwhile.
ACE_DLL_Handle* openLibrary(const char* name, std::string& whyNot);

/// The path of the file that `library` was opened from.
std::string pathOf(ACE_DLL_Handle& library);

/// Takes one opening of `library` back. The handle and its name stay good after that.
void closeLibrary(const ACE_DLL_Handle& library);

struct CloseLibrary {
  void operator()(const ACE_DLL_Handle* library) const { closeLibrary(*library); }
};
using LibraryPtr = std::unique_ptr<ACE_DLL_Handle, CloseLibrary>;

}  // namespace qov

#endif
