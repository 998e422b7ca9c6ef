#ifndef QOV_MODULES_STATUS_ACTIVITY_DOCUMENT_H
#define QOV_MODULES_STATUS_ACTIVITY_DOCUMENT_H

#include <json/value.h>
#include <qovpub/qov_activity.h>

#include <cstddef>

namespace qov::status {

// docs/operating.md explains the fields.

/// How many requests, and handlers, of one module are told of; of the rest, how many there are.
inline constexpr std::size_t kMostOfModule = 64;

/// The requests that wait, the handlers that run, and the circles of modules that wait for each
/// other.
Json::Value pendingDocument(const QOVActivity& activity);

/// The times that handlers have taken by module and operation code, the slowest first.
Json::Value slowDocument(const QOVActivity& activity);

}  // namespace qov::status

#endif
