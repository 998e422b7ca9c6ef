#ifndef QOVPUB_QOV_LINK_STATS_H
#define QOVPUB_QOV_LINK_STATS_H

#include <qovpub/qov_export.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

/// What one link to a management endpoint (CQOVLongSocket) knows of its connection.
///
/// A connection that the endpoint has closed counts as one until an exchange notices it.
///
/// Thread: a value.
struct QOV_EXPORT QOVLinkStats {
  std::string endpoint_;              ///< as it is configured: host:port
  bool connected_ = false;            ///< whether it has a connection
  std::chrono::nanoseconds since_{};  ///< how long it has been so
  std::uint64_t connections_ = 0;     ///< made so far
  std::string lastError_;             ///< why the last attempt or connection failed; empty if none
};

/// The links of this process, the oldest first. A link is listed when it has tried to connect.
///
/// Thread: any; not from a signal handler. Waits for no exchange.
/// Errors: throws std::bad_alloc.
QOV_EXPORT std::vector<QOVLinkStats> getLinkStats();

#endif
