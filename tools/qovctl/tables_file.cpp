#include "tools/qovctl/tables_file.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "modules/common/cell_json.h"
#include "modules/common/json_object.h"
#include "tools/common/input.h"
#include "tools/qovctl/environment.h"
#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

using common::BadJson;
using common::elementPlace;
using common::JsonObject;

/// So that a name is no number, and commas, colons and slashes end it on the command line.
bool isName(std::string_view text) {
  const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  const auto belongs = [&](char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
  };
  return !text.empty() && isLetter(text.front()) && std::all_of(text.begin(), text.end(), belongs);
}

std::string readName(const JsonObject& object) {
  std::string name = object.text("name");
  if (!isName(name)) {
    object.refuse("name", "\"" + shortened(name) +
                              "\" is no name: a letter, then letters, digits, \"-\", \"_\", \".\"");
  }
  return name;
}

/// Of the array's elements, of which there has to be one.
template <class Read>
void readList(const JsonObject& object, const char* key, Read read) {
  const Json::Value& list = object.array(key);
  if (list.empty()) {
    object.refuse(key, "empty");
  }
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
    read(list[i], elementPlace(object.place(key), i));
  }
}

void addColumn(const Json::Value& json, const std::string& place, Table& table) {
  const JsonObject object(json, place, {"tag", "name", "type"});
  const auto tag = object.number<unsigned short>("tag", MAX_TAG_VALUE);
  if (const Column* other = columnOf(&table, tag)) {
    object.refuse("tag", "column \"" + other->name + "\" has this tag");
  }
  const std::string name = readName(object);
  if (const Column* other = columnOf(&table, name)) {
    object.refuse("name", "the column with tag " + std::to_string(other->tag) + " has this name");
  }
  const auto type = common::typeFromName(object.text("type"), object.place("type"));
  table.columns.push_back({tag, name, type});
}

void addTable(const Json::Value& json, const std::string& place, std::vector<Table>& tables) {
  const JsonObject object(json, place, {"number", "name", "columns"});
  Table table{object.number<std::uint32_t>("number"), readName(object), {}};
  if (table.number == 0) {
    object.refuse("number", "0 is no table");
  }
  for (const Table& other : tables) {
    if (other.number == table.number) {
      object.refuse("number", "another table has this number");
    }
    if (other.name == table.name) {
      object.refuse("name", "another table has this name");
    }
  }
  readList(object, "columns",
           [&](const Json::Value& column, const std::string& at) { addColumn(column, at, table); });
  tables.push_back(std::move(table));
}

std::vector<Table> tablesOfText(const std::string& text) {
  std::vector<Table> tables;
  const Json::Value json = common::parseJson(text);
  readList(JsonObject(json, "", {"tables"}), "tables",
           [&](const Json::Value& table, const std::string& at) { addTable(table, at, tables); });
  return tables;
}

/// Empty when there is none.
std::string defaultFile() {
  namespace fs = std::filesystem;
  fs::path folder = fromEnvironment("XDG_CONFIG_HOME");
  // One that is relative counts as not set.
  if (!folder.is_absolute()) {
    const std::string home = fromEnvironment("HOME");
    if (home.empty()) {
      return "";
    }
    folder = fs::path(home) / ".config";
  }
  const fs::path file = folder / "qovpub" / "tables.json";
  std::error_code unused;
  // One that may be there, but cannot be reached, is told when it is read. So is a link to nothing.
  return fs::symlink_status(file, unused).type() == fs::file_type::not_found ? "" : file.string();
}

}  // namespace

Tables readTablesFile(const std::string& file) {
  std::string text;
  try {
    text = tools::readFile(file);
  } catch (const std::runtime_error& wrong) {
    throw Failure(kFailed, file + ": " + wrong.what());
  }
  try {
    return Tables(tablesOfText(text));
  } catch (const common::NotJson& wrong) {
    throw Failure(kBadData, file + ":" + std::to_string(wrong.line()) + ": " + wrong.what());
  } catch (const BadJson& wrong) {
    throw Failure(kBadData, file + ": " + wrong.what());
  }
}

Tables tablesInForce(const std::string& file) {
  for (const std::string& each : {file, fromEnvironment("QOVCTL_TABLES"), defaultFile()}) {
    if (!each.empty()) {
      return readTablesFile(each);
    }
  }
  return developmentTables();
}

}  // namespace qov::ctl
