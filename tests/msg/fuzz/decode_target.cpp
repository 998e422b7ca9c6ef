#include "tests/msg/fuzz/decode_target.h"

#include <ace/Log_Msg.h>
#include <json/value.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_om_message_package.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

namespace {

constexpr unsigned int kInternal = 1;
constexpr unsigned int kFitLength = 2;
constexpr unsigned int kOm = 4;

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

void useCell(const CTLVRecordV3& record, const CTLVCell& cell) {
  require(record.find(cell.tag()) != nullptr);
  cell.toString();
  Json::Value json;
  cell.getJson(json);
  cell.getArray(json);
  try {
    cell.getString();
    cell.getUnsigned();
  } catch (const CQOV_Exception&) {
    // Another type; there is nothing else to throw.
  }
  require(CTLVCell(cell) == cell);
}

template <class Package>
std::vector<unsigned char> encode(Package& package) {
  unsigned char* bytes = nullptr;
  const unsigned int size = package.encode(bytes);
  require(size != Package::kFailed);
  const std::unique_ptr<unsigned char[]> own(bytes);
  return {bytes, bytes + size};
}

template <class Package>
void useRecord(Package& package, std::vector<unsigned char> bytes) {
  CTLVRecordV3* record = nullptr;
  const auto size = static_cast<unsigned int>(bytes.size());
  const unsigned int taken = package.getRecord(bytes.data(), size, record);
  const std::unique_ptr<CTLVRecordV3> own(record);
  require((taken == 0) == (record == nullptr) && taken <= size);
  require(record == nullptr || record->length() == taken - MIN_RECORD_SIZE);
}

template <class Package>
void useRecords(const Package& package) {
  for (unsigned long i = 0; i < package.count(); ++i) {
    for (const CTLVCell& cell : package[i]) {
      useCell(package[i], cell);
    }
  }
}

template <class Package>
void useMessage(std::vector<unsigned char> bytes) {
  Package package;
  const unsigned int result = package.decode(bytes.data(), static_cast<unsigned int>(bytes.size()));
  if (result == Package::kFailed) {
    require(package.count() == 0);
    return;
  }
  std::ostringstream out;
  package.dump(out);
  const Package copy(package);
  useRecords(copy);
  std::vector<unsigned char> once = encode(package);
  require(once.size() - sizeof(package.head()) == result);
  Package again;
  require(again.decode(once.data(), static_cast<unsigned int>(once.size())) == result);
  require(encode(again) == once);
}

/// Makes LEN of the header at `at` fit, if the choice says so and there is one.
template <class Head>
void fitLength(unsigned int choice, std::vector<unsigned char>& bytes, std::size_t at) {
  if ((choice & kFitLength) != 0 && bytes.size() >= at + sizeof(Head)) {
    const auto len = static_cast<std::uint32_t>(bytes.size() - at - sizeof(Head));
    std::memcpy(bytes.data() + at + offsetof(Head, len_), &len, sizeof len);
  }
}

template <class Package>
void use(unsigned int choice, std::vector<unsigned char> bytes) {
  using Head = std::decay_t<decltype(Package().head())>;
  Package package;
  useRecord(package, bytes);
  fitLength<Head>(choice, bytes, 0);
  useMessage<Package>(std::move(bytes));
}

std::vector<unsigned char> encodeOm(CQOV_OM_MsgPackage& package, std::size_t size) {
  std::vector<unsigned char> bytes(size);
  require(package.encode(bytes.data(), static_cast<unsigned int>(size)) == size);
  return bytes;
}

void useOm(unsigned int choice, std::vector<unsigned char> bytes) {
  constexpr std::size_t kHeads = sizeof(QOVMsgHead) + sizeof(TLVMsgHeadV3);
  fitLength<TLVMsgHeadV3>(choice, bytes, sizeof(QOVMsgHead));
  CQOV_OM_MsgPackage package(nullptr);
  const unsigned int result = package.decode(bytes.data(), static_cast<unsigned int>(bytes.size()));
  if (result == CQOV_OM_MsgPackage::kFailed) {
    require(package.get() == nullptr || package.get()->count() == 0);
    return;
  }
  std::ostringstream out;
  package.dump(out);
  const CQOV_OM_MsgPackage copy(package);
  useRecords(*copy.get());
  encode(package);
  std::vector<unsigned char> once = encodeOm(package, kHeads + result);
  require(package.decode(once.data(), static_cast<unsigned int>(once.size())) == result);
  require(encodeOm(package, kHeads + result) == once);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::THREAD);
  if (size == 0) {
    return 0;
  }
  std::vector<unsigned char> bytes(data + 1, data + size);
  bytes.shrink_to_fit();
  if ((*data & kOm) != 0) {
    useOm(*data, std::move(bytes));
  } else if ((*data & kInternal) != 0) {
    use<CQOV_MsgPackage>(*data, std::move(bytes));
  } else {
    use<CT7QPackageV3>(*data, std::move(bytes));
  }
  return 0;
}
