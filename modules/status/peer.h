#ifndef QOV_MODULES_STATUS_PEER_H
#define QOV_MODULES_STATUS_PEER_H

#include "modules/status/settings.h"

namespace qov::status {

/// Whether the program at the other end of `socket` may ask: it runs as root, as the agent's user,
/// as the configured owner or in the configured group. The socket's mode does not matter, so that
/// nobody gets in by a chmod alone.
bool mayAsk(int socket, const Settings& settings);

}  // namespace qov::status

#endif
