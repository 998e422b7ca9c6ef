#ifndef QOV_TOOLS_QOVCTL_STREAMS_H
#define QOV_TOOLS_QOVCTL_STREAMS_H

#include <string>
#include <string_view>

namespace qov::ctl {

/// The content of `file`, or of standard input for "-". Throws Failure.
std::string readInput(const std::string& file);

/// Writes to standard output. Throws Failure when that fails; a reader that is gone ends the
/// program by SIGPIPE, as usual.
void print(std::string_view text);
/// Has all that was printed written; throws as well.
void finishOutput();

}  // namespace qov::ctl

#endif
