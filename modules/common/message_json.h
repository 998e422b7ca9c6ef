#ifndef QOV_MODULES_COMMON_MESSAGE_JSON_H
#define QOV_MODULES_COMMON_MESSAGE_JSON_H

#include <json/value.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_om_message_package.h>

#include <cstdint>
#include <memory>
#include <string>

#include "modules/common/cell_json.h"

namespace qov::common {

// Records and messages as JSON.
//
//   record:           {"cmd":n,"length":n,"cells":[...]}, the cells as cell_json.h has them
//   V3 message:       {"head":{"magic","version","ret","ssk","nid","reserved","bid","ser","len"},
//                      "records":[...]}
//   internal message: {"head":{"magic","version","type","mst","spid","smid","rpid","rmid","flags",
//                      "cid","sn","opc","len"},"records":[...]}
//   OM message:       {"head":{as internal},"records":[],"inner":{a V3 message}}
//
// All numbers are JSON integers. What is written is complete. What is read may leave out every
// length ("length", "len") and, of a head, whatever has a default; lengths that are given have to
// be right (the "len" of an OM message, which decoding does not look at, excepted). All is strict:
// BadJson, with the place, for an unknown key, another type, a number out of range, a message that
// could not be decoded again.

Json::Value toJson(const CTLVRecordV3& record);
Json::Value toJson(const CT7QPackageV3& message);
Json::Value toJson(const CQOV_MsgPackage& message);
Json::Value toJson(const CQOV_OM_MsgPackage& message);

/// @{
/// Bytes of the records on the wire.
std::uint32_t bodyLength(const CT7QPackageV3& message);
std::uint32_t bodyLength(const CQOV_MsgPackage& message);
/// @}

/// A record of the JSON at `place`.
std::unique_ptr<CTLVRecordV3> recordFromJson(const Json::Value& json, const std::string& place);

/// Sets head and records of `message`, which has none yet, from the JSON at `place`.
void fromJson(const Json::Value& json, const std::string& place, CT7QPackageV3& message);
void fromJson(const Json::Value& json, const std::string& place, CQOV_MsgPackage& message);
void fromJson(const Json::Value& json, const std::string& place, CQOV_OM_MsgPackage& message);

}  // namespace qov::common

#endif
