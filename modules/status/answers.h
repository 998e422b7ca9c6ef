#ifndef QOV_MODULES_STATUS_ANSWERS_H
#define QOV_MODULES_STATUS_ANSWERS_H

#include <qovpub/qov_activity.h>

#include <optional>
#include <string>
#include <string_view>

#include "modules/status/server.h"
#include "modules/status/status_document.h"
#include "modules/status/trace_requests.h"

namespace qov::status {

/// Answers requests of the status socket: one JSON document each, one line. While it lives the
/// process notes what its modules work on.
///
/// Thread: answer() on one; metricsForFile() on any.
/// Errors: throws std::bad_alloc.
class Answers {
 public:
  /// `kitId` is that of the module's debug kit.
  explicit Answers(unsigned int kitId) : kitId_(kitId), start_(startNow()) {}

  /// The document, its line end included, which may be one that tells an error; nothing for what is
  /// no JSON object with a "request". `kept` is that of the connection.
  std::optional<std::string> answer(std::string_view request, const ClientCounts& clients,
                                    Kept& kept);
  /// What a file of metrics has.
  std::string metricsForFile(const ClientCounts& clients) const;

 private:
  Json::Value changeLevel(const Json::Value& request) const;
  void changeLevel(int level) const;
  Json::Value reload() const;

  const unsigned int kitId_;
  const Start start_;
  const QOVActivity activity_;
  TraceRequests trace_;  ///< the thread of answer()
};

}  // namespace qov::status

#endif
