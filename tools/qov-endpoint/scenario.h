#ifndef QOV_TOOLS_QOV_ENDPOINT_SCENARIO_H
#define QOV_TOOLS_QOV_ENDPOINT_SCENARIO_H

#include <string>
#include <vector>

#include "tools/qov-endpoint/fault.h"

namespace qov::endpoint {

/// The faults of one run, in the order in which they are tried.
///
/// Errors: what a user has written wrongly is a std::runtime_error that says where and what.
class Scenario {
 public:
  /// Adds those of a scenario file.
  void load(const std::string& path);
  /// Adds one that is written as an option: the action, and behind a colon "key=value" pairs.
  void addOption(const std::string& text);

  /// The first fault that meets this request, or null. It counts as used.
  const Fault* take(std::uint64_t connection, std::uint64_t request);

 private:
  std::vector<Fault> faults_;
};

}  // namespace qov::endpoint

#endif
