#include "modules/common/message_json.h"

#include <qovpub/qov_exception.h>

#include "modules/common/json_object.h"

namespace qov::common {
namespace {

constexpr std::uint8_t kMaxType = 4;

Json::Value headJson(const TLVMsgHeadV3& head) {
  Json::Value json(Json::objectValue);
  json["magic"] = jsonNumber(head.magic_);
  json["version"] = jsonNumber(head.version_);
  json["ret"] = jsonNumber(head.ret_);
  json["ssk"] = jsonNumber(head.ssk_);
  json["nid"] = jsonNumber(head.nid_);
  json["reserved"] = jsonNumber(head.reserved_);
  json["bid"] = jsonNumber(head.bid_);
  json["ser"] = jsonNumber(head.ser_);
  return json;
}

Json::Value headJson(const QOVMsgHead& head) {
  Json::Value json(Json::objectValue);
  json["magic"] = jsonNumber(head.magic_);
  json["version"] = jsonNumber(head.version_);
  json["type"] = jsonNumber(head.type_);
  json["mst"] = jsonNumber(head.mst_);
  json["spid"] = jsonNumber(head.spid_);
  json["smid"] = jsonNumber(head.smid_);
  json["rpid"] = jsonNumber(head.rpid_);
  json["rmid"] = jsonNumber(head.rmid_);
  json["flags"] = jsonNumber(head.flags_);
  json["cid"] = Json::Int64{head.cid_};
  json["sn"] = jsonNumber(head.sn_);
  json["opc"] = jsonNumber(head.opc_);
  return json;
}

/// Refuses another magic number or version, with which no message is decoded.
template <class Head>
void checkKind(const JsonObject& json) {
  if (json.numberOr<std::uint32_t>("magic", Head::kMagic) != Head::kMagic) {
    json.refuse("magic", "not " + std::to_string(Head::kMagic));
  }
  if (json.numberOr<std::uint32_t>("version", Head::kVersion) != Head::kVersion) {
    json.refuse("version", "not " + std::to_string(Head::kVersion));
  }
}

JsonObject headObject(const Json::Value& json, const std::string& place, const TLVMsgHeadV3&) {
  return {json, place, {"magic", "version", "ret", "ssk", "nid", "reserved", "bid", "ser", "len"}};
}

JsonObject headObject(const Json::Value& json, const std::string& place, const QOVMsgHead&) {
  return {json,
          place,
          {"magic", "version", "type", "mst", "spid", "smid", "rpid", "rmid", "flags", "cid", "sn",
           "opc", "len"}};
}

void readHead(const JsonObject& json, TLVMsgHeadV3& head) {
  head.ret_ = json.numberOr("ret", head.ret_);
  head.ssk_ = json.numberOr("ssk", head.ssk_);
  head.nid_ = json.numberOr("nid", head.nid_);
  head.reserved_ = json.numberOr("reserved", head.reserved_);
  head.bid_ = json.numberOr("bid", head.bid_);
  head.ser_ = json.numberOr("ser", head.ser_);
}

void readHead(const JsonObject& json, QOVMsgHead& head) {
  head.type_ = json.number("type", kMaxType);
  if (head.type_ == 0) {
    json.refuse("type", "0 is no message type; they are 1 to 4");
  }
  head.mst_ = json.numberOr<std::uint8_t>("mst", head.mst_);
  head.spid_ = json.numberOr<std::uint8_t>("spid", head.spid_);
  head.smid_ = json.numberOr<std::uint8_t>("smid", head.smid_);
  head.rpid_ = json.numberOr<std::uint8_t>("rpid", head.rpid_);
  head.rmid_ = json.numberOr<std::uint8_t>("rmid", head.rmid_);
  head.flags_ = json.numberOr<std::uint8_t>("flags", head.flags_);
  head.cid_ = json.numberOr<std::int32_t>("cid", head.cid_);
  head.sn_ = json.numberOr<std::uint32_t>("sn", head.sn_);
  head.opc_ = json.numberOr<std::uint64_t>("opc", head.opc_);
}

template <class Package>
Json::Value packageJson(const Package& message) {
  Json::Value json(Json::objectValue);
  json["head"] = headJson(message.head());
  json["head"]["len"] = jsonNumber(bodyLength(message));
  json["records"] = Json::Value(Json::arrayValue);
  for (unsigned long i = 0; i < message.count(); ++i) {
    json["records"].append(toJson(message[i]));
  }
  return json;
}

template <class Package>
void readRecords(const Json::Value& records, const std::string& place, Package& message) {
  for (Json::ArrayIndex i = 0; i < records.size(); ++i) {
    auto record = recordFromJson(records[i], elementPlace(place, i));
    message.append(record.get());
    static_cast<void>(record.release());
  }
}

/// Sets the head of `message` from the member of that name, or leaves the defaults, and gives the
/// length that is there, or `length`.
template <class Head>
std::uint32_t readHeadOf(const JsonObject& message, Head& head, std::uint32_t length) {
  const Json::Value none(Json::objectValue);
  const JsonObject json =
      headObject(message.has("head") ? message.get("head") : none, message.place("head"), head);
  checkKind<Head>(json);
  readHead(json, head);
  return json.numberOr("len", length);
}

template <class Package>
void readPackage(const Json::Value& json, const std::string& place, Package& message) {
  const JsonObject object(json, place, {"head", "records"});
  readRecords(object.array("records"), object.place("records"), message);
  const std::uint32_t length = bodyLength(message);
  message.head().len_ = readHeadOf(object, message.head(), length);
  if (message.head().len_ != length) {
    throw BadJson(memberPlace(object.place("head"), "len"), std::to_string(message.head().len_) +
                                                                ", but the records have " +
                                                                std::to_string(length) + " bytes");
  }
}

template <class Package>
std::uint32_t lengthOfRecords(const Package& message) {
  unsigned long length = 0;
  for (const CTLVRecordV3& record : message) {
    length += MIN_RECORD_SIZE + record.length();
  }
  return static_cast<std::uint32_t>(length);
}

}  // namespace

std::uint32_t bodyLength(const CT7QPackageV3& message) {
  return lengthOfRecords(message);
}

std::uint32_t bodyLength(const CQOV_MsgPackage& message) {
  return lengthOfRecords(message);
}

Json::Value toJson(const CTLVRecordV3& record) {
  Json::Value json(Json::objectValue);
  json["cmd"] = jsonNumber(record.cmd());
  json["length"] = jsonNumber(record.length());
  json["cells"] = Json::Value(Json::arrayValue);
  for (const CTLVCell& cell : record) {
    json["cells"].append(toJson(cell));
  }
  return json;
}

Json::Value toJson(const CT7QPackageV3& message) {
  return packageJson(message);
}

Json::Value toJson(const CQOV_MsgPackage& message) {
  return packageJson(message);
}

Json::Value toJson(const CQOV_OM_MsgPackage& message) {
  Json::Value json = packageJson(message);
  json["head"]["len"] = jsonNumber(message.head().len_);
  if (message.get() != nullptr) {
    json["inner"] = toJson(*message.get());
  }
  return json;
}

std::unique_ptr<CTLVRecordV3> recordFromJson(const Json::Value& json, const std::string& place) {
  const JsonObject object(json, place, {"cmd", "length", "cells"});
  auto record = std::make_unique<CTLVRecordV3>(object.number<std::uint64_t>("cmd"));
  const Json::Value& cells = object.array("cells");
  for (Json::ArrayIndex i = 0; i < cells.size(); ++i) {
    const std::string cellPlace = elementPlace(object.place("cells"), i);
    try {
      record->add(cellFromJson(cells[i], cellPlace));
    } catch (const CQOV_Exception& e) {
      throw BadJson(cellPlace, reasonOf(e));
    }
  }
  const auto length = object.numberOr<std::uint64_t>("length", record->length());
  if (length != record->length()) {
    object.refuse("length", std::to_string(length) + ", but the cells have " +
                                std::to_string(record->length()) + " bytes");
  }
  return record;
}

void fromJson(const Json::Value& json, const std::string& place, CT7QPackageV3& message) {
  readPackage(json, place, message);
}

void fromJson(const Json::Value& json, const std::string& place, CQOV_MsgPackage& message) {
  readPackage(json, place, message);
}

void fromJson(const Json::Value& json, const std::string& place, CQOV_OM_MsgPackage& message) {
  const JsonObject object(json, place, {"head", "records", "inner"});
  if (!object.array("records").empty()) {
    object.refuse("records", "not empty: the inner message has the records");
  }
  auto inner = std::make_unique<CT7QPackageV3>();
  fromJson(object.get("inner"), object.place("inner"), *inner);
  const auto length = static_cast<std::uint32_t>(sizeof(TLVMsgHeadV3)) + inner->head().len_;
  message.head().len_ = readHeadOf(object, message.head(), length);
  message.set(inner.release());
}

}  // namespace qov::common
