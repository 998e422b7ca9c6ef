#include "tools/qovctl/rows_text.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "modules/common/controls.h"
#include "modules/common/octets.h"

namespace qov::ctl {
namespace {

std::string printable(std::string_view text) {
  return common::isUtf8(text) ? common::withoutControls(text) : "0x" + common::hexText(text);
}

/// Characters of UTF-8 text.
std::size_t width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

constexpr std::size_t kNarrowestColumn = 8;
/// A longer value pushes on what follows it in its own line, not in all others.
constexpr std::size_t kWidestColumn = 60;

/// The width of a column that has been `column` wide, with this value.
std::size_t widened(std::size_t column, const std::string& value) {
  return std::clamp(width(value), column, kWidestColumn);
}

/// The value and the blanks between it and the next one.
std::string padded(const std::string& value, std::size_t column) {
  const std::size_t taken = width(value);
  return value + std::string(2 + (taken < column ? column - taken : 0), ' ');
}

std::string withoutLastBlanks(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line + "\n";
}

using NamedValues = std::vector<std::pair<std::string, std::string>>;

/// A line for each, the values below one another.
std::string linesOf(const NamedValues& shown) {
  std::size_t names = 0;
  for (const auto& each : shown) {
    names = widened(names, each.first);
  }
  std::string lines;
  for (const auto& [name, value] : shown) {
    lines += withoutLastBlanks(padded(name, names) + value);
  }
  return lines;
}

}  // namespace

std::string valueText(const CTLVCell& cell) {
  switch (cell.type()) {
    case CTLVCell::TLV_INVALID:
    case CTLVCell::TLV_OCTET:
      return common::hexText({reinterpret_cast<const char*>(cell.value()), cell.length()});
    case CTLVCell::TLV_STRING:
    case CTLVCell::TLV_ARRAY:
    case CTLVCell::TLV_JSON:
      return printable(cell.text());
    case CTLVCell::TLV_INT:
      return std::to_string(static_cast<std::int64_t>(cell.number()));
    default:
      return std::to_string(cell.number());
  }
}

std::string rowLines(const CTLVRecordV3& row, const Columns& columns) {
  NamedValues shown;
  for (const CTLVCell* cell : columns.cellsOf(row)) {
    shown.emplace_back(columns.nameOf(cell->tag()), valueText(*cell));
  }
  return linesOf(shown);
}

std::string replyLines(const CT7QPackageV3& reply, const Tables& tables) {
  std::string lines = resultText(reply.head().ret_) + "\n";
  for (unsigned long i = 0; i < reply.count(); ++i) {
    const CTLVRecordV3& record = reply[i];
    const Columns columns(tables.answerOf(record.cmd()));
    NamedValues shown{{"command", tables.textOfCommand(record.cmd())}};
    for (const CTLVCell& cell : record) {
      shown.emplace_back(columns.nameOf(cell.tag()), valueText(cell));
    }
    lines += "\n" + linesOf(shown);
  }
  return lines;
}

RowTable::RowTable(const Columns& columns) : columns_(columns) {
  for (const unsigned short tag : columns.standing()) {
    addColumn(tag);
  }
}

/// True if there was none.
bool RowTable::addColumn(unsigned short tag) {
  const unsigned int place = columns_.placeOf(tag);
  widths_.emplace(place, kNarrowestColumn);
  return names_.emplace(place, columns_.nameOf(tag)).second;
}

std::string RowTable::lines(const CTLVRecordV3& row) {
  Values values;
  bool namesChange = !std::exchange(named_, true);
  for (const CTLVCell* cell : columns_.cellsOf(row)) {
    namesChange = addColumn(cell->tag()) || namesChange;
    std::string& value = values[columns_.placeOf(cell->tag())];
    value += (value.empty() ? "" : ", ") + valueText(*cell);
  }
  // The row first: it may widen columns.
  const std::string rowLine = line(values);
  return namesChange ? line(names_) + line(values) : rowLine;
}

std::string RowTable::line(const Values& values) {
  std::string text;
  for (auto& [place, column] : widths_) {
    const auto found = values.find(place);
    const std::string value = found != values.end() ? found->second : std::string();
    column = widened(column, value);
    text += padded(value, column);
  }
  return withoutLastBlanks(text);
}

}  // namespace qov::ctl
