#ifndef QOV_FRAME_CHECK_CONFIGURATION_PLACES_H
#define QOV_FRAME_CHECK_CONFIGURATION_PLACES_H

#include <qovpub/qov_check.h>

#include <list>
#include <map>
#include <string>
#include <vector>

#include "frame/env/env_ini_lines.h"

namespace qov {

/// Who reads a section of a configuration file.
struct SectionReader {
  std::vector<std::string> keys;
  std::string missingModule;  ///< the one whose section it is, if that is not loaded
};

/// By the sections' names: the library's own, and `sections`, of which those of `modules` are read.
using SectionReaders = std::map<std::string, SectionReader>;
SectionReaders sectionReaders(const std::vector<QOVModuleSection>& sections,
                              const std::list<std::string>& modules);

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
  void addIgnored(const SectionReaders& readers, std::vector<QOVFinding>& findings) const;

 private:
  std::string whyIgnored(const IniLine& line, const SectionReaders& readers) const;

  const std::string file_;
  const std::vector<IniLine> lines_;
};

}  // namespace qov

#endif
