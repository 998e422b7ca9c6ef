#include "tools/qovctl/tables.h"

#include <algorithm>
#include <limits>

#include "tools/common/endpoint_protocol.h"
#include "tools/qovctl/numbers.h"

namespace qov::ctl {
namespace {

struct Named {
  std::uint32_t value;
  const char* name;
};

constexpr Named kOperations[] = {{endpoint::kGetNext, "get-next"},
                                 {endpoint::kGet, "get"},
                                 {endpoint::kStore, "store"},
                                 {endpoint::kReadCounts, "counts"}};

constexpr Named kResults[] = {{endpoint::kUnknownOperation, "unknown operation"},
                              {endpoint::kUnknownTable, "unknown table"},
                              {endpoint::kNoSuchRow, "no such row"},
                              {endpoint::kBadRequest, "bad request"},
                              {endpoint::kReadOnly, "read-only table"},
                              {endpoint::kTableFull, "table full"}};

template <std::size_t size>
const char* nameIn(const Named (&names)[size], std::uint32_t value) {
  for (const Named& named : names) {
    if (named.value == value) {
      return named.name;
    }
  }
  return nullptr;
}

std::optional<std::uint32_t> operationOfText(std::string_view name) {
  for (const Named& named : kOperations) {
    if (named.name == name) {
      return named.value;
    }
  }
  return std::nullopt;
}

/// The first that `is`, or null.
template <class List, class Is>
auto findIn(const List& list, Is is) -> const typename List::value_type* {
  const auto found = std::find_if(list.begin(), list.end(), is);
  return found == list.end() ? nullptr : &*found;
}

/// The column that `is`, or null.
template <class Is>
const Column* findColumn(const Table* table, Is is) {
  static const std::vector<Column> kOfEveryTable{
      {endpoint::kCursorTag, "key", CTLVCell::TLV_UINT},
      {endpoint::kStatusTag, "status", CTLVCell::TLV_ENUM}};
  const Column* const column = findIn(kOfEveryTable, is);
  return column != nullptr || table == nullptr ? column : findIn(table->columns, is);
}

}  // namespace

const Column* columnOf(const Table* table, std::string_view name) {
  return findColumn(table, [&](const Column& column) { return column.name == name; });
}

const Column* columnOf(const Table* table, unsigned short tag) {
  return findColumn(table, [&](const Column& column) { return column.tag == tag; });
}

const Table* Tables::find(std::uint32_t number) const {
  return findIn(tables_, [&](const Table& table) { return table.number == number; });
}

std::optional<std::uint32_t> Tables::tableOfText(std::string_view text) const {
  if (const Table* table = findIn(tables_, [&](const Table& each) { return each.name == text; })) {
    return table->number;
  }
  const auto number = numberOf(text, std::numeric_limits<std::uint32_t>::max());
  return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

std::optional<std::uint64_t> Tables::commandOfText(std::string_view text) const {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) {
    return numberOf(text, std::numeric_limits<std::uint64_t>::max());
  }
  const auto operation = operationOfText(text.substr(0, slash));
  const auto table = tableOfText(text.substr(slash + 1));
  if (!operation || !table) {
    return std::nullopt;
  }
  return endpoint::command(static_cast<endpoint::Operation>(*operation), *table);
}

std::string Tables::textOfCommand(std::uint64_t command) const {
  const char* const operation = nameIn(kOperations, endpoint::operationOf(command));
  if (operation == nullptr) {
    return std::to_string(command);
  }
  const std::uint32_t number = endpoint::tableOf(command);
  const Table* const table = find(number);
  return std::string(operation) + "/" + (table != nullptr ? table->name : std::to_string(number));
}

const Table* Tables::answerOf(std::uint64_t command) const {
  static const Table kStoreAnswer{
      0, "store", {{endpoint::kStoredRows, "rows", CTLVCell::TLV_UINT}}};
  switch (endpoint::operationOf(command)) {
    case endpoint::kGetNext:
    case endpoint::kGet:
      return find(endpoint::tableOf(command));
    case endpoint::kStore:
      return &kStoreAnswer;
    case endpoint::kReadCounts:
      return &countsTable();
    default:
      return nullptr;
  }
}

std::string resultText(std::uint32_t result) {
  const char* const name = nameIn(kResults, result);
  return "RET " + std::to_string(result) + (name != nullptr ? " (" + std::string(name) + ")" : "");
}

}  // namespace qov::ctl
