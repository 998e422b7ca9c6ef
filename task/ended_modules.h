#ifndef QOV_TASK_ENDED_MODULES_H
#define QOV_TASK_ENDED_MODULES_H

#include <array>
#include <atomic>
#include <bitset>
#include <cstddef>
#include <cstdint>

namespace qov {

/// The modules that have ended since a leader last looked.
///
/// Thread: any. Needs no memory.
class EndedModules {
 public:
  using Ids = std::bitset<256>;

  void note(std::uint8_t id) {
    words_[id / kBits] |= std::uint64_t{1} << id % kBits;
    any_ = true;
  }

  Ids take() {
    Ids ids;
    if (any_ && any_.exchange(false)) {
      for (std::size_t i = words_.size(); i-- > 0;) {
        ids = ids << kBits | Ids(words_[i].exchange(0));
      }
    }
    return ids;
  }

 private:
  static constexpr std::size_t kBits = 64;

  std::array<std::atomic<std::uint64_t>, Ids().size() / kBits> words_{};
  // Set after the bit.
  std::atomic<bool> any_{false};
};

}  // namespace qov

#endif
