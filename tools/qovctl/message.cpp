#include "tools/qovctl/message.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>

#include "modules/common/message_json.h"

namespace qov::ctl {
namespace {

constexpr Kind kKinds[] = {Kind::kV3, Kind::kInternal, Kind::kOm};

/// Bytes in front of the records.
constexpr std::size_t headSize(const CT7QPackageV3&) {
  return sizeof(TLVMsgHeadV3);
}
constexpr std::size_t headSize(const CQOV_MsgPackage&) {
  return sizeof(QOVMsgHead);
}
constexpr std::size_t headSize(const CQOV_OM_MsgPackage&) {
  return sizeof(QOVMsgHead) + sizeof(TLVMsgHeadV3);
}

template <class Package>
std::string textOf(const Package& package) {
  std::ostringstream out;
  package.dump(out);
  return out.str();
}

}  // namespace

const char* nameOf(Kind kind) {
  constexpr const char* kNames[] = {"v3", "internal", "om"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::optional<Kind> kindOf(std::string_view name) {
  for (const Kind kind : kKinds) {
    if (name == nameOf(kind)) {
      return kind;
    }
  }
  return std::nullopt;
}

std::optional<Kind> kindOfBytes(std::string_view bytes) {
  if (bytes.size() < sizeof(std::uint32_t)) {
    return std::nullopt;
  }
  std::uint32_t magic = 0;
  std::memcpy(&magic, bytes.data(), sizeof magic);
  if (magic == TLVMsgHeadV3::kMagic) {
    return Kind::kV3;
  }
  if (magic != QOVMsgHead::kMagic) {
    return std::nullopt;
  }
  constexpr std::size_t kFlagsAt = offsetof(QOVMsgHead, flags_);
  const bool om = bytes.size() > kFlagsAt && (bytes[kFlagsAt] & QOVMsgHead::kFlagOm) != 0;
  return om ? Kind::kOm : Kind::kInternal;
}

Message::Message(Kind kind) {
  switch (kind) {
    case Kind::kV3:
      package_ = std::make_unique<CT7QPackageV3>();
      break;
    case Kind::kInternal:
      package_ = std::make_unique<CQOV_MsgPackage>();
      break;
    case Kind::kOm:
      package_ = std::make_unique<CQOV_OM_MsgPackage>(nullptr);
      break;
  }
}

std::optional<std::size_t> Message::decode(std::string_view bytes) {
  // decode() takes no const bytes, and reads only.
  auto* const buffer = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  const auto size = static_cast<unsigned int>(
      std::min<std::size_t>(bytes.size(), std::numeric_limits<unsigned int>::max()));
  return std::visit(
      [&](const auto& package) -> std::optional<std::size_t> {
        const unsigned int records = package->decode(buffer, size);
        if (records == CT7QPackageV3::kFailed) {
          return std::nullopt;
        }
        return headSize(*package) + records;
      },
      package_);
}

const DecodeFault& Message::fault() const {
  return std::visit(
      [](const auto& package) -> const DecodeFault& { return package->decodeFault(); }, package_);
}

std::string dumpOf(const CT7QPackageV3& message) {
  return textOf(message);
}

std::string Message::dump() const {
  return std::visit([](const auto& package) { return textOf(*package); }, package_);
}

Json::Value Message::json() const {
  return std::visit([](const auto& package) { return common::toJson(*package); }, package_);
}

}  // namespace qov::ctl
