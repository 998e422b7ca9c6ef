#ifndef QOV_TOOLS_QOVCTL_TABLES_H
#define QOV_TOOLS_QOVCTL_TABLES_H

#include <qovpub/qov_msg_cell.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qov::ctl {

/// The cells with one tag in the rows of a table.
struct Column {
  unsigned short tag;
  std::string name;
  CTLVCell::ETLVType type;
};

/// How the rows of a table look.
struct Table {
  std::uint32_t number;
  std::string name;
  std::vector<Column> columns;  ///< without "key" and "status", which every table has
};

// The column of that name, or with that tag, in the rows of `table`, which may be null. Null when
// there is none.
const Column* columnOf(const Table* table, std::string_view name);
const Column* columnOf(const Table* table, unsigned short tag);

/// The tables of an endpoint that have names. No two of them, and no two columns of one of them,
/// have the same name or number.
///
/// Thread: a value for one thread.
/// Owns:   the tables.
/// Errors: std::bad_alloc.
class Tables {
 public:
  explicit Tables(std::vector<Table> tables) : tables_(std::move(tables)) {}

  const std::vector<Table>& all() const { return tables_; }
  /// Null when it has no name.
  const Table* find(std::uint32_t number) const;

  /// The number of the table of that name or number; nothing for another text.
  std::optional<std::uint32_t> tableOfText(std::string_view text) const;

  /// The command code that `text` means: a number, or an operation (get-next, get, store, counts),
  /// a slash and a table; nothing for another text.
  std::optional<std::uint64_t> commandOfText(std::string_view text) const;
  /// The reverse, with names where there are any.
  std::string textOfCommand(std::uint64_t command) const;

  /// The table that has the names of the cells in a record that answers that command. Null when
  /// they have none.
  const Table* answerOf(std::uint64_t command) const;

 private:
  std::vector<Table> tables_;
};

/// The tables of the endpoint for development.
const Tables& developmentTables();
/// What an endpoint has counted, as a row.
const Table& countsTable();

/// "RET 3 (no such row)".
std::string resultText(std::uint32_t result);

}  // namespace qov::ctl

#endif
