#include "examples/uplink/plan.h"

#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>
#include <qovpub/qov_xml.h>

#include <iterator>
#include <utility>

#include "tools/common/endpoint_protocol.h"

namespace devagent {
namespace {

constexpr std::pair<const char*, std::uint32_t> kTables[] = {
    {"interfaces", qov::endpoint::kInterfaces},
    {"mounts", qov::endpoint::kMounts},
    {"processes", qov::endpoint::kProcesses},
};

std::string item(const std::string& device, const std::string& key) {
  CQOVXmlConfig* const configuration = CQOVXmlConfig::instance();
  if (configuration == nullptr) {
    throw CQOV_Exception("no memory for the device configuration");
  }
  std::string value;
  return configuration->getDeviceItem(device, key, value);
}

std::chrono::milliseconds periodOf(const std::string& device) {
  return std::chrono::milliseconds(StrToUint(item(device, "PeriodMs")));
}

}  // namespace

Plan readPlan() {
  Plan plan{{}, periodOf("records")};
  for (const auto& [name, table] : kTables) {
    if (item(name, "Fetch") == "yes") {
      plan.tables.push_back({name, table, periodOf(name)});
    }
  }
  return plan;
}

}  // namespace devagent
