#ifndef QOV_MODULE_MODULE_LIST_H
#define QOV_MODULE_MODULE_LIST_H

#include <list>
#include <string>
#include <vector>

#include "frame/env/failure.h"

namespace qov {

/// The modules that a configuration directory marks.
struct ModuleList {
  std::list<std::string> names;  ///< in the directory's order
  std::vector<Failure> ignored;  ///< files that someone may have meant to be markers
  Failure failure;               ///< why there are no names; without a cause when there are some
  bool isOpen = true;            ///< whether the directory could be read
};

/// Those of `directory`, which ends with a slash. Throws std::bad_alloc.
ModuleList modulesOf(const std::string& directory);

/// The file that marks `module` in `directory`.
std::string markerOf(const std::string& directory, const std::string& module);

}  // namespace qov

#endif
