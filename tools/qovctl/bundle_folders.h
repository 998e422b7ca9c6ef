#ifndef QOV_TOOLS_QOVCTL_BUNDLE_FOLDERS_H
#define QOV_TOOLS_QOVCTL_BUNDLE_FOLDERS_H

#include <string>
#include <vector>

namespace qov::ctl {

/// What is in a folder, in order. Throws std::filesystem::filesystem_error.
std::vector<std::string> namesIn(const std::string& folder);

/// Of all that is in the folder: kind, mode, owner, size, time and name, a line each, and where
/// links lead to. Throws as namesIn().
std::string listing(const std::string& folder);

}  // namespace qov::ctl

#endif
