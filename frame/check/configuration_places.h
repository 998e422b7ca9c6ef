#ifndef QOV_FRAME_CHECK_CONFIGURATION_PLACES_H
#define QOV_FRAME_CHECK_CONFIGURATION_PLACES_H

#include <qovpub/qov_check.h>

#include <string>
#include <vector>

#include "frame/env/env_ini_lines.h"

namespace qov {

/// Where the sections and keys of a configuration file are.
///
/// Thread: one at a time.
/// Owns:   a copy of what the file says.
/// Errors: none.
class ConfigurationPlaces {
 public:
  explicit ConfigurationPlaces(const std::string& fileName)
      : file_(fileName), lines_(linesOfIniFile(fileName)) {}

  /// The line of a key ("LOG_CFG/LogLevel") or section ("LOG_CFG"); that of the section where there
  /// is no such key, and 0 where there is no such section.
  unsigned lineOf(const std::string& path) const;

  /// Appends what stands in the file and is read by nobody.
  void addIgnored(std::vector<QOVFinding>& findings) const;

 private:
  std::string whyIgnored(const IniLine& line) const;

  const std::string file_;
  const std::vector<IniLine> lines_;
};

}  // namespace qov

#endif
