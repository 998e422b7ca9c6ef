#include "modules/delivered_sections.h"

#include <qovpub/qov_ini_operator.h>
#include <strings.h>

#include <algorithm>
#include <list>
#include <utility>

namespace qov {

const std::vector<QOVModuleSection>& deliveredSections() {
  static const std::vector<QOVModuleSection> all{
      {"qovstatus",
       "STATUS",
       {"ModuleId", "Socket", "Mode", "Owner", "Group", "ClientSeconds", "MetricsFile",
        "MetricsSeconds"}},
      {"qovmqtt",
       "MQTT",
       {"ModuleId",
        "Host",
        "Port",
        "Tls",
        "CaFile",
        "CertFile",
        "KeyFile",
        "User",
        "PasswordFile",
        "Node",
        "KeepAliveSeconds",
        "SessionSeconds",
        "ReconnectSeconds",
        "EventForm",
        "CopyMessages",
        "Outbox",
        "OutboxRows",
        "OutboxKilobytes",
        "AllowRequests",
        "RequestMilliseconds",
        "RequestsPending"}},
  };
  return all;
}

std::vector<std::string> unknownKeys(CQOV_Ini_Operator& configuration, const std::string& module) {
  std::vector<std::string> unknown;
  for (const QOVModuleSection& section : deliveredSections()) {
    std::list<std::pair<std::string, std::string>> items;
    if (section.module == module) {
      configuration.enumerateSections(section.name.c_str(), items);
    }
    for (const auto& [key, value] : items) {
      const auto isSame = [&key = key](const std::string& known) {
        return ::strcasecmp(known.c_str(), key.c_str()) == 0;
      };
      if (std::none_of(section.keys.begin(), section.keys.end(), isSame)) {
        unknown.push_back(key);
      }
    }
  }
  return unknown;
}

}  // namespace qov
