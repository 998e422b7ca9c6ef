#ifndef QOV_MODULES_STATUS_ACTIVITY_DOCUMENT_H
#define QOV_MODULES_STATUS_ACTIVITY_DOCUMENT_H

#include <json/value.h>
#include <qovpub/qov_activity.h>

namespace qov::status {

// docs/operating.md explains the fields.

/// The requests that wait, the handlers that run, and the circles of modules that wait for each
/// other.
Json::Value pendingDocument(const QOVActivity& activity);

/// The times that handlers have taken by module and operation code, the slowest first.
Json::Value slowDocument(const QOVActivity& activity);

}  // namespace qov::status

#endif
