#include "tests/msg/vector_meaning.h"

#include <json/reader.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/vectors/vector_file.h"

namespace qov::tests {
namespace {

constexpr std::array<std::string_view, 10> kTypeNames{"Invalid", "Octet", "String", "Uint", "Int",
                                                      "Bool",    "Enum",  "Array",  "Json", "Time"};

Json::Value number(std::uint64_t v) {
  return Json::Value(static_cast<Json::UInt64>(v));
}

/// The member `name` as an unsigned number of that many bits.
template <class Number>
Number unsignedOf(const Json::Value& object, const char* name) {
  const Json::UInt64 v = object[name].asUInt64();
  if (!object.isMember(name) || v > static_cast<Number>(-1)) {
    throw std::runtime_error(std::string("no such number: ") + name);
  }
  return static_cast<Number>(v);
}

Json::Value meaningOf(const TLVMsgHeadV3& head) {
  Json::Value v;
  v["magic"] = number(head.magic_);
  v["version"] = number(head.version_);
  v["ret"] = number(head.ret_);
  v["ssk"] = number(head.ssk_);
  v["nid"] = number(head.nid_);
  v["reserved"] = number(head.reserved_);
  v["bid"] = number(head.bid_);
  v["ser"] = number(head.ser_);
  v["len"] = number(head.len_);
  return v;
}

Json::Value meaningOf(const QOVMsgHead& head) {
  Json::Value v;
  v["magic"] = number(head.magic_);
  v["version"] = number(head.version_);
  v["type"] = number(head.type_);
  v["mst"] = number(head.mst_);
  v["spid"] = number(head.spid_);
  v["smid"] = number(head.smid_);
  v["rpid"] = number(head.rpid_);
  v["rmid"] = number(head.rmid_);
  v["flags"] = number(head.flags_);
  v["cid"] = Json::Value(Json::Int64{head.cid_});
  v["sn"] = number(head.sn_);
  v["opc"] = number(head.opc_);
  v["len"] = number(head.len_);
  return v;
}

/// All but LEN, which encoding finds out.
void fillHead(TLVMsgHeadV3& head, const Json::Value& v) {
  head.magic_ = unsignedOf<std::uint32_t>(v, "magic");
  head.version_ = unsignedOf<std::uint32_t>(v, "version");
  head.ret_ = unsignedOf<std::uint32_t>(v, "ret");
  head.ssk_ = unsignedOf<std::uint32_t>(v, "ssk");
  head.nid_ = unsignedOf<std::uint16_t>(v, "nid");
  head.reserved_ = unsignedOf<std::uint16_t>(v, "reserved");
  head.bid_ = unsignedOf<std::uint16_t>(v, "bid");
  head.ser_ = unsignedOf<std::uint16_t>(v, "ser");
}

void fillHead(QOVMsgHead& head, const Json::Value& v) {
  head.magic_ = unsignedOf<std::uint32_t>(v, "magic");
  head.version_ = unsignedOf<std::uint8_t>(v, "version");
  head.type_ = unsignedOf<std::uint8_t>(v, "type");
  head.mst_ = unsignedOf<std::uint8_t>(v, "mst");
  head.spid_ = unsignedOf<std::uint8_t>(v, "spid");
  head.smid_ = unsignedOf<std::uint8_t>(v, "smid");
  head.rpid_ = unsignedOf<std::uint8_t>(v, "rpid");
  head.rmid_ = unsignedOf<std::uint8_t>(v, "rmid");
  head.flags_ = unsignedOf<std::uint8_t>(v, "flags");
  head.cid_ = v["cid"].asInt();
  head.sn_ = unsignedOf<std::uint32_t>(v, "sn");
  head.opc_ = unsignedOf<std::uint64_t>(v, "opc");
}

/// How many bytes the UTF-8 character at the start of `text` has; 0 if there is none.
std::size_t characterAt(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) {
    return 1;
  }
  const std::size_t size = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
  if (byte(0) < 0xC0 || byte(0) > 0xF7 || text.size() < size) {
    return 0;
  }
  std::uint32_t character = byte(0) & 0x7FU >> size;
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) {
      return 0;
    }
    character = character << 6 | (byte(i) & 0x3FU);
  }
  constexpr std::array<std::uint32_t, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
  const bool half = character >= 0xD800 && character <= 0xDFFF;
  return character >= kLeast[size] && character <= 0x10FFFF && !half ? size : 0;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = characterAt(text);
    if (size == 0) {
      return false;
    }
    text.remove_prefix(size);
  }
  return true;
}

/// Whether the value is UTF-8 that ends in its only NUL.
bool isText(const CTLVCell& cell) {
  return cell.length() == cell.text().size() + 1 && isUtf8(cell.text());
}

Json::Value octets(const CTLVCell& cell) {
  return Json::Value(hexOf(cell.value(), cell.length()));
}

/// Whether the whole of the text is one JSON value; the library's reader takes more than that.
bool isJson(std::string_view text) {
  Json::CharReaderBuilder builder;
  builder.strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  Json::Value ignored;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  return reader->parse(text.data(), text.data() + text.size(), &ignored, nullptr);
}

/// An object that looks like the bytes of a value is shown as its bytes.
bool isOctets(const Json::Value& v) {
  return v.isObject() && v.size() == 1 && v.isMember("octets");
}

