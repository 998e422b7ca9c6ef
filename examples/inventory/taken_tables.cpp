#include "examples/inventory/taken_tables.h"

#include <utility>

namespace devagent {

TakenTables::Tally TakenTables::take(std::unique_ptr<CT7QPackageV3> table) {
  const unsigned long rows = table->count() - 1;
  const std::uint64_t command = (*table)[rows].cmd();
  const std::lock_guard<std::mutex> lock(lock_);
  tables_[command] = std::move(table);
  ++tally_.tables;
  tally_.rows += rows;
  return tally_;
}

}  // namespace devagent
