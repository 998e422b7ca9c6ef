#include "modules/status/socket_path.h"

#include <qovpub/qov_ini_operator.h>

namespace qov::status {

std::string socketPath(CQOV_Ini_Operator& configuration, const std::string& root,
                       const std::string& process) {
  std::string path = root + "/run/" + process + ".sock";
  configuration.getConfigItem(kSection, "Socket", path);
  return path;
}

}  // namespace qov::status
