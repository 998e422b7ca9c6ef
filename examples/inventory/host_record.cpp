#include <json/value.h>
#include <qovpub/qov_exception.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

#include "examples/common/messages.h"
#include "examples/inventory/state_records.h"

namespace devagent {
namespace {

/// The numbers of /proc/meminfo by name, in KiB.
std::map<std::string, std::uint64_t> readMemory() {
  std::map<std::string, std::uint64_t> memory;
  std::ifstream file("/proc/meminfo");
  std::string name;
  std::string unit;
  for (std::uint64_t value = 0; file >> name >> value; std::getline(file, unit)) {
    memory[name] = value;
  }
  return memory;
}

void addMemory(CTLVRecordV3& record) {
  const std::map<std::string, std::uint64_t> memory = readMemory();
  const auto add = [&](unsigned short tag, const char* name) {
    const auto found = memory.find(name);
    if (found != memory.end()) {
      record.addUnsigned(tag, found->second);
    }
  };
  add(kMemoryTotalKb, "MemTotal:");
  add(kMemoryAvailableKb, "MemAvailable:");
}

void addLoad(CTLVRecordV3& record) {
  double load[3] = {};
  const int known = getloadavg(load, 3);
  Json::Value thousandths(Json::arrayValue);
  for (int i = 0; i < known; ++i) {
    thousandths.append(static_cast<Json::Int64>(std::llround(load[i] * 1000)));
  }
  record.addJson(kLoadThousandths, thousandths);
}

}  // namespace

void appendHost(CQOV_MsgPackage& answer) {
  struct utsname system = {};
  struct sysinfo info = {};
  if (uname(&system) != 0 || sysinfo(&info) != 0) {
    throw CQOV_Exception("cannot read the host's state");
  }
  CTLVRecordV3& record = answer.addRecord(kHostRecord);
  record.addString(kHostName, system.nodename);
  record.addString(kKernel, std::string(system.sysname) + " " + system.release);
  record.addUnsigned(kUptimeSeconds, static_cast<std::uint64_t>(info.uptime));
  record.addUnsigned(kProcessors, static_cast<std::uint64_t>(get_nprocs()));
  addMemory(record);
  addLoad(record);
}

}  // namespace devagent
