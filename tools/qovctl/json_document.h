#ifndef QOV_TOOLS_QOVCTL_JSON_DOCUMENT_H
#define QOV_TOOLS_QOVCTL_JSON_DOCUMENT_H

#include <json/value.h>

#include "tools/qovctl/message.h"

namespace qov::ctl {

/// Prints messages of one kind as {"kind":..., "messages":[...]}, each at once: as JSON values they
/// take a hundred times the room that their bytes do.
///
/// Thread: one.
/// Owns:   nothing.
/// Errors: Failure when it cannot be written.
class JsonDocument {
 public:
  /// Prints what is in front of the messages.
  explicit JsonDocument(Kind kind);

  Kind kind() const { return kind_; }

  void add(const Json::Value& message);
  /// Prints what is behind them.
  void end();

 private:
  const Kind kind_;
  bool empty_ = true;
};

}  // namespace qov::ctl

#endif
