#ifndef QOV_MODULES_STATUS_ACTIVITY_SNAPSHOT_H
#define QOV_MODULES_STATUS_ACTIVITY_SNAPSHOT_H

#include <qovpub/qov_activity.h>
#include <qovpub/qov_stats.h>

#include <cstdint>
#include <vector>

namespace qov::status {

/// What the modules of a process work on and wait for at one moment.
struct ActivitySnapshot {
  std::uint8_t process = 0;
  std::vector<QOVRunningHandler> handlers;
  std::vector<QOVWaitingRequest> requests;
  std::vector<QOVModuleStats> modules;
};

/// The moment is now. Each of the requests has waited before the rest was read, and does so after,
/// so that all of them have waited together.
ActivitySnapshot snapshotOf(const QOVActivity& activity);

/// The handler that works on the request; null if it has not been taken up.
const QOVRunningHandler* handlerOf(const QOVWaitingRequest& request,
                                   const ActivitySnapshot& snapshot);

/// The request whose answer the handler's thread waits for; null if it waits for none.
const QOVWaitingRequest* waitOf(const QOVRunningHandler& handler, const ActivitySnapshot& snapshot);

/// The circles of modules that wait for each other. Each begins, and ends, with its lowest id.
///
/// Nobody can go on who waits for a request that is worked on by somebody who cannot, or that
/// waits itself for a worker, while all workers of the asked module cannot go on.
///
/// A request whose handler has ended looks like one that no worker has taken up. So a wait counts
/// after a second only: an answer that is on its way has come by then. An answer that a thread
/// gives later that is no worker's does not show.
std::vector<std::vector<unsigned int>> circlesOf(const ActivitySnapshot& snapshot);

}  // namespace qov::status

#endif
