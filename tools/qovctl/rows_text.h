#ifndef QOV_TOOLS_QOVCTL_ROWS_TEXT_H
#define QOV_TOOLS_QOVCTL_ROWS_TEXT_H

#include <qovpub/qov_message_package.h>

#include <cstddef>
#include <map>
#include <string>

#include "tools/qovctl/columns.h"

namespace qov::ctl {

/// The value for a reader: text as it is, with control characters in hexadecimal form, octets in
/// hexadecimal digits, numbers in decimal ones.
std::string valueText(const CTLVCell& cell);

/// A line of name and value for each cell that is shown.
std::string rowLines(const CTLVRecordV3& row, const Columns& columns);

/// The result, and of each record its command and all cells, with the names that `tables` has.
std::string replyLines(const CT7QPackageV3& reply, const Tables& tables);

/// Rows of a table as lines, of which each is made before the next row is known.
///
/// There is a column for each tag, by Columns::placeOf(). A column is as wide as its widest value
/// so far, at least 8 and at most 60 characters: a line is aligned with those before it unless it
/// has a wider value.
///
/// Thread: a value for one thread.
/// Owns:   the columns' widths; borrows the columns.
/// Errors: std::bad_alloc.
class RowTable {
 public:
  explicit RowTable(const Columns& columns);

  /// The row's line: the values of cells with one tag behind one another. In front of it the line
  /// of column names if this is the first row, or has a tag without a column so far.
  std::string lines(const CTLVRecordV3& row);

 private:
  /// By the column's place.
  using Values = std::map<unsigned int, std::string>;

  bool addColumn(unsigned short tag);
  std::string line(const Values& values);

  const Columns& columns_;
  Values names_;
  std::map<unsigned int, std::size_t> widths_;
  bool named_ = false;
};

}  // namespace qov::ctl

#endif
