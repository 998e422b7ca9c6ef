#ifndef QOVPUB_DETAIL_RECORD_STORE_H
#define QOVPUB_DETAIL_RECORD_STORE_H

#include <cstddef>
#include <cstdint>

class CTLVRecordV3;

namespace qov {

class CellBlock;
class RecordCells;

/// The records of one package, in their order, and the memory of those made here.
///
/// Records and their cells stand one behind the other in pieces of memory, the first of which lies
/// in the store itself: a small message needs no memory but its package's. The newest record has
/// all the rest of the newest piece to grow into, until the next record is made.
///
/// Thread: as the package. The newest record grows here, so it counts as a part of the package.
/// Owns:   the records, those handed in included.
/// Errors: missing memory is reported by the result, errno is ENOMEM.
class RecordStore {
 public:
  RecordStore() noexcept = default;
  RecordStore(const RecordStore&) = delete;
  RecordStore& operator=(const RecordStore&) = delete;
  /// Takes the records over; those that stand in `other` itself come to stand in this store.
  RecordStore(RecordStore&& other) noexcept { take(other); }
  RecordStore& operator=(RecordStore&& other) noexcept;
  ~RecordStore() { clear(); }

  std::size_t size() const noexcept { return size_; }
  CTLVRecordV3& operator[](std::size_t i) const noexcept { return *records_[i]; }
  CTLVRecordV3* const* begin() const noexcept { return records_; }
  CTLVRecordV3* const* end() const noexcept { return records_ + size_; }

  /// Makes sure that `more` records can be added without a further table of records.
  bool reserve(std::size_t more) noexcept {
    return more <= capacity_ - size_ || growTable(size_ + more);
  }
  /// Appends a record from `new` and takes it over; on failure it stays with the caller.
  bool add(CTLVRecordV3* record) noexcept;
  /// Appends a new record and returns it, or null.
  CTLVRecordV3* make(std::uint64_t cmd) noexcept;
  /// Gives the newest record, whose room is used up, a further block. False for any other record.
  bool extend(RecordCells& record) noexcept;
  /// Gives `record` no further block.
  void close(const RecordCells& record) noexcept;
  /// Frees record `i`. Of one made here the memory is used again after clear() only.
  void erase(std::size_t i) noexcept;
  /// Frees record `i` and puts a record from `new` in its place, which is taken over.
  void replace(std::size_t i, CTLVRecordV3* record) noexcept;
  void clear() noexcept;

 private:
  static constexpr std::size_t kInsideRecords = 4;
  static constexpr std::size_t kInsideBytes = 384;

  struct Piece {
    Piece* next;
  };

  bool growTable(std::size_t capacity) noexcept;
  void take(RecordStore& other) noexcept;
  void forget() noexcept;
  static void destroy(CTLVRecordV3* record) noexcept;
  void free(CTLVRecordV3* record) noexcept;
  bool addPiece() noexcept;
  void closeNewest() noexcept;
  CellBlock* openBlock() noexcept;

  CTLVRecordV3** records_ = inside_;
  std::size_t size_ = 0;
  std::size_t capacity_ = kInsideRecords;
  // The newest record's last block, which ends where the newest piece does.
  CellBlock* open_ = nullptr;
  // The newest piece's rest, behind the records there; without what open_ has used since.
  unsigned char* room_ = memory_;
  unsigned char* roomEnd_ = memory_ + kInsideBytes;
  Piece* pieces_ = nullptr;
  CTLVRecordV3* inside_[kInsideRecords];
  alignas(8) unsigned char memory_[kInsideBytes];
};

}  // namespace qov

#endif
