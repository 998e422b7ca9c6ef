#ifndef QOV_TESTS_MSG_FUZZ_PLAIN_READER_H
#define QOV_TESTS_MSG_FUZZ_PLAIN_READER_H

#include <qovpub/qov_message_package.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace qov::test {

struct PlainCell {
  unsigned short typeTag;
  std::string value;
};

struct PlainRecord {
  std::uint64_t cmd;
  std::vector<PlainCell> cells;
};

/// A second decoder, as simple as one can be, that the library's is held against. It shares no code
/// with it.
class PlainReader {
 public:
  explicit PlainReader(const std::vector<unsigned char>& bytes) : bytes_(bytes) {}

  /// Reads the header at `at`. As all of these: false, with the fault, if it is bad.
  template <class Head>
  bool readHead(unsigned int at) {
    if (size() - at < sizeof(Head)) {
      return refuse(Kind::kHeadShort, at, size() - at, sizeof(Head));
    }
    Head head;
    std::memcpy(&head, &bytes_[at], sizeof head);
    if (head.magic_ != Head::kMagic) {
      return refuse(Kind::kMagic, at + offsetof(Head, magic_), head.magic_, Head::kMagic);
    }
    if (head.version_ != Head::kVersion) {
      return refuse(Kind::kVersion, at + offsetof(Head, version_), head.version_, Head::kVersion);
    }
    if constexpr (std::is_same_v<Head, QOVMsgHead>) {
      if (head.type_ < 1 || head.type_ > 4) {
        return refuse(Kind::kType, at + offsetof(Head, type_), head.type_, 4);
      }
    }
    length_ = head.len_;
    return true;
  }

  /// Reads the message at `at`, whose records end where its header says.
  template <class Head>
  bool readMessage(unsigned int at) {
    if (!readHead<Head>(at)) {
      return false;
    }
    unsigned int pos = at + static_cast<unsigned int>(sizeof(Head));
    if (length_ > size() - pos) {
      return refuse(Kind::kLength, at + offsetof(Head, len_), length_, size() - pos);
    }
    const unsigned int end = pos + length_;
    while (pos != end) {
      if (!readRecord(pos, end)) {
        return false;
      }
    }
    return true;
  }

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
  bool refuse(Kind kind, std::size_t pos, unsigned int value, std::size_t limit) {
    fault_ = {kind, static_cast<unsigned int>(pos), value, static_cast<unsigned int>(limit)};
    return false;
  }
  std::uint64_t number(unsigned int at, unsigned int bytes) const;
  bool readCell(unsigned int& pos, unsigned int recordEnd, unsigned int end);

  const std::vector<unsigned char>& bytes_;
  unsigned int length_ = 0;  ///< as the last header says
  std::vector<PlainRecord> records_;
  DecodeFault fault_;
};

}  // namespace qov::test

#endif
