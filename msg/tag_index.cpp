#include "msg/tag_index.h"

#include <new>

namespace qov {

bool TagIndex::insert(CTLVCell* cell) noexcept {
  const unsigned int tag = cell->tag();
  std::unique_ptr<Page>& page = pages_[tag / kSlots];
  if (page == nullptr) {
    page.reset(new (std::nothrow) Page());
    if (page == nullptr) {
      return false;
    }
  }
  CTLVCell*& slot = (*page)[tag % kSlots];
  if (slot == nullptr) {
    slot = cell;
  }
  return true;
}

CTLVCell* TagIndex::find(unsigned short tag) const noexcept {
  if (tag > MAX_TAG_VALUE) {
    return nullptr;
  }
  const Page* page = pages_[tag / kSlots].get();
  return page == nullptr ? nullptr : (*page)[tag % kSlots];
}

}  // namespace qov
