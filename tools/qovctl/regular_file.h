#ifndef QOV_TOOLS_QOVCTL_REGULAR_FILE_H
#define QOV_TOOLS_QOVCTL_REGULAR_FILE_H

#include <sys/stat.h>

#include <cstddef>
#include <string>

#include "modules/status/descriptor.h"

namespace qov::ctl {

/// A file of somebody who may not be trusted. Pipes and devices are not opened, and a symbolic link
/// is not followed: whoever may write in the folder could have root read any file for him. Links
/// among the folders of the path are.
///
/// Thread: one.
/// Owns:   the open file.
/// Errors: std::system_error of the system's, as ENOENT; std::runtime_error of what is refused.
///         what() begins with the path.
class RegularFile {
 public:
  explicit RegularFile(const std::string& path);

  const struct stat& status() const { return status_; }
  /// As it was when it was opened; 0 for files that the system makes up.
  std::size_t size() const { return static_cast<std::size_t>(status_.st_size); }

  /// Up to `most` bytes from `begin` on.
  std::string read(std::size_t most, std::size_t begin = 0) const;

 private:
  const std::string path_;
  status::Descriptor file_;
  struct stat status_ {};
};

}  // namespace qov::ctl

#endif
