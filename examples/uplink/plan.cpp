#include "examples/uplink/plan.h"

#include <qovpub/qov_exception.h>
#include <qovpub/qov_xml.h>

#include <charconv>
#include <system_error>
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

/// Nothing is read as a number that is none: a period of 0 would be a thread that never rests.
std::chrono::milliseconds periodOf(const std::string& device) {
  const std::string text = item(device, "PeriodMs");
  const char* const end = text.data() + text.size();
  std::uint32_t period = 0;
  const auto parsed = std::from_chars(text.data(), end, period);
  if (parsed.ec != std::errc() || parsed.ptr != end || period == 0) {
    throw CQOV_Exception("PeriodMs of " + device + " is no number of milliseconds");
  }
  return std::chrono::milliseconds(period);
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
