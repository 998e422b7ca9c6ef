#include "tools/qovctl/rows_text.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "tools/common/controls.h"
#include "tools/common/endpoint_protocol.h"
#include "tools/common/octets.h"

namespace qov::ctl {
namespace {

std::string printable(std::string_view text) {
  return tools::isUtf8(text) ? tools::withoutControls(text) : "0x" + tools::hexText(text);
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

std::string nameOfCell(unsigned short tag, const Naming& naming) {
  return tag == endpoint::kCursorTag ? "key" : naming(tag);
}

unsigned int placeOf(unsigned short tag) {
  return tag == endpoint::kCursorTag ? 0 : tag + 1U;
}

}  // namespace

std::string valueText(const CTLVCell& cell) {
  switch (cell.type()) {
    case CTLVCell::TLV_INVALID:
    case CTLVCell::TLV_OCTET:
      return tools::hexText({reinterpret_cast<const char*>(cell.value()), cell.length()});
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

std::string rowLines(const CTLVRecordV3& row, const Naming& naming) {
  std::vector<std::pair<std::string, std::string>> shown;
  std::size_t names = 0;
  for (const CTLVCell& cell : row) {
    if (cell.tag() != endpoint::kStatusTag) {
      shown.emplace_back(nameOfCell(cell.tag(), naming), valueText(cell));
      names = widened(names, shown.back().first);
    }
  }
  std::string lines;
  for (const auto& [name, value] : shown) {
    lines += withoutLastBlanks(padded(name, names) + value);
  }
  return lines;
}

RowTable::RowTable(const std::vector<unsigned short>& tags, Naming naming)
    : naming_(std::move(naming)) {
  for (const unsigned short tag : tags) {
    addColumn(tag);
  }
}

/// True if there was none.
bool RowTable::addColumn(unsigned short tag) {
  widths_.emplace(placeOf(tag), kNarrowestColumn);
  return names_.emplace(placeOf(tag), nameOfCell(tag, naming_)).second;
}

std::string RowTable::lines(const CTLVRecordV3& row) {
  Values values;
  bool namesChange = !std::exchange(named_, true);
  for (const CTLVCell& cell : row) {
    if (cell.tag() != endpoint::kStatusTag) {
      namesChange = addColumn(cell.tag()) || namesChange;
      std::string& value = values[placeOf(cell.tag())];
      value += (value.empty() ? "" : ", ") + valueText(cell);
    }
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
