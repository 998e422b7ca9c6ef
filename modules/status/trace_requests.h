#ifndef QOV_MODULES_STATUS_TRACE_REQUESTS_H
#define QOV_MODULES_STATUS_TRACE_REQUESTS_H

#include <json/value.h>

#include <memory>
#include <optional>
#include <string>

#include "modules/status/client.h"
#include "modules/status/trace_recording.h"

namespace qov::status {

/// Answers "trace-start", "trace-read" and "trace-stop". One connection has the trace, from its
/// "trace-start" until it ends: a client that is killed, or asks for nothing, leaves nothing on.
///
/// Thread: one.
/// Errors: throws std::bad_alloc.
class TraceRequests {
 public:
  /// The answer, which may be one that tells an error; nothing for other requests. `kept`, that of
  /// the connection, holds its recording.
  std::optional<Json::Value> answer(const std::string& name, const Json::Value& request,
                                    Kept& kept);

 private:
  Json::Value start(const Json::Value& request, Kept& kept);

  std::weak_ptr<Recording> recording_;
};

}  // namespace qov::status

#endif
