#ifndef QOV_TOOLS_QOVCTL_FAILURE_H
#define QOV_TOOLS_QOVCTL_FAILURE_H

#include <stdexcept>
#include <string>

#include "modules/common/controls.h"

namespace qov::ctl {

/// How the program ends.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,         ///< the machine's fault: a file, the output, memory
  kUsage = 2,          ///< the command line
  kProblems = kUsage,  ///< of a check: the set-up has some
  kNoConnection = 3,   ///< no connection, or it was lost before the reply was there
  kTimedOut = 4,       ///< no reply in time
  kEndpointError = 5,  ///< the endpoint refused the request
  kBadData = 6,        ///< the input or a reply is not what it should be
  kIncomplete = 7,     ///< a walk whose table may have more, or a bundle that lacks something
};

/// Ends a command; what() is the one line for standard error.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& why) : std::runtime_error(why), code_(code) {}

  ExitCode code() const noexcept { return code_; }

 private:
  ExitCode code_;
};

/// Writes "qovctl: " and the text as one line to standard error; control characters, which may come
/// from input, in hexadecimal form.
void complain(const std::string& text);

using common::shortened;

}  // namespace qov::ctl

#endif
