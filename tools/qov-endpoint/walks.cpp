#include "tools/qov-endpoint/walks.h"

namespace qov::endpoint {

const Rows& Walks::readAnew(std::uint32_t table) {
  Reading& reading = readings_[table];
  reading.at = std::chrono::steady_clock::now();
  reading.rows = tables_.read(table);
  return reading.rows;
}

const Rows& Walks::rowsBehind(std::uint32_t table, std::uint64_t cursor) {
  if (const Rows* standing = tables_.standing(table)) {
    return *standing;
  }
  const auto found = readings_.find(table);
  const bool usable = cursor != 0 && found != readings_.end() &&
                      std::chrono::steady_clock::now() - found->second.at <= kFreshFor;
  return usable ? found->second.rows : readAnew(table);
}

const Rows::value_type* Walks::next(std::uint32_t table, std::uint64_t cursor) {
  const Rows& rows = rowsBehind(table, cursor);
  const auto found = rows.upper_bound(cursor);
  if (found != rows.end()) {
    return &*found;
  }
  // The walk has ended; nothing is kept for a client that may never ask again.
  readings_.erase(table);
  return nullptr;
}

std::optional<CTLVRecordV3> Walks::row(std::uint32_t table, std::uint64_t key) const {
  const auto find = [key](const Rows& rows) {
    const auto found = rows.find(key);
    return found != rows.end() ? std::optional(found->second) : std::nullopt;
  };
  const Rows* standing = tables_.standing(table);
  return standing != nullptr ? find(*standing) : find(tables_.read(table));
}

}  // namespace qov::endpoint
