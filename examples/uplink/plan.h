#ifndef QOV_EXAMPLES_UPLINK_PLAN_H
#define QOV_EXAMPLES_UPLINK_PLAN_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace devagent {

/// One table of the endpoint to be read again and again.
struct TablePlan {
  std::string name;
  std::uint32_t table;
  std::chrono::milliseconds period;
};

/// What the device configuration wants: which tables are read, how often, and how often the
/// inventory's records are pushed.
struct Plan {
  std::vector<TablePlan> tables;
  std::chrono::milliseconds pushPeriod;
};

/// Reads items "Fetch" ("yes" or anything else) and "PeriodMs" of the devices "interfaces",
/// "mounts" and "processes", and "PeriodMs" of "records"; each is looked for in the device
/// "default" when the device does not have it. Throws CQOV_Exception when that does not either, and
/// when a period is not a whole number of milliseconds from 1 to 4294967295.
Plan readPlan();

}  // namespace devagent

#endif
