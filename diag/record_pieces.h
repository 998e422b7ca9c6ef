#ifndef QOV_DIAG_RECORD_PIECES_H
#define QOV_DIAG_RECORD_PIECES_H

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace qov {

/// A record's head, message and newline, laid out to be written at once. Short records are put
/// together into one piece, which the kernel takes faster than three; of longer ones the texts are
/// borrowed.
class RecordPieces {
 public:
  RecordPieces(std::string_view head, std::string_view message);
  RecordPieces(const RecordPieces&) = delete;
  RecordPieces& operator=(const RecordPieces&) = delete;

  const iovec* data() const { return pieces_.data(); }
  int count() const { return count_; }

 private:
  std::array<char, 1024> short_;
  std::array<iovec, 3> pieces_;
  int count_;
};

}  // namespace qov

#endif
