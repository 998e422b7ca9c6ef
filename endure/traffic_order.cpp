#include "endure/traffic_order.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <tuple>

namespace qov::endure {
namespace {

constexpr std::uint64_t kOrderRecord = 1;
constexpr std::uint64_t kPayloadRecord = 2;
enum Tag : unsigned short { kSerial = 1, kHandling, kOutcome, kBytes, kPayload };

/// A record takes a little less than 64 KiB.
constexpr std::uint32_t kMostInRecord = 60000;

char byteOf(const Order& order) {
  return static_cast<char>(order.serial_ % 251);
}

auto fieldsOf(const Order& order) {
  return std::tie(order.serial_, order.handling_, order.outcome_, order.bytes_);
}

}  // namespace

bool Order::operator==(const Order& other) const {
  return fieldsOf(*this) == fieldsOf(other);
}

void write(CQOV_MsgPackage& message, const Order& order) {
  message.addRecord(kOrderRecord)
      .addUnsigned(kSerial, order.serial_)
      .addUnsigned(kHandling, static_cast<std::uint64_t>(order.handling_.count()))
      .addUnsigned(kOutcome, order.outcome_)
      .addUnsigned(kBytes, order.bytes_);
  const std::string payload(std::min(order.bytes_, kMostInRecord), byteOf(order));
  for (std::uint32_t left = order.bytes_; left > 0;) {
    const std::uint32_t now = std::min(left, kMostInRecord);
    message.addRecord(kPayloadRecord).addOctets(kPayload, payload.data(), now);
    left -= now;
  }
}

Order read(const CQOV_MsgPackage& message) {
  const CTLVRecordV3& record = message[0];
  Order order;
  order.serial_ = record.getUnsigned(kSerial);
  order.handling_ = std::chrono::microseconds(record.getUnsigned(kHandling));
  order.outcome_ = static_cast<std::uint32_t>(record.getUnsigned(kOutcome));
  order.bytes_ = static_cast<std::uint32_t>(record.getUnsigned(kBytes));
  return order;
}

bool hasPayloadOf(const CQOV_MsgPackage& message, const Order& order) {
  std::size_t bytes = 0;
  for (unsigned long i = 1; i < message.count(); ++i) {
    const std::string_view part = message[i].getOctets(kPayload);
    if (part.find_first_not_of(byteOf(order)) != std::string_view::npos) {
      return false;
    }
    bytes += part.size();
  }
  return bytes == order.bytes_;
}

}  // namespace qov::endure
