#ifndef QOV_FRAME_ENV_ENV_INI_LINES_H
#define QOV_FRAME_ENV_ENV_INI_LINES_H

#include <string>
#include <vector>

namespace qov {

/// A line of an INI file that says something.
struct IniLine {
  unsigned number;      ///< from 1
  std::string section;  ///< the one that it begins or belongs to, as getConfigItem() takes it
  std::string key;      ///< empty for the header of a section
};

/// The headers and values of `fileName`, which importIniFile() reads, in the file's order. What a
/// line says is what ACE makes of it.
std::vector<IniLine> linesOfIniFile(const std::string& fileName);

}  // namespace qov

#endif
