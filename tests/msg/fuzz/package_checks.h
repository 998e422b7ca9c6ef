#ifndef QOV_TESTS_MSG_FUZZ_PACKAGE_CHECKS_H
#define QOV_TESTS_MSG_FUZZ_PACKAGE_CHECKS_H

#include <qovpub/qov_om_message_package.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/msg/fuzz/plain_reader.h"
#include "tests/support/fuzz.h"

/// What holds for all bytes that are read as a message or record. Each ends the program when it
/// does not.
namespace qov::test {

using MessageBytes = std::vector<unsigned char>;

void checkFault(const DecodeFault& fault, const DecodeFault& plain);
/// The record reads as `plain` in every way to read one.
void checkRecord(const CTLVRecordV3& record, const PlainRecord& plain);

template <class Package>
void checkRecords(const Package& package, const PlainReader& plain) {
  require(package.count() == plain.records().size(), "there is every record");
  for (unsigned long i = 0; i < package.count(); ++i) {
    checkRecord(package[i], plain.records()[i]);
  }
}

/// Whether that message is copied and dumped, too. It takes as long as all else.
inline bool isCopied(const MessageBytes& bytes) {
  return bytes.size() % 4 == 0;
}

/// The package is dumped, and its copy and what that is moved to are encoded as `bytes`, too.
template <class Package>
void checkCopies(const Package& package, const std::string& bytes) {
  std::ostringstream out;
  package.dump(out);
  require(!out.str().empty(), "a message has a text form");
  Package copy(package);
  Package moved(std::move(copy));
  std::string encoded(bytes.size(), '\0');
  const unsigned int size = moved.encode(reinterpret_cast<unsigned char*>(encoded.data()),
                                         static_cast<unsigned int>(encoded.size()));
  require(size == bytes.size() && encoded == bytes, "a copy has the same bytes");
}

template <class Package>
std::string encodedBy(Package& package) {
  unsigned char* bytes = nullptr;
  const unsigned int size = package.encode(bytes);
  require(size != Package::kFailed, "what was decoded can be encoded");
  const std::unique_ptr<unsigned char[]> own(bytes);
  return {bytes, bytes + size};
}

template <class Package>
using HeadOf = std::decay_t<decltype(std::declval<Package&>().head())>;

/// The bytes as a message of that kind.
template <class Package>
void checkMessage(const MessageBytes& bytes) {
  using Head = HeadOf<Package>;
  PlainReader plain(bytes);
  const bool isGood =
      plain.readMessage(std::is_same_v<Head, QOVMsgHead> ? kInternalHead : kV3Head, 0);
  Package package;
  const unsigned int result = package.decode(bytes.data(), static_cast<unsigned int>(bytes.size()));
  checkFault(package.decodeFault(), plain.fault());
  require((result != Package::kFailed) == isGood, "the result tells of the fault");
  if (!isGood) {
    require(package.count() == 0, "a message that is refused leaves no records");
    return;
  }
  require(result == package.head().len_, "the result is LEN");
  checkRecords(package, plain);
  const std::string expected(bytes.begin(), bytes.begin() + sizeof(Head));
  const std::string encoded = encodedBy(package);
  require(encoded == expected + plain.encoded(), "what is encoded is what was decoded");
  if (isCopied(bytes)) {
    checkCopies(package, encoded);
  }
}

template <>
void checkMessage<CQOV_OM_MsgPackage>(const MessageBytes& bytes);

/// The bytes as a record, and what may stand behind it.
void checkRecordAlone(const MessageBytes& bytes);

/// The same bytes with a LEN that fits in the header at `at`, if there is one: few inputs have it
/// by themselves.
template <class Head>
MessageBytes withLength(MessageBytes bytes, std::size_t at = 0) {
  if (bytes.size() >= at + sizeof(Head)) {
    const auto length = static_cast<std::uint32_t>(bytes.size() - at - sizeof(Head));
    std::memcpy(&bytes[at + offsetof(Head, len_)], &length, sizeof length);
  }
  return bytes;
}

/// What a fuzz target does and returns: the input as a message of that kind, as it is and with a
/// LEN that fits in the header at `at`.
template <class Package, class Head = HeadOf<Package>>
int checkInput(const std::uint8_t* data, std::size_t size, std::size_t at = 0) {
  silence();
  const MessageBytes bytes(data, data + size);
  const MessageBytes fit = withLength<Head>(bytes, at);
  checkMessage<Package>(fit);
  if (fit != bytes) {
    checkMessage<Package>(bytes);
  }
  return 0;
}

}  // namespace qov::test

#endif
