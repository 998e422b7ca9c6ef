#include "tests/msg/fuzz/package_checks.h"

#include <json/value.h>
#include <qovpub/qov_exception.h>

#include <algorithm>
#include <map>

namespace qov::test {
namespace {

constexpr unsigned int kOuterHead = kInternalHead.size;
constexpr std::size_t kBothHeads = kOuterHead + kV3Head.size;

/// The first 8 bytes; an Int of 1, 2 or 4 bytes is sign-extended.
std::uint64_t numberOf(const PlainCell& cell) {
  const std::string_view value = cell.value;
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < std::min<std::size_t>(value.size(), 8); ++i) {
    number |= std::uint64_t{static_cast<unsigned char>(value[i])} << 8 * i;
  }
  const bool isSigned = cell.typeTag % 16 == CTLVCell::TLV_INT &&
                        (value.size() == 1 || value.size() == 2 || value.size() == 4);
  return isSigned && (value.back() & 0x80) != 0 ? number | ~std::uint64_t{0} << 8 * value.size()
                                                : number;
}

template <class Read>
bool isRefused(Read read) {
  try {
    read();
    return false;
  } catch (const CQOV_Exception&) {
    return true;
  }
}

/// Every way to read a value ends; what it gives depends on the type. Refusals throw, which takes
/// longer than all else, so they are looked at `alsoRefused` only.
void readInEveryWay(const CTLVCell& cell, bool alsoRefused) {
  cell.toString();
  if (const bool isText = cell.type() == CTLVCell::TLV_STRING; isText || alsoRefused) {
    require(isRefused([&] { cell.getString(); }) == !isText, "a text is read of a String alone");
  }
  Json::Value json;
  if (const bool isJson = cell.getJson(json) || cell.getArray(json); isJson || alsoRefused) {
    require(isRefused([&] { cell.getJson(); }) == !isJson, "JSON is read where there is some");
  }
}

void checkCell(const CTLVCell& cell, const PlainCell& plain, bool alsoRefused) {
  require(cell.typeTag() == plain.typeTag, "a cell has its tag and type");
  const std::string_view value(reinterpret_cast<const char*>(cell.value()), cell.length());
  require(value == plain.value, "a cell has its value");
  require(cell.number() == numberOf(plain), "a cell has its number");
  require(cell.text() == value.substr(0, value.find('\0')), "a cell has its text");
  require(CTLVCell(cell) == cell, "a cell is equal to its copy");
  readInEveryWay(cell, alsoRefused);
}

void checkLookUps(const CTLVRecordV3& record) {
  std::map<unsigned short, const CTLVCell*> lastOfTag;
  for (const CTLVCell& cell : record) {
    const CTLVCell*& last = lastOfTag[cell.tag()];
    const CTLVCell* const found =
        last == nullptr ? record.find(cell.tag()) : record.findNext(*last);
    require(found == &cell, "a look-up finds the cells of a tag in their order");
    last = &cell;
  }
}

/// What a package with a V3 message allocates when it is encoded: the outer header before itself,
/// with the inner LEN, in place of all else.
std::string withTwoHeads(const MessageBytes& message, std::uint32_t inner, std::size_t size) {
  std::string bytes(message.begin(), message.begin() + kOuterHead);
  bytes += bytes;
  std::memcpy(&bytes[2 * kOuterHead - sizeof inner], &inner, sizeof inner);
  bytes.resize(size, '\0');
  return bytes;
}

}  // namespace

void checkFault(const DecodeFault& fault, const DecodeFault& plain) {
  require(fault.kind == plain.kind, "both decoders tell the same kind of fault");
  require(fault.pos == plain.pos, "both decoders find the fault at the same place");
  require(fault.value == plain.value && fault.limit == plain.limit,
          "both decoders tell the same numbers of the fault");
}

void checkRecord(const CTLVRecordV3& record, const PlainRecord& plain) {
  require(record.cmd() == plain.cmd, "a record has its command code");
  require(record.count() == plain.cells.size(), "a record has every cell");
  std::size_t length = 0;
  auto next = plain.cells.begin();
  for (const CTLVCell& cell : record) {
    length += MIN_TLV_SIZE + next->value.size();
    checkCell(cell, *next, next == plain.cells.begin());
    ++next;
  }
  require(record.length() == length, "a record has its length");
  // In long records it takes longer than all else, so only some of them are looked at.
  if (record.count() <= 32 || record.count() % 4 == 0) {
    checkLookUps(record);
  }
}

template <>
void checkMessage<CQOV_OM_MsgPackage>(const MessageBytes& bytes) {
  PlainReader plain(bytes);
  const bool isGood = plain.readHead(kInternalHead, 0) && plain.readMessage(kV3Head, kOuterHead);
  CQOV_OM_MsgPackage package(nullptr);
  const unsigned int result = package.decode(bytes.data(), static_cast<unsigned int>(bytes.size()));
  checkFault(package.decodeFault(), plain.fault());
  require((result != CQOV_OM_MsgPackage::kFailed) == isGood, "the result tells of the fault");
  if (!isGood) {
    require(package.get() == nullptr || package.get()->count() == 0,
            "a message that is refused leaves no records");
    return;
  }
  require(result == package.get()->head().len_, "the result is the inner LEN");
  checkRecords(*package.get(), plain);
  // Of the outer header LEN alone may be wrong, which decoding does not look at.
  const MessageBytes right =
      withLength<QOVMsgHead>({bytes.begin(), bytes.begin() + kBothHeads + result});
  const std::string expected =
      std::string(right.begin(), right.begin() + kBothHeads) + plain.encoded();
  if (isCopied(bytes)) {
    checkCopies(package, expected);
  }
  require(encodedBy(package) == withTwoHeads(right, result, expected.size()),
          "what is encoded has the outer header twice");
}

void checkRecordAlone(const MessageBytes& bytes) {
  PlainReader plain(bytes);
  unsigned int end = 0;
  const auto size = static_cast<unsigned int>(bytes.size());
  const bool isGood = plain.readRecord(end, size);
  CT7QPackageV3 package;
  CTLVRecordV3* record = nullptr;
  MessageBytes copy = bytes;
  const unsigned int taken = package.getRecord(copy.data(), size, record);
  std::unique_ptr<CTLVRecordV3> own(record);
  checkFault(package.decodeFault(), plain.fault());
  require((record != nullptr) == isGood, "there is a record unless it is refused");
  require(taken == (isGood ? end : 0), "the result is what the record takes");
  if (isGood) {
    checkRecord(*record, plain.records().front());
    package.append(own.release());
    require(encodedBy(package).substr(sizeof(TLVMsgHeadV3)) == plain.encoded(),
            "what is encoded is what was read");
  }
}

}  // namespace qov::test
