#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

#include <cerrno>
#include <utility>

namespace {

// JsonCpp marks its one-line writer and the reader that goes with it as old in favour of streams;
// the text on the wire is the one that this writer produces.
std::string compactText(const Json::Value& v) {
  Json::FastWriter writer;
  std::string text = writer.write(v);
  if (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  return text;
}

void writeElement(const Json::Value& element, std::string& out) {
  if (element.isUInt()) {
    out += std::to_string(element.asUInt());
  }
  if (element.isInt()) {
    out += std::to_string(element.asInt());
  }
  if (element.isString()) {
    out += element.asString();
  }
}

}  // namespace

void CTLVCell::set(unsigned short tag, const Json::Value& v) {
  const unsigned short typeTag = packed(v.isArray() ? TLV_ARRAY : TLV_JSON, tag);
  const std::string text = compactText(v);
  replaceOrThrow(typeTag, text.data(), text.size(), true);
}

bool qov::CellValue::parse(Json::Value& v) const {
  const std::string_view json = text();
  try {
    Json::Value parsed;
    if (!Json::Reader().parse(json.data(), json.data() + json.size(), parsed, true)) {
      return false;
    }
    v.swap(parsed);
    return true;
  } catch (const Json::Exception&) {
    // JsonCpp's way to refuse nesting over 1000 levels.
    return false;
  }
}

bool CTLVCell::getJson(Json::Value& v) const {
  return type() == TLV_JSON && parse(v);
}

bool CTLVCell::getArray(Json::Value& v) const {
  return type() == TLV_ARRAY && parse(v);
}

Json::Value CTLVCell::getJson() const {
  require(1U << TLV_JSON | 1U << TLV_ARRAY, "json");
  Json::Value v;
  if (!parse(v)) {
    throw CQOV_Exception("CTLVCell isn't JSON text! tag equal to " + std::to_string(tag()));
  }
  return v;
}

std::string CTLVCell::buildArrayValue(const CTLVCell& cell) const {
  Json::Value array;
  std::string out;
  if (!cell.parse(array) || !array.isArray()) {
    return out;
  }
  for (Json::ArrayIndex i = 0; i < array.size(); ++i) {
    if (i > 0) {
      out += ',';
    }
    writeElement(array[i], out);
  }
  return out;
}

std::string CTLVCell::toString() const {
  switch (type()) {
    case TLV_INVALID:
      return {};
    case TLV_OCTET:
      return {reinterpret_cast<const char*>(value()), length()};
    case TLV_STRING:
    case TLV_JSON:
      return std::string(text());
    case TLV_ARRAY:
      return buildArrayValue(*this);
    case TLV_UINT:
      return std::to_string(number());
    default:
      return std::to_string(static_cast<std::int64_t>(number()));
  }
}

CTLVRecordV3& CTLVRecordV3::addJson(unsigned short tag, const Json::Value& v) {
  CTLVCell cell;
  cell.set(tag, v);
  return add(std::move(cell));
}

Json::Value CTLVRecordV3::getJson(unsigned short tag) const {
  return (*this)[tag].getJson();
}

Json::Value CTLVRecordV3::getJson(unsigned short tag, const Json::Value& otherwise) const {
  const CTLVCell* cell = find(tag);
  return cell == nullptr ? otherwise : cell->getJson();
}
