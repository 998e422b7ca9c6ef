#include <algorithm>
#include <array>
#include <utility>

#include "tools/qovctl/bundle_folders.h"
#include "tools/qovctl/bundle_parts.h"
#include "tools/qovctl/regular_file.h"

namespace qov::ctl {
namespace {

constexpr std::array<std::pair<const char*, const char*>, 6> kSystemFiles{{
    {"system/os-release", "/usr/lib/os-release"},
    {"system/hostname", "/proc/sys/kernel/hostname"},
    {"system/version", "/proc/version"},
    {"system/uptime", "/proc/uptime"},
    {"system/loadavg", "/proc/loadavg"},
    {"system/meminfo", "/proc/meminfo"},
}};

std::size_t linesOf(const std::string& path) {
  constexpr std::size_t kMost = std::size_t{64} << 20;
  const std::string text = RegularFile(path).read(kMost);
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

void addProcess(Bundle& bundle, const std::string& folder) {
  for (const char* const name : {"limits", "status"}) {
    bundle.addFile(std::string("process/") + name, folder + "/" + name);
  }
  std::string counts;
  const auto count = [&](const char* what, std::size_t (*of)(const std::string&),
                         const std::string& path) {
    bundle.attempt([&] { counts += what + std::to_string(of(path)) + "\n"; });
  };
  const auto entriesOf = [](const std::string& path) { return namesIn(path).size(); };
  count("threads      ", entriesOf, folder + "/task");
  count("descriptors  ", entriesOf, folder + "/fd");
  count("maps         ", &linesOf, folder + "/maps");
  bundle.add("process/counts.txt", counts);
}

}  // namespace

void addSystem(Bundle& bundle, const Json::Value& pid) {
  if (pid.isInt() && pid.asInt() > 0) {
    addProcess(bundle, "/proc/" + pid.asString());
  } else {
    bundle.miss("limits and counts of the process: its status alone tells the process id");
  }
  for (const auto& [name, path] : kSystemFiles) {
    bundle.addFile(name, path);
  }
}

}  // namespace qov::ctl
