#include "tools/qovctl/tables_text.h"

#include <algorithm>
#include <array>
#include <vector>

namespace qov::ctl {
namespace {

using Line = std::array<std::string, 5>;

std::vector<Line> wordsOf(const Tables& tables) {
  std::vector<Line> lines{{"table", "number", "column", "tag", "type"}};
  for (const Table& table : tables.all()) {
    for (const Column& column : table.columns) {
      lines.push_back({table.name, std::to_string(table.number), column.name,
                       std::to_string(column.tag), CTLVCell::typeName(column.type)});
    }
  }
  return lines;
}

}  // namespace

std::string linesOf(const Tables& tables) {
  const std::vector<Line> lines = wordsOf(tables);
  std::array<std::size_t, 5> widths{};
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      widths[i] = std::max(widths[i], line[i].size());
    }
  }
  std::string text;
  for (const Line& line : lines) {
    for (std::size_t i = 0; i + 1 < line.size(); ++i) {
      text += line[i] + std::string(2 + widths[i] - line[i].size(), ' ');
    }
    text += line.back() + "\n";
  }
  return text;
}

}  // namespace qov::ctl
