#include <dirent.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include "tools/qov-endpoint/live_tables.h"
#include "tools/qov-endpoint/proc_file.h"

namespace qov::endpoint {
namespace {

/// Seconds since 1970 at which the machine was started; processes count from there.
std::uint64_t bootTime() {
  const std::string stat = readProcFile("/proc/stat");
  const std::size_t found = stat.find("\nbtime ");
  return found == std::string::npos ? 0 : std::strtoull(stat.c_str() + found + 7, nullptr, 10);
}

/// Of the fields behind the name: the state, and by their numbers in the file the three others.
struct Stat {
  std::string name;
  std::string state;
  std::uint64_t threads = 0;
  std::uint64_t started = 0;
  std::uint64_t residentPages = 0;
};

/// A name may hold blanks and parentheses of its own; the last one ends it.
bool parseStat(const std::string& text, Stat& stat) {
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) {
    return false;
  }
  stat.name = text.substr(open + 1, close - open - 1);
  std::istringstream fields(text.substr(close + 1));
  fields >> stat.state;
  constexpr int kThreadsField = 20;
  constexpr int kStartedField = 22;
  constexpr int kResidentField = 24;
  std::string value;
  for (int field = 4; field <= kResidentField && fields >> value; ++field) {
    std::uint64_t* const wanted = field == kThreadsField    ? &stat.threads
                                  : field == kStartedField  ? &stat.started
                                  : field == kResidentField ? &stat.residentPages
                                                            : nullptr;
    if (wanted != nullptr) {
      *wanted = std::strtoull(value.c_str(), nullptr, 10);
    }
  }
  return !fields.fail();
}

/// The process that a directory below /proc belongs to; 0 for the other directories there.
std::uint64_t processOf(const char* directory) {
  std::uint64_t pid = 0;
  const char* const end = directory + std::strlen(directory);
  const auto parsed = std::from_chars(directory, end, pid);
  return parsed.ec == std::errc() && parsed.ptr == end ? pid : 0;
}

void addProcess(std::uint64_t pid, std::uint64_t boot, Rows& rows) {
  static const auto kTicks = static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK));
  static const auto kPageKb = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 1024;
  Stat stat;
  if (!parseStat(readProcFile("/proc/" + std::to_string(pid) + "/stat"), stat)) {
    return;
  }
  CTLVRecordV3& row = rows.try_emplace(pid).first->second;
  row.addString(kProcessName, stat.name);
  row.addString(kProcessState, stat.state);
  row.addUnsigned(kThreads, stat.threads);
  row.addUnsigned(kResidentKb, stat.residentPages * kPageKb);
  row.addTime(kStarted, boot + stat.started / kTicks);
}

}  // namespace

Rows readProcesses() {
  Rows rows;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir("/proc"), ::closedir);
  if (!directory) {
    return rows;
  }
  const std::uint64_t boot = bootTime();
  while (const dirent* entry = ::readdir(directory.get())) {
    const std::uint64_t pid = processOf(entry->d_name);
    if (pid != 0 && rows.find(pid) == rows.end()) {
      addProcess(pid, boot, rows);
    }
  }
  return rows;
}

}  // namespace qov::endpoint
