#include <qovpub/qov_msg.h>

#include <algorithm>
#include <cerrno>

namespace qov {

CellBlock* CellBlock::makeBehind(std::size_t head, std::size_t cells, void*& memory) noexcept {
  const std::size_t front = head + sizeof(CellBlock);
  cells = std::min(cells, (kMaxBytes - front) / sizeof(CTLVCell));
  memory = ::operator new(front + cells * sizeof(CTLVCell), std::nothrow);
  if (memory == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  return ::new (static_cast<unsigned char*>(memory) + head) CellBlock(cells, head > 0);
}

CellBlock* CellBlock::make(std::size_t cells) noexcept {
  void* memory = nullptr;
  return makeBehind(0, cells, memory);
}

void CellBlock::freeAll(CellBlock* first) noexcept {
  while (first != nullptr) {
    CellBlock* next = first->next_;
    if (!first->embedded_) {
      ::operator delete(first);
    }
    first = next;
  }
}

}  // namespace qov
