#ifndef QOV_MODULES_STATUS_SOCKET_PATH_H
#define QOV_MODULES_STATUS_SOCKET_PATH_H

#include <string>

class CQOV_Ini_Operator;

namespace qov::status {

/// The section of the process configuration file that has this module's keys.
inline constexpr const char* kSection = "STATUS";

/// Key "Socket" of an agent's configuration; <root>/run/<process>.sock without it.
std::string socketPath(CQOV_Ini_Operator& configuration, const std::string& root,
                       const std::string& process);

}  // namespace qov::status

#endif
