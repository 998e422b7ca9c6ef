#ifndef QOV_MODULES_STATUS_SETTINGS_H
#define QOV_MODULES_STATUS_SETTINGS_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace qov::status {

/// Section "STATUS" of the process configuration file; docs/operating.md explains the keys.
struct Settings {
  unsigned int moduleId = 250;
  std::string socket;
  mode_t mode = 0600;
  std::optional<uid_t> owner;
  std::optional<gid_t> group;
  std::chrono::milliseconds patience{10000};  ///< with a client that does not go on
  std::string metricsFile;                    ///< empty: none is written
  std::chrono::seconds metricsPeriod{15};     ///< between two of its versions
  std::vector<std::string> unknownKeys;
};

/// Throws CQOV_Exception with file, key and value of what cannot be meant.
Settings readSettings();

}  // namespace qov::status

#endif
