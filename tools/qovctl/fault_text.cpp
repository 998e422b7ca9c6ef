#include "tools/qovctl/fault_text.h"

#include <cstdint>
#include <cstring>

#include "modules/common/decode_fault.h"

namespace qov::ctl {
namespace {

std::string lineOf(std::size_t at, const std::string& why) {
  return "bad data at byte " + std::to_string(at) + ": " + why;
}

}  // namespace

std::string textOf(const DecodeFault& fault, Kind kind, std::size_t start) {
  const bool inner = kind == Kind::kOm && fault.pos >= sizeof(QOVMsgHead);
  return lineOf(start + fault.pos, common::textOf(fault)) +
         (inner ? " (in the inner message)" : "");
}

std::string unknownKindText(std::string_view bytes, std::size_t start) {
  if (bytes.size() < sizeof(std::uint32_t)) {
    return lineOf(start, "head-short: " + std::to_string(bytes.size()) +
                             " bytes are left, and a header begins with a magic number of 4");
  }
  std::uint32_t magic = 0;
  std::memcpy(&magic, bytes.data(), sizeof magic);
  return lineOf(start, "magic: " + common::hexWord(magic) + " is neither " +
                           common::hexWord(TLVMsgHeadV3::kMagic) + " (V3) nor " +
                           common::hexWord(QOVMsgHead::kMagic) + " (internal, OM)");
}

}  // namespace qov::ctl
