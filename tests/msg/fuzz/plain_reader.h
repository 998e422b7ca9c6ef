#ifndef QOV_TESTS_MSG_FUZZ_PLAIN_READER_H
#define QOV_TESTS_MSG_FUZZ_PLAIN_READER_H

#include <qovpub/qov_message_package.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qov::test {

/// Its value lies in the bytes that were read.
struct PlainCell {
  unsigned short typeTag;
  std::string_view value;
};

struct PlainRecord {
  std::uint64_t cmd;
  std::vector<PlainCell> cells;
};

/// Of a header, what decoding looks at.
struct PlainHead {
  unsigned int size;
  unsigned int magic;
  unsigned int version;
  unsigned int bytesOfVersion;
  bool hasType;
};
inline constexpr PlainHead kInternalHead{32, 20080808, 1, 1, true};
inline constexpr PlainHead kV3Head{28, 0x55555555, 3, 4, false};

/// A second decoder, as simple as one can be, that the library's is held against. It shares nothing
/// with it but the form in which a fault is told.
class PlainReader {
 public:
  explicit PlainReader(const std::vector<unsigned char>& bytes) : bytes_(bytes) {}

  /// Reads the header at `at`. As all of these: false, with the fault, if it is bad.
  bool readHead(const PlainHead& head, unsigned int at);

  /// Reads the message at `at`, whose records end where its header says.
  bool readMessage(const PlainHead& head, unsigned int at);

  /// Reads the record at `pos`, which becomes its end, of a message that ends at `end`.
  bool readRecord(unsigned int& pos, unsigned int end);

  const DecodeFault& fault() const { return fault_; }
  const std::vector<PlainRecord>& records() const { return records_; }

  /// The records as they are encoded again. What differs are empty cells: decoding drops their tag
  /// and type.
  std::string encoded() const;

 private:
  using Kind = DecodeFault::Kind;

  unsigned int size() const { return static_cast<unsigned int>(bytes_.size()); }
  bool refuse(Kind kind, unsigned int pos, unsigned int value, unsigned int limit) {
    fault_ = {kind, pos, value, limit};
    return false;
  }
  std::uint64_t number(unsigned int at, unsigned int bytes) const;
  unsigned int number4(unsigned int at) const { return static_cast<unsigned int>(number(at, 4)); }
  bool readCell(unsigned int& pos, unsigned int recordEnd, unsigned int end);

  const std::vector<unsigned char>& bytes_;
  unsigned int length_ = 0;  ///< as the last header says
  std::vector<PlainRecord> records_;
  DecodeFault fault_;
};

}  // namespace qov::test

#endif
