#ifndef QOV_FRAME_APP_APP_DAEMON_H
#define QOV_FRAME_APP_APP_DAEMON_H

#include <chrono>
#include <string>
#include <string_view>

#include "frame/app/start_page.h"

namespace qov {

/// How long a daemon may take until its modules run.
constexpr std::chrono::seconds kStartLimit{450};

/// Makes a daemon of this process: works in `directory`, all descriptors closed and 0 to 2 on
/// /dev/null, the same file mode mask and limits. SIGHUP stays ignored, as ACE leaves it. Returns
/// in the daemon, which says through the page whether it runs.
///
/// The calling process waits for that. It writes the complaints to standard error and exits with
/// status 0, or with 1 when the daemon failed, ended, or took longer than `limit`. SIGINT and
/// SIGTERM that it gets meanwhile go to the daemon.
///
/// Null, with errno set, when the system can fork no process: nothing has changed then and the
/// caller goes on in the foreground. A stop signal that came meanwhile comes to the caller again.
StartPagePtr becomeDaemon(const std::string& directory,
                          std::chrono::milliseconds limit = kStartLimit);

/// Writes `line` to the system's log, facility daemon.
void tellSystemLog(std::string_view line);

}  // namespace qov

#endif
