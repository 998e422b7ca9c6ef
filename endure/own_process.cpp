#include "endure/own_process.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace qov::endure {

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
