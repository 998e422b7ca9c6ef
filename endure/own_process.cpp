#include "endure/own_process.h"

#include <malloc.h>
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace qov::endure {
namespace {

void writeText(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file) << text;
}

}  // namespace

void makeRoot(const std::filesystem::path& root, const std::string& log,
              const std::vector<std::string>& modules) {
  ::setenv("QOV_ROOT", root.c_str(), 1);
  std::string process;
  CProcInfo::getProcName(process);
  const std::filesystem::path conf = root / "conf" / process;
  std::filesystem::create_directories(conf);
  std::filesystem::create_directories(root / "log");
  writeText(conf / (process + ".cfg"), "[QOV_GLOBAL]\nPROC_PID=7\n[LOG_CFG]\n" + log);
  for (const std::string& module : modules) {
    writeText(conf / (module + ".mod"), "");
  }
}

OwnThreads ownThreads() {
  OwnThreads threads;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    ++threads.all_;
    threads.modules_ += name[0] == 'm' && name.find('-') != std::string::npos ? 1 : 0;
  }
  return threads;
}

OwnMemory ownMemory() {
  ::malloc_trim(0);
  OwnMemory memory;
  std::int64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  memory.resident_ = pages * ::sysconf(_SC_PAGESIZE);
  const struct mallinfo2 heap = ::mallinfo2();
  memory.heap_ = static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
  return memory;
}

}  // namespace qov::endure
