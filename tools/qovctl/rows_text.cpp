#include "tools/qovctl/rows_text.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

#include "tools/common/controls.h"
#include "tools/common/endpoint_protocol.h"
#include "tools/common/octets.h"

namespace qov::ctl {
namespace {

using Line = std::vector<std::string>;

std::string printable(std::string_view text) {
  return tools::isUtf8(text) ? tools::withoutControls(text) : "0x" + tools::hexText(text);
}

/// Characters of UTF-8 text.
std::size_t width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

/// A longer value pushes on what follows it in its own line, not in all others.
constexpr std::size_t kWidestColumn = 60;

/// The blanks between a value and the next one.
std::string gap(const std::string& value, std::size_t column) {
  const std::size_t taken = width(value);
  return std::string(2 + (taken < column ? column - taken : 0), ' ');
}

/// The lines with each column as wide as its widest value, if that is not too wide; nothing behind
/// the last one.
std::string aligned(const std::vector<Line>& lines) {
  std::vector<std::size_t> widths;
  for (const Line& line : lines) {
    widths.resize(std::max(widths.size(), line.size()));
    for (std::size_t i = 0; i < line.size(); ++i) {
      widths[i] = std::clamp(width(line[i]), widths[i], kWidestColumn);
    }
  }
  std::string text;
  for (const Line& line : lines) {
    std::string out;
    for (std::size_t i = 0; i < line.size(); ++i) {
      out += line[i] + gap(line[i], widths[i]);
    }
    out.erase(out.find_last_not_of(' ') + 1);
    text += out + "\n";
  }
  return text;
}

std::string nameOfCell(unsigned short tag, const Naming& naming) {
  return tag == endpoint::kCursorTag ? "key" : naming(tag);
}

/// The columns' tags in order, each with its place in a line: the key, then what else there is.
std::map<unsigned short, std::size_t> columnsOf(const CT7QPackageV3& rows) {
  std::map<unsigned short, std::size_t> columns;
  for (unsigned long i = 0; i < rows.count(); ++i) {
    for (const CTLVCell& cell : rows[i]) {
      columns[cell.tag()] = 0;
    }
  }
  columns.erase(endpoint::kStatusTag);
  std::size_t next = columns.count(endpoint::kCursorTag);
  for (auto& [tag, place] : columns) {
    place = tag == endpoint::kCursorTag ? 0 : next++;
  }
  return columns;
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
  std::vector<Line> lines;
  for (const CTLVCell& cell : row) {
    if (cell.tag() != endpoint::kStatusTag) {
      lines.push_back({nameOfCell(cell.tag(), naming), valueText(cell)});
    }
  }
  return aligned(lines);
}

std::string rowTable(const CT7QPackageV3& rows, const Naming& naming) {
  if (rows.count() == 0) {
    return {};
  }
  const auto columns = columnsOf(rows);
  std::vector<Line> lines(rows.count() + 1, Line(columns.size()));
  for (const auto& [tag, place] : columns) {
    lines[0][place] = nameOfCell(tag, naming);
  }
  for (unsigned long i = 0; i < rows.count(); ++i) {
    for (const CTLVCell& cell : rows[i]) {
      const auto column = columns.find(cell.tag());
      if (column != columns.end()) {
        std::string& value = lines[i + 1][column->second];
        value += (value.empty() ? "" : ", ") + valueText(cell);
      }
    }
  }
  return aligned(lines);
}

}  // namespace qov::ctl
