#ifndef QOV_TOOLS_QOVCTL_TAR_GZ_H
#define QOV_TOOLS_QOVCTL_TAR_GZ_H

#include <ctime>
#include <string>
#include <vector>

namespace qov::ctl {

struct ArchivedFile {
  std::string name;  ///< its path in the folder
  std::string content;
  std::time_t time;  ///< when it was changed
};

/// The bytes of a .tar.gz that has these files in a folder, for their owner's eyes alone. Throws
/// Failure.
std::string tarGz(const std::string& folder, const std::vector<ArchivedFile>& files);

}  // namespace qov::ctl

#endif
