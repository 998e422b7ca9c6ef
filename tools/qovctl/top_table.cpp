#include "tools/qovctl/top_table.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace qov::ctl {
namespace {

/// By their headings; the first one goes first.
constexpr std::array<const char*, 10> kLeftOutFirst = {
    "handled",     "highest", "refused",  "timed out",  "connections",
    "half within", "thread",  "time-out", "handled by", "pending"};

/// The width of what is in a column most of the time: columns that move all the time are hard to
/// read.
struct UsualWidth {
  const char* heading;
  std::size_t width;
};
constexpr std::array<UsualWidth, 5> kUsualWidths = {
    {{"state", 7}, {"busy", 5}, {"handled/s", 9}, {"oldest", 7}, {"for", 7}}};

void widen(Row& headings) {
  for (std::string& heading : headings) {
    for (const UsualWidth& usual : kUsualWidths) {
      if (heading == usual.heading && heading.size() < usual.width) {
        heading.resize(usual.width, ' ');
      }
    }
  }
}

/// Not the last one, which ends with its line.
void cutCells(Row& row, std::size_t length) {
  for (std::size_t i = 0; i + 1 < row.size(); ++i) {
    row[i] = cut(row[i], length);
  }
}

std::size_t widthOf(const std::vector<Row>& table, std::size_t column) {
  std::size_t width = 0;
  for (const Row& row : table) {
    width = std::max(width, row[column].size());
  }
  return width;
}

/// The last column counts as no wider than `lastWidth`.
std::size_t wholeWidth(const std::vector<Row>& table, std::size_t lastWidth) {
  const std::size_t last = table.front().size() - 1;
  std::size_t width = std::min(widthOf(table, last), lastWidth);
  for (std::size_t column = 0; column < last; ++column) {
    width += widthOf(table, column) + 2;
  }
  return width;
}

void leaveOut(std::vector<Row>& table, const char* heading) {
  const Row& headings = table.front();
  const auto found = std::find(headings.begin(), headings.end(), heading);
  if (found == headings.end()) {
    return;
  }
  const auto column = found - headings.begin();
  for (Row& row : table) {
    row.erase(row.begin() + column);
  }
}

}  // namespace

std::string cut(const std::string& text, std::size_t length) {
  return text.size() <= length ? text : text.substr(0, std::max<std::size_t>(length, 1) - 1) + ">";
}

std::vector<std::string> fittingLines(std::vector<Row> table, std::size_t columns) {
  const std::size_t third = std::max<std::size_t>(columns / 3, 8);
  widen(table.front());
  std::for_each(table.begin() + 1, table.end(), [&](Row& row) { cutCells(row, third); });
  for (const char* heading : kLeftOutFirst) {
    if (wholeWidth(table, third) <= columns) {
      break;
    }
    leaveOut(table, heading);
  }
  std::vector<std::string> fitting;
  std::istringstream all(lines(table));
  for (std::string line; std::getline(all, line);) {
    fitting.push_back(cut(line, columns));
  }
  return fitting;
}

std::vector<std::string> firstLines(std::vector<std::string> lines, std::size_t count) {
  if (count < lines.size()) {
    const std::size_t missing = lines.size() - count + 1;
    lines.resize(count);
    lines.back() = "... " + std::to_string(missing) + " more";
  }
  return lines;
}

std::vector<std::size_t> rowsThatFit(const std::vector<std::size_t>& rows, std::size_t room) {
  constexpr std::size_t kLeast = 3;  // an empty line, the headings, a row
  std::vector<std::size_t> shown(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i] > 0 && room >= kLeast) {
      shown[i] = 1;
      room -= kLeast;
    }
  }
  for (std::size_t before = room + 1; room < before;) {
    before = room;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const std::size_t wanted = shown[i] > 0 ? rows[i] - shown[i] : 0;
      const std::size_t more = std::min({wanted, room, std::size_t{i == 0 ? 2U : 1U}});
      shown[i] += more;
      room -= more;
    }
  }
  return shown;
}

}  // namespace qov::ctl
