#ifndef MSG_RECORD_CODEC_H
#define MSG_RECORD_CODEC_H

#include <qovpub/qov_msg.h>

#include <cstdint>

namespace qov {

/// What a look over the bytes of one record found.
struct RecordScan {
  enum class Fault { kNone, kNoHead, kRecordTooLong, kNoCellHead, kBadType, kCellTooLong };

  Fault fault = Fault::kNone;
  /// Cells of a sound record.
  unsigned int cells = 0;
  /// Bytes of the cells, as the record says.
  unsigned int recordLength = 0;
  /// The fault's place from the record's start: a cell's head, or its value for kCellTooLong.
  unsigned int pos = 0;
  /// The bad type, or the value length that does not fit.
  unsigned int value = 0;
};

/// The byte form of one record, the same in both kinds of packages.
///
/// Decoding takes two steps so that bad bytes cost no memory: scan() judges them, build() copies.
///
/// Thread: no state.
/// Owns:   nothing.
/// Errors: in the result.
class RecordCodec {
 public:
  /// Judges the record at `p`, reading `remain` bytes at most.
  static RecordScan scan(const unsigned char* p, unsigned int remain) noexcept;

  /// Makes the record at `p` that scan() found sound; `remain` is the same. Null, with errno
  /// ENOMEM, when there is no memory.
  static std::unique_ptr<CTLVRecordV3> build(const unsigned char* p, unsigned int remain,
                                             const RecordScan& scan) noexcept;

  /// Writes `record`, whose length() has been checked, to `out` and returns its end. `end` is that
  /// of the whole message, nothing beyond it is written.
  static unsigned char* write(const CTLVRecordV3& record, unsigned char* out,
                              unsigned char* end) noexcept;

 private:
  static bool fillBlock(CellBlock& block, unsigned int& left, const unsigned char*& in,
                        const unsigned char* end, bool& sweep) noexcept;
};

}  // namespace qov

#endif
