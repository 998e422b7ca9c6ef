#ifndef QOV_MODULES_MQTT_TOPICS_H
#define QOV_MODULES_MQTT_TOPICS_H

#include <cstdint>
#include <string>

namespace qov::mqtt {

/// The topics of one agent, all below "qov/<node>/<process>"; docs/mqtt.md lists them.
class Topics {
 public:
  /// Throws CQOV_Exception if one of both is empty or has a character that topics give a meaning:
  /// "/", "+", "#" or a control character.
  Topics(const std::string& node, const std::string& process);

  std::string status() const { return root_ + "/status"; }
  std::string event(unsigned int module, std::uint64_t opc) const;
  /// What to subscribe to for the requests to all modules.
  std::string requests() const { return root_ + "/request/+"; }
  /// What every response topic begins with.
  std::string responses() const { return root_ + "/response/"; }

  const std::string& clientId() const { return clientId_; }

 private:
  std::string root_;
  std::string clientId_;
};

}  // namespace qov::mqtt

#endif
