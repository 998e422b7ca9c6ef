#include "tools/qovctl/fleet_message.h"

#include <qovpub/qov_om_message_package.h>

#include "modules/common/json_object.h"
#include "modules/common/message_json.h"
#include "modules/common/message_payload.h"
#include "tools/qovctl/rows_text.h"

namespace qov::ctl {
namespace {

template <class Package>
std::string lineOfRecords(const Package& message) {
  std::string line;
  for (const CTLVRecordV3& record : message) {
    line += (line.empty() ? "" : "; ") + std::to_string(record.cmd());
    for (const CTLVCell& cell : record) {
      line += " " + std::to_string(cell.tag()) + ":" + valueText(cell);
    }
  }
  return line.empty() ? "-" : line;
}

}  // namespace

std::unique_ptr<CQOV_MsgPackage> messageOf(const Delivery& delivery) {
  if (delivery.payload.size() > Broker::kMostBytes) {
    throw common::BadBytes(std::to_string(delivery.payload.size()) + " bytes; " +
                           std::to_string(Broker::kMostBytes) + " at most");
  }
  return delivery.contentType == kMessageBytes ? common::messageOfBytes(delivery.payload)
                                               : common::messageOfJson(delivery.payload);
}

Json::Value jsonOf(const CQOV_MsgPackage& message) {
  const auto* const om = dynamic_cast<const CQOV_OM_MsgPackage*>(&message);
  return om != nullptr ? common::toJson(*om) : common::toJson(message);
}

std::string recordsLine(const CQOV_MsgPackage& message) {
  const auto* const om = dynamic_cast<const CQOV_OM_MsgPackage*>(&message);
  return om != nullptr && om->get() != nullptr ? lineOfRecords(*om->get()) : lineOfRecords(message);
}

}  // namespace qov::ctl
