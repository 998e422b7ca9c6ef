#ifndef QOV_TASK_COPY_CHOICE_H
#define QOV_TASK_COPY_CHOICE_H

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <utility>

namespace qov {

/// The messages that a module takes copies of (CQOV_TaskMgr::takeCopiesOf()).
class CopyChoice {
 public:
  /// Operation `opc` of module `sender`, or all of its operations. Throws std::bad_alloc.
  void add(std::uint8_t sender, std::optional<std::uint64_t> opc) {
    if (opc) {
      operations_.emplace(sender, *opc);
    } else {
      wholeSenders_.set(sender);
    }
    senders_.set(sender);
  }

  bool any() const { return senders_.any(); }
  bool has(std::uint8_t sender, std::uint64_t opc) const {
    return senders_[sender] &&
           (wholeSenders_[sender] || operations_.count(std::pair(sender, opc)) != 0);
  }

 private:
  static constexpr std::size_t kModules = 256;

  /// Of whom there is anything.
  std::bitset<kModules> senders_;
  std::bitset<kModules> wholeSenders_;
  std::set<std::pair<std::uint8_t, std::uint64_t>> operations_;
};

}  // namespace qov

#endif
