#include "tools/qov-endpoint/fault.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "tools/common/endpoint_protocol.h"

namespace qov::endpoint {
namespace {

void copyWithoutStatus(const CTLVRecordV3& from, CTLVRecordV3& to) {
  for (const CTLVCell& cell : from) {
    if (cell.tag() != kStatusTag) {
      to.add(cell);
    }
  }
}

/// Takes the status cell out of every record.
void dropStatus(CT7QPackageV3& answer) {
  for (unsigned long i = 0; i < answer.count(); ++i) {
    CTLVRecordV3 without(answer[i].cmd());
    copyWithoutStatus(answer[i], without);
    answer[i] = without;
  }
}

void setTextStatus(CT7QPackageV3& answer) {
  dropStatus(answer);
  for (unsigned long i = 0; i < answer.count(); ++i) {
    answer[i].addString(kStatusTag, "row");
  }
}

void setStatus(std::uint64_t status, CT7QPackageV3& answer) {
  dropStatus(answer);
  for (unsigned long i = 0; i < answer.count(); ++i) {
    answer[i].addEnum(kStatusTag, status);
  }
}

/// An answer without records gets two empty ones.
void makeTwoRecords(CT7QPackageV3& answer) {
  while (answer.count() < 2) {
    const CTLVRecordV3 copy = answer.count() == 0 ? CTLVRecordV3() : answer[0];
    answer.addRecord(copy.cmd()).clone(copy);
  }
}

template <class Field>
Field readField(const std::string& bytes, std::size_t offset) {
  Field field;
  std::memcpy(&field, bytes.data() + offset, sizeof field);
  return field;
}

template <class Field>
void writeField(Field field, std::size_t offset, std::string& bytes) {
  std::memcpy(bytes.data() + offset, &field, sizeof field);
}

void spoilSerial(const Fault& fault, std::string& bytes) {
  constexpr std::size_t kOffset = offsetof(TLVMsgHeadV3, ser_);
  const auto serial = readField<std::uint16_t>(bytes, kOffset);
  writeField(static_cast<std::uint16_t>(serial + fault.add), kOffset, bytes);
}

void spoilLength(const Fault& fault, std::string& bytes) {
  const auto body = static_cast<std::int64_t>(bytes.size() - sizeof(TLVMsgHeadV3));
  const std::int64_t claimed = fault.value.value_or(body + fault.add);
  writeField(static_cast<std::uint32_t>(claimed), offsetof(TLVMsgHeadV3, len_), bytes);
  if (fault.fill) {
    const std::int64_t length = std::clamp<std::int64_t>(claimed, 0, kLongestFilled);
    bytes.resize(sizeof(TLVMsgHeadV3) + static_cast<std::size_t>(length));
  }
}

void cut(const Fault& fault, Delivery& delivery) {
  if (fault.after < delivery.bytes.size()) {
    delivery.bytes.resize(fault.after);
    delivery.counted = {};
  }
  delivery.then = Delivery::Then::kClose;
}

void refuse(const Fault& fault, Delivery& delivery) {
  delivery = {};
  delivery.then = Delivery::Then::kRefuse;
  delivery.refusal = fault.time;
}

}  // namespace

void spoilRecords(const Fault& fault, CT7QPackageV3& answer) {
  switch (fault.action) {
    case Action::kTwoRecords:
      return makeTwoRecords(answer);
    case Action::kNoRecord:
      return answer.clear();
    case Action::kNoStatus:
      return dropStatus(answer);
    case Action::kTextStatus:
      return setTextStatus(answer);
    case Action::kStatus:
      return setStatus(static_cast<std::uint64_t>(*fault.value), answer);
    case Action::kRet:
      answer.head().ret_ = static_cast<std::uint32_t>(*fault.value);
      return;
    default:
      return;
  }
}

void spoilDelivery(const Fault& fault, Delivery& delivery) {
  switch (fault.action) {
    case Action::kClose:
      return cut(fault, delivery);
    case Action::kDelay:
      delivery.delay = fault.time;
      return;
    case Action::kDrip:
      delivery.singly = true;
      delivery.pause = fault.time;
      return;
    case Action::kSerial:
      return spoilSerial(fault, delivery.bytes);
    case Action::kLength:
      return spoilLength(fault, delivery.bytes);
    case Action::kMagic:
      return writeField(static_cast<std::uint32_t>(*fault.value), offsetof(TLVMsgHeadV3, magic_),
                        delivery.bytes);
    case Action::kRefuse:
      return refuse(fault, delivery);
    case Action::kSilent:
      delivery = {};
      return;
    default:
      return;
  }
}

bool keepsRecords(Action action) {
  switch (action) {
    case Action::kSerial:
    case Action::kLength:
    case Action::kMagic:
    case Action::kRet:
      return false;
    default:
      return true;
  }
}

}  // namespace qov::endpoint
