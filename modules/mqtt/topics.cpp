#include "modules/mqtt/topics.h"

#include <qovpub/qov_exception.h>

#include <algorithm>

namespace qov::mqtt {
namespace {

void checkLevel(const char* what, const std::string& level) {
  constexpr char kFirstPrintable = ' ';
  constexpr char kDelete = 127;
  const bool isBad = std::any_of(level.begin(), level.end(), [](char c) {
    const bool isControl = (c >= 0 && c < kFirstPrintable) || c == kDelete;
    return isControl || c == '/' || c == '+' || c == '#';
  });
  if (level.empty() || isBad) {
    throw CQOV_Exception(std::string("Failed to make the topics of MQTT: the ") + what + " \"" +
                         level + "\" is empty or has one of / + # or a control character");
  }
}

}  // namespace

Topics::Topics(const std::string& node, const std::string& process)
    : root_("qov/" + node + "/" + process), clientId_("qov-" + process + "-" + node) {
  checkLevel("node", node);
  checkLevel("process", process);
}

std::string Topics::event(unsigned int module, std::uint64_t opc) const {
  return root_ + "/event/" + std::to_string(module) + "/" + std::to_string(opc);
}

}  // namespace qov::mqtt