/// The value of a cell that says something in its type's way, or null.
bool readValue(const CTLVCell& cell, Json::Value& v) {
  switch (cell.type()) {
    case CTLVCell::TLV_INVALID:
      v = octets(cell);
      return true;
    case CTLVCell::TLV_OCTET:
      v = Json::Value(hexOf(reinterpret_cast<const unsigned char*>(cell.getOctets().data()),
                            cell.getOctets().size()));
      return true;
    case CTLVCell::TLV_STRING:
      v = Json::Value(std::string(cell.getString()));
      return isText(cell);
    case CTLVCell::TLV_INT:
      v = Json::Value(Json::Int64{cell.getSigned()});
      return true;
    case CTLVCell::TLV_ARRAY:
      return isText(cell) && isJson(cell.text()) && cell.getArray(v) && v.isArray();
    case CTLVCell::TLV_JSON:
      return isText(cell) && isJson(cell.text()) && cell.getJson(v) && !v.isArray() && !isOctets(v);
    default:
      v = number(cell.getUnsigned());
      return true;
  }
}

Json::Value meaningOf(const CTLVCell& cell) {
  Json::Value v;
  v["tag"] = number(cell.tag());
  v["type"] = std::string(kTypeNames.at(cell.type()));
  v["length"] = number(cell.length());
  if (!readValue(cell, v["value"])) {
    v["value"] = Json::Value(Json::objectValue);
    v["value"]["octets"] = octets(cell);
  }
  return v;
}

Json::Value meaningOf(const CTLVRecordV3& record) {
  Json::Value v;
  v["cmd"] = number(record.cmd());
  v["length"] = number(record.length());
  v["cells"] = Json::Value(Json::arrayValue);
  for (const CTLVCell& cell : record) {
    v["cells"].append(meaningOf(cell));
  }
  return v;
}

template <class Package>
Json::Value meaningOfAny(const Package& package) {
  Json::Value v;
  v["head"] = meaningOf(package.head());
  v["records"] = Json::Value(Json::arrayValue);
  for (unsigned long i = 0; i < package.count(); ++i) {
    v["records"].append(meaningOf(package[i]));
  }
  return v;
}

CTLVCell::ETLVType typeOf(const Json::Value& cell) {
  const auto* const at = std::find(kTypeNames.begin(), kTypeNames.end(), cell["type"].asString());
  if (at == kTypeNames.end()) {
    throw std::runtime_error("no type: " + cell["type"].asString());
  }
  return static_cast<CTLVCell::ETLVType>(at - kTypeNames.begin());
}

/// The `size` bytes of a number, the lowest first.
std::vector<unsigned char> bytesOf(std::uint64_t v, std::size_t size) {
  std::vector<unsigned char> bytes(size);
  for (std::size_t i = 0; i < size && i < 8; ++i) {
    bytes[i] = static_cast<unsigned char>(v >> 8 * i);
  }
  return bytes;
}

std::vector<unsigned char> numberBytes(const Json::Value& cell) {
  const Json::Value& v = cell["value"];
  const bool negative = v.isInt64() && v.asInt64() < 0;
  return bytesOf(negative ? static_cast<std::uint64_t>(v.asInt64()) : v.asUInt64(),
                 unsignedOf<std::uint16_t>(cell, "length"));
}

CTLVCell cellOf(const Json::Value& meaning) {
  const auto tag = unsignedOf<std::uint16_t>(meaning, "tag");
  const CTLVCell::ETLVType type = typeOf(meaning);
  const Json::Value& value = meaning["value"];
  const bool raw = isOctets(value);
  CTLVCell cell;
  if (!raw && (type == CTLVCell::TLV_ARRAY || type == CTLVCell::TLV_JSON)) {
    cell.setJson(tag, value);
  } else if (!raw && type == CTLVCell::TLV_STRING) {
    cell.setString(tag, value.asString());
  } else if (raw || type == CTLVCell::TLV_OCTET || type == CTLVCell::TLV_INVALID) {
    const std::vector<unsigned char> bytes =
        bytesOfHex(raw ? value["octets"].asString() : value.asString());
    cell.set_i(type, tag, bytes.data(), bytes.size());
  } else {
    const std::vector<unsigned char> bytes = numberBytes(meaning);
    cell.set_i(type, tag, bytes.data(), bytes.size());
  }
  return cell;
}

template <class Package>
void fillAny(Package& package, const Json::Value& meaning) {
  fillHead(package.head(), meaning["head"]);
  for (const Json::Value& record : meaning["records"]) {
    CTLVRecordV3& added = package.addRecord(unsignedOf<std::uint64_t>(record, "cmd"));
    for (const Json::Value& cell : record["cells"]) {
      added.add(cellOf(cell));
    }
  }
}

}  // namespace

Json::Value meaningOf(const CT7QPackageV3& package) {
  return meaningOfAny(package);
}

Json::Value meaningOf(const CQOV_MsgPackage& package) {
  return meaningOfAny(package);
}

Json::Value meaningOf(const CQOV_OM_MsgPackage& package) {
  Json::Value v = meaningOfAny(package);
  if (package.get() != nullptr) {
    v["inner"] = meaningOfAny(*package.get());
  }
  return v;
}

void fill(CT7QPackageV3& package, const Json::Value& meaning) {
  fillAny(package, meaning);
}

void fill(CQOV_MsgPackage& package, const Json::Value& meaning) {
  fillAny(package, meaning);
}

void fill(CQOV_OM_MsgPackage& package, const Json::Value& meaning) {
  fillAny(package, meaning);
  package.set(new CT7QPackageV3);
  fillAny(*package.get(), meaning["inner"]);
}

}  // namespace qov::tests
