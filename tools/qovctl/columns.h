#ifndef QOV_TOOLS_QOVCTL_COLUMNS_H
#define QOV_TOOLS_QOVCTL_COLUMNS_H

#include <qovpub/qov_msg.h>

#include <string>
#include <vector>

#include "tools/qovctl/tables.h"

namespace qov::ctl {

/// The cells of a table's rows that are shown: which, where, and under which names.
///
/// Thread: a value for one thread.
/// Owns:   nothing of the table, which it borrows.
/// Errors: Failure; std::bad_alloc.
class Columns {
 public:
  /// All but the status. A `table` of null has no names.
  explicit Columns(const Table* table) : table_(table) {}
  /// Those that `list` names, in its order: names, tags, "key" and "status" with commas between
  /// them. Throws Failure for one that is none or comes twice.
  Columns(const Table* table, const std::string& list);

  /// "tag 7" of one without a name.
  std::string nameOf(unsigned short tag) const;

  /// Those of the row, in the order in which they are shown below one another. Borrows them.
  std::vector<const CTLVCell*> cellsOf(const CTLVRecordV3& row) const;

  /// The names of those that `list` named and the row lacks, with commas between them.
  std::string missingIn(const CTLVRecordV3& row) const;

  /// Those that are shown of every row, even if it lacks them.
  std::vector<unsigned short> standing() const;
  /// Where a cell that is shown stands beside the others: the smaller number to the left.
  unsigned int placeOf(unsigned short tag) const;

 private:
  bool isChosen(unsigned short tag) const;

  const Table* table_;
  std::vector<unsigned short> chosen_;  ///< empty: all but the status
};

}  // namespace qov::ctl

#endif
