#ifndef QOV_EXAMPLES_INVENTORY_TAKEN_TABLES_H
#define QOV_EXAMPLES_INVENTORY_TAKEN_TABLES_H

#include <qovpub/qov_message_package.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace devagent {

/// The latest state of each table that the inventory was given.
///
/// Thread: any.
/// Owns:   the tables.
class TakenTables {
 public:
  struct Tally {
    std::uint64_t tables = 0;
    std::uint64_t rows = 0;
  };

  /// Keeps `table`, a whole walk with its closing record, in place of the one before it. How much
  /// was taken so far, this included.
  Tally take(std::unique_ptr<CT7QPackageV3> table);

 private:
  std::mutex lock_;
  // Guarded by lock_.
  std::map<std::uint64_t, std::unique_ptr<CT7QPackageV3>> tables_;  // by command code
  Tally tally_;
};

}  // namespace devagent

#endif
