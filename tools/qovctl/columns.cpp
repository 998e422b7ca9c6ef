#include "tools/qovctl/columns.h"

#include <algorithm>

#include "tools/common/endpoint_protocol.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/numbers.h"

namespace qov::ctl {
namespace {

[[noreturn]] void refuse(const std::string& text, const std::string& why) {
  throw Failure(kUsage, "--columns: \"" + shortened(text) + "\" " + why);
}

std::string namesOf(const Table* table) {
  std::string names = "key, status";
  for (std::size_t i = 0; table != nullptr && i < table->columns.size(); ++i) {
    names += ", " + table->columns[i].name;
  }
  return names;
}

unsigned short tagOf(const Table* table, const std::string& text) {
  if (const Column* column = columnOf(table, text)) {
    return column->tag;
  }
  const auto tag = numberOf(text, MAX_TAG_VALUE);
  if (!tag) {
    refuse(text, "is no column: " + namesOf(table) + " or a tag (up to " +
                     std::to_string(MAX_TAG_VALUE) + ")");
  }
  return static_cast<unsigned short>(*tag);
}

}  // namespace

Columns::Columns(const Table* table, const std::string& list) : table_(table) {
  std::size_t comma = 0;
  for (std::size_t begin = 0; comma != std::string::npos; begin = comma + 1) {
    comma = list.find(',', begin);
    const std::string text = list.substr(begin, comma - begin);
    const unsigned short tag = tagOf(table, text);
    if (isChosen(tag)) {
      refuse(text, "comes twice");
    }
    chosen_.push_back(tag);
  }
}

bool Columns::isChosen(unsigned short tag) const {
  return std::find(chosen_.begin(), chosen_.end(), tag) != chosen_.end();
}

std::string Columns::nameOf(unsigned short tag) const {
  const Column* const column = columnOf(table_, tag);
  return column != nullptr ? column->name : "tag " + std::to_string(tag);
}

std::vector<const CTLVCell*> Columns::cellsOf(const CTLVRecordV3& row) const {
  std::vector<const CTLVCell*> cells;
  for (const CTLVCell& cell : row) {
    if (chosen_.empty() ? cell.tag() != endpoint::kStatusTag : isChosen(cell.tag())) {
      cells.push_back(&cell);
    }
  }
  if (!chosen_.empty()) {
    std::stable_sort(cells.begin(), cells.end(), [this](const CTLVCell* a, const CTLVCell* b) {
      return placeOf(a->tag()) < placeOf(b->tag());
    });
  }
  return cells;
}

std::string Columns::missingIn(const CTLVRecordV3& row) const {
  std::string names;
  for (const unsigned short tag : chosen_) {
    if (std::none_of(row.begin(), row.end(),
                     [tag](const auto& cell) { return cell.tag() == tag; })) {
      names += (names.empty() ? "" : ", ") + nameOf(tag);
    }
  }
  return names;
}

std::vector<unsigned short> Columns::standing() const {
  if (!chosen_.empty()) {
    return chosen_;
  }
  std::vector<unsigned short> tags;
  if (table_ != nullptr) {
    tags.push_back(endpoint::kCursorTag);
    for (const Column& column : table_->columns) {
      tags.push_back(column.tag);
    }
  }
  return tags;
}

unsigned int Columns::placeOf(unsigned short tag) const {
  if (chosen_.empty()) {
    return tag == endpoint::kCursorTag ? 0 : tag + 1U;
  }
  const auto found = std::find(chosen_.begin(), chosen_.end(), tag);
  return static_cast<unsigned int>(found - chosen_.begin());
}

}  // namespace qov::ctl
