#ifndef MSG_RECORD_CODEC_H
#define MSG_RECORD_CODEC_H

#include <qovpub/qov_message_package.h>

#include <cstdint>

namespace qov {

/// The byte form of one record, the same in both kinds of packages.
///
/// Thread: no state.
/// Owns:   nothing.
/// Errors: in the result; errno is ENOMEM with kNoMemory.
class RecordCodec {
 public:
  /// Makes the record at `p`, reading `remain` bytes at most. It is appended to `store`, or belongs
  /// to the caller if that is null. On a fault, whose place counts from `p`, there is no record for
  /// the caller; one in `store` may be there in part.
  static DecodeFault parse(const unsigned char* p, unsigned int remain, RecordStore* store,
                           CTLVRecordV3*& rec) noexcept;

  /// Writes `record`, whose length() has been checked, to `out` and returns its end. `end` is that
  /// of the whole message, nothing beyond it is written.
  static unsigned char* write(const CTLVRecordV3& record, unsigned char* out,
                              unsigned char* end) noexcept;

 private:
  struct Cursor;

  static CTLVRecordV3* makeAlone(std::uint64_t cmd) noexcept;
  static unsigned long countCells(const Cursor& at) noexcept;
  static DecodeFault::Kind parseCells(Cursor& at, CTLVRecordV3& record) noexcept;
  static DecodeFault::Kind parseBlock(Cursor& at, CTLVRecordV3& record) noexcept;
  static DecodeFault judge(const Cursor& at) noexcept;
  static const unsigned char* makeCell(CTLVCell* slot, std::uint32_t head, const unsigned char* in,
                                       const unsigned char* readable, CellValue::Place place,
                                       CTLVRecordV3& record, const CTLVCell*& last) noexcept;
  static unsigned char* writeCell(const CTLVCell& cell, unsigned char* out,
                                  const unsigned char* end) noexcept;
};

}  // namespace qov

#endif
