#include "tests/msg/fuzz/decode_target.h"

#include <ace/Log_Msg.h>
#include <json/value.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_message_package.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

namespace {

constexpr unsigned int kInternal = 1;
constexpr unsigned int kFitLength = 2;

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
  for (unsigned long i = 0; i < copy.count(); ++i) {
    for (const CTLVCell& cell : copy[i]) {
      useCell(copy[i], cell);
    }
  }
  std::vector<unsigned char> once = encode(package);
  require(once.size() - sizeof(package.head()) == result);
  Package again;
  require(again.decode(once.data(), static_cast<unsigned int>(once.size())) == result);
  require(encode(again) == once);
}

template <class Package>
void use(unsigned int choice, std::vector<unsigned char> bytes) {
  using Head = std::decay_t<decltype(Package().head())>;
  Package package;
  useRecord(package, bytes);
  if ((choice & kFitLength) != 0 && bytes.size() >= sizeof(Head)) {
    const auto len = static_cast<std::uint32_t>(bytes.size() - sizeof(Head));
    std::memcpy(bytes.data() + offsetof(Head, len_), &len, sizeof len);
  }
  useMessage<Package>(std::move(bytes));
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
  if ((*data & kInternal) != 0) {
    use<CQOV_MsgPackage>(*data, std::move(bytes));
  } else {
    use<CT7QPackageV3>(*data, std::move(bytes));
  }
  return 0;
}
