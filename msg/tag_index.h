#ifndef MSG_TAG_INDEX_H
#define MSG_TAG_INDEX_H

#include <qovpub/qov_msg.h>

#include <array>
#include <memory>

namespace qov {

/// Maps the tags of one large record to their first cells.
///
/// Two levels of 64 slots: every allocation is 512 bytes, which the allocator settings of an agent
/// process do not turn into a mapping of its own.
///
/// Thread: find() from several threads at once.
/// Owns:   its slots; borrows the cells.
/// Errors: insert() reports missing memory, the index is useless then.
class TagIndex {
 public:
  /// Returns false when there is no memory. A tag that has a cell keeps it.
  bool insert(CTLVCell* cell) noexcept;

  /// The cell inserted first under `tag`, or null.
  CTLVCell* find(unsigned short tag) const noexcept;

 private:
  static constexpr unsigned int kSlots = 64;
  static_assert(kSlots * kSlots == MAX_TAG_VALUE + 1);

  using Page = std::array<CTLVCell*, kSlots>;
  std::array<std::unique_ptr<Page>, kSlots> pages_;
};

}  // namespace qov

#endif
