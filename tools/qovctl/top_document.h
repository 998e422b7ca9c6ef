#ifndef QOV_TOOLS_QOVCTL_TOP_DOCUMENT_H
#define QOV_TOOLS_QOVCTL_TOP_DOCUMENT_H

#include <json/value.h>

namespace qov::ctl {

/// What "top" shows and prints as JSON: the agent's answers to "status", "pending" and "slow" under
/// these names. Each module of the status has "handledPerSecond", counted since the document
/// `before`; null where that knows nothing of it: no document, another process, a new module.
Json::Value topDocument(Json::Value status, Json::Value pending, Json::Value slow,
                        const Json::Value& before);

}  // namespace qov::ctl

#endif
