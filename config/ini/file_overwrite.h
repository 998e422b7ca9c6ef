#ifndef QOV_CONFIG_INI_FILE_OVERWRITE_H
#define QOV_CONFIG_INI_FILE_OVERWRITE_H

#include <string>

namespace qov {

/// Writes all of `content` to `handle`, from the file's beginning. False with errno on failure.
bool writeFromBeginning(int handle, const std::string& content);

/// Writes `content` over what the regular file `path` holds, and brings it to the disk. Waits while
/// another one does so, or has the file locked (flock): 5 seconds at most, then EWOULDBLOCK.
///
/// Room on the disk is reserved first, where the file system can do that. When writing fails all
/// the same, the former content is put back, as far as the disk takes it, and errno says why
/// writing failed. But who reads meanwhile, or after the process or the machine died in the middle,
/// may find a part of each.
bool overwriteFile(const std::string& path, const std::string& content);

}  // namespace qov

#endif
