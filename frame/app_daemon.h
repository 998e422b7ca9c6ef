#ifndef QOV_FRAME_APP_DAEMON_H
#define QOV_FRAME_APP_DAEMON_H

#include <string>

namespace qov {

/// Makes a daemon of this process: works in `directory`, all descriptors closed and 0 to 2 on
/// /dev/null. The calling process and a child of it exit with status 0; the caller goes on as a
/// grandchild with the same file mode mask and limits. SIGHUP stays ignored, as ACE leaves it.
///
/// Failures are not reported. When the first fork fails nothing has changed and the caller goes on
/// in the foreground; when the second one does, both processes have exited and no daemon is left.
void becomeDaemon(const std::string& directory);

}  // namespace qov

#endif
