#ifndef QOV_TOOLS_QOV_ENDPOINT_LOG_H
#define QOV_TOOLS_QOV_ENDPOINT_LOG_H

#include <string>

#include "tools/qov-endpoint/standard_error.h"

namespace qov::endpoint {

/// What the endpoint tells on standard error, a line each.
class Log {
 public:
  enum class Level { kQuiet, kEvents, kExchanges };

  explicit Log(Level level) : level_(level) {}

  /// Whether exchanges are told, so that nobody makes a line that is not.
  bool tellsExchanges() const { return level_ == Level::kExchanges; }

  /// What a user has to know to understand what clients see: refusals, faults, connections; and,
  /// if they are told, exchanges.
  void event(const std::string& line) const {
    if (level_ != Level::kQuiet) {
      tell(line);
    }
  }

 private:
  const Level level_;
};

}  // namespace qov::endpoint

#endif
