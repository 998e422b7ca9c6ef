#include <qovpub/qov_msg.h>

#include <algorithm>
#include <cerrno>

namespace qov {

// Constant-initialised: records may be built before the library's own static objects are.
CellBlock CellBlock::full_;

CellBlock* CellBlock::make(std::size_t cells) noexcept {
  cells = std::min(cells, (kMaxBytes - sizeof(CellBlock)) / sizeof(CTLVCell));
  void* memory = ::operator new(sizeof(CellBlock) + cells * sizeof(CTLVCell), std::nothrow);
  if (memory == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  return ::new (memory) CellBlock(cells);
}

void CellBlock::freeAll(CellBlock* first) noexcept {
  while (first != nullptr) {
    CellBlock* next = first->next_;
    ::operator delete(first);
    first = next;
  }
}

}  // namespace qov
