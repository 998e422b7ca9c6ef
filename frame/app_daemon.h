#ifndef QOV_FRAME_APP_DAEMON_H
#define QOV_FRAME_APP_DAEMON_H

#include <string>

namespace qov {

/// Makes a daemon of this process: works in `directory`, all descriptors closed and 0 to 2 on
/// /dev/null. The calling process and a child of it exit with status 0; the caller goes on as a
/// grandchild with the same file mode mask and limits. Nothing has changed when it fails.
void becomeDaemon(const std::string& directory);

}  // namespace qov

#endif
