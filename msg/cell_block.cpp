#include <qovpub/qov_msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

namespace qov {

// Constant-initialised: records may be built before the library's own static objects are.
CellBlock CellBlock::full_;

CellBlock* CellBlock::make(std::size_t cells) noexcept {
  cells = std::min(cells, kMaxCells);
  void* memory = ::operator new(sizeof(CellBlock) + cells * sizeof(CTLVCell), std::nothrow);
  if (memory == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  return ::new (memory) CellBlock(cells);
}

CellBlock* CellBlock::of(const CTLVCell* cell) noexcept {
  if (cell->place_ <= CTLVCell::Place::kInBlock) {
    return nullptr;
  }
  const auto* at = reinterpret_cast<const unsigned char*>(cell);
  const unsigned char* start =
      at + kPlaceOffset - static_cast<std::uint32_t>(cell->place_) * kPlaceUnit;
  return reinterpret_cast<CellBlock*>(const_cast<unsigned char*>(start));
}

void CellBlock::placeOne(CTLVCell* slot) noexcept {
  if (slot->place_ >= CTLVCell::Place::kInBlock) {
    slot->place_ = static_cast<CTLVCell::Place>((offsetOf(slot) + kPlaceOffset) / kPlaceUnit);
  }
}

void CellBlock::place(CTLVRecordV3* record) noexcept {
  record_ = record;
  for (CTLVCell* slot = begin(); slot != end(); ++slot) {
    placeOne(slot);
  }
}

bool CellBlock::holds(const CTLVCell* cell) noexcept {
  const std::less<const CTLVCell*> before;
  return !before(cell, begin()) && before(cell, end());
}

void CellBlock::relocate(CTLVCell* to, const CTLVCell* from) noexcept {
  std::memcpy(static_cast<void*>(to), static_cast<const void*>(from), sizeof(CTLVCell));
  placeOne(to);
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
