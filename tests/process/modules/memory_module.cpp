// A module that writes down how the process's allocator works, as a module finds it.
#include <malloc.h>
#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <sstream>

#include "tests/process/modules/agent_files.h"

namespace {

/// Blocks of one size, allocated one after the other and freed together. Keeping them allocates
/// nothing else.
class Blocks {
 public:
  static constexpr std::size_t kMost = 4096;

  explicit Blocks(std::size_t size) : size_(size) {}
  ~Blocks() { std::for_each_n(blocks_.begin(), count_, &std::free); }
  Blocks(const Blocks&) = delete;
  Blocks& operator=(const Blocks&) = delete;

  void add() { blocks_[count_++] = std::malloc(size_); }
  bool full() const { return count_ == kMost; }

 private:
  const std::size_t size_;
  std::size_t count_ = 0;
  std::array<void*, kMost> blocks_;
};

/// Whether blocks of `size` bytes become mappings of their own once the heap has no room left: the
/// most blocks take several times what it grows by.
bool areMapped(std::size_t size) {
  const auto mappings = ::mallinfo2().hblks;
  Blocks blocks(size);
  while (!blocks.full() && ::mallinfo2().hblks == mappings) {
    blocks.add();
  }
  return ::mallinfo2().hblks > mappings;
}

/// Whether blocks of `size` bytes are set aside as they are when they are freed, those that a
/// thread does not keep for itself.
bool areSetAside(std::size_t size) {
  const auto before = ::mallinfo2().smblks;
  {
    Blocks blocks(size);
    while (!blocks.full()) {
      blocks.add();
    }
  }
  return ::mallinfo2().smblks > before;
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(46, 0, "memory") {}
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    // The allocator counts its own 8 bytes, and in steps of 16.
    std::ostringstream out;
    out << "mapped_1024 " << areMapped(1024) << "\nmapped_1016 " << areMapped(1016)
        << "\nmapped_1000 " << areMapped(1000) << "\nset_aside " << areSetAside(24) << "\n";
    return qov::test::makeFile("state", out.str());
  }
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
