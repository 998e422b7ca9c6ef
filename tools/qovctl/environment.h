#ifndef QOV_TOOLS_QOVCTL_ENVIRONMENT_H
#define QOV_TOOLS_QOVCTL_ENVIRONMENT_H

#include <cstdlib>
#include <string>

namespace qov::ctl {

/// The value of an environment variable; empty when it is not set.
inline std::string fromEnvironment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace qov::ctl

#endif
