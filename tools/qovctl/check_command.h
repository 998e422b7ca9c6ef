#ifndef QOV_TOOLS_QOVCTL_CHECK_COMMAND_H
#define QOV_TOOLS_QOVCTL_CHECK_COMMAND_H

#include <string>

namespace qov::ctl {

struct CheckOptions {
  std::string root;     ///< empty: what "QOV_ROOT" says
  std::string process;  ///< empty: each that has a configuration file
  bool create = false;  ///< have the modules' objects made
  double timeout = 10;  ///< seconds for opening a library
};

/// Tells on standard error what a start would complain of. Throws Failure when there is a problem.
void check(const CheckOptions& options);

}  // namespace qov::ctl

#endif
