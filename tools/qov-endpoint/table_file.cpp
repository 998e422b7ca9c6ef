#include "tools/qov-endpoint/table_file.h"

#include <qovpub/qov_exception.h>

#include "modules/common/cell_json.h"
#include "tools/qov-endpoint/input_file.h"

namespace qov::endpoint {
namespace {

using qov::common::BadJson;
using qov::common::elementPlace;
using qov::common::JsonObject;

void readCell(const Json::Value& json, const std::string& place, CTLVRecordV3& row) {
  const CTLVCell cell = qov::common::cellFromJson(json, place);
  if (isReservedTag(cell.tag())) {
    throw BadJson(place, "tag " + std::to_string(cell.tag()) + " is the endpoint's own");
  }
  try {
    row.add(cell);
  } catch (const CQOV_Exception& tooLong) {
    throw BadJson(place, tooLong.what());
  }
}

void readRow(const Json::Value& json, const std::string& place, std::uint32_t number,
             Tables& tables) {
  const JsonObject object(json, place, {"key", "cells"});
  const auto key = object.number<std::uint64_t>("key");
  if (key == 0) {
    object.refuse("key", "0 is no key");
  }
  CTLVRecordV3 row;
  const Json::Value& cells = object.array("cells");
  for (Json::ArrayIndex i = 0; i < cells.size(); ++i) {
    readCell(cells[i], elementPlace(object.place("cells"), i), row);
  }
  switch (tables.addRow(number, key, row)) {
    case kOk:
      return;
    case kTableFull:
      throw BadJson(place, "too many rows, or too many bytes in them");
    default:
      throw BadJson(place, "another row has this key, or the row is too long to be answered");
  }
}

void readTable(const Json::Value& json, const std::string& place, Tables& tables) {
  const JsonObject object(json, place, {"name", "number", "rows"});
  if (object.has("name")) {
    object.text("name");
  }
  const auto number = object.number<std::uint32_t>("number");
  if (number == 0 || !tables.addEmpty(number)) {
    object.refuse("number", number == 0 ? "0 is no table" : "another table has this number");
  }
  const Json::Value& rows = object.array("rows");
  for (Json::ArrayIndex i = 0; i < rows.size(); ++i) {
    readRow(rows[i], elementPlace(object.place("rows"), i), number, tables);
  }
}

}  // namespace

void loadTables(const std::string& path, Tables& tables) {
  readInputFile(path, [&](const Json::Value& json) {
    const JsonObject root(json, "", {"tables"});
    const Json::Value& list = root.array("tables");
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
      readTable(list[i], elementPlace("tables", i), tables);
    }
  });
}

}  // namespace qov::endpoint
