#ifndef QOV_TASK_QUEUE_LOAD_H
#define QOV_TASK_QUEUE_LOAD_H

#include <cstddef>
#include <cstdint>

namespace qov {

/// What waits: how many blocks, and how many bytes they are. Both are in one word, which an atomic
/// one changes in one step. Loads are added and subtracted as the numbers that they are.
using QueueLoad = std::uint64_t;

constexpr unsigned int kBlocksShift = 32;

constexpr QueueLoad queueLoad(std::size_t blocks, std::size_t bytes) {
  return (QueueLoad{blocks} << kBlocksShift) + bytes;
}
constexpr std::size_t blocksIn(QueueLoad load) {
  return load >> kBlocksShift;
}
constexpr std::size_t bytesIn(QueueLoad load) {
  return load & ((QueueLoad{1} << kBlocksShift) - 1);
}

}  // namespace qov

#endif
