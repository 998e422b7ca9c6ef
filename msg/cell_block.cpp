#include <qovpub/qov_msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace qov {

// Constant-initialised: records may be built before the library's own static objects are.
CellBlock CellBlock::full_;

CellBlock* CellBlock::make(std::size_t cells) noexcept {
  cells = std::min(cells, kMaxCells);
  const std::size_t bytes = sizeof(CellBlock) + cells * sizeof(CTLVCell);
  void* memory = ::operator new(bytes, std::nothrow);
  if (memory == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  return makeIn(memory, bytes);
}

CellBlock* CellBlock::of(const CellValue* cell) noexcept {
  static_assert(sizeof(CellBlock) / kPlaceUnit == static_cast<unsigned>(CellValue::Place::kInBlock),
                "the first cell of a block has the lowest place");
  if (cell->place_ < CellValue::Place::kInBlock) {
    return nullptr;
  }
  const auto* at = reinterpret_cast<const unsigned char*>(cell);
  const unsigned char* start = at - static_cast<std::size_t>(cell->place_) * kPlaceUnit;
  return reinterpret_cast<CellBlock*>(const_cast<unsigned char*>(start));
}

void CellBlock::relocate(CTLVCell* to, const CTLVCell* from) noexcept {
  std::memcpy(static_cast<void*>(to), static_cast<const void*>(from), sizeof(CTLVCell));
  if (to->place_ >= CellValue::Place::kInBlock) {
    to->place_ = placeOf(to);
  }
}

void CellBlock::remove(CTLVCell* slot) noexcept {
  for (setEnd(end() - 1); slot != end(); ++slot) {
    relocate(slot, slot + 1);
  }
}

void CellBlock::freeAll(CellBlock* first) noexcept {
  while (first != nullptr) {
    CellBlock* next = first->next_;
    ::operator delete(first);
    first = next;
  }
}

}  // namespace qov
