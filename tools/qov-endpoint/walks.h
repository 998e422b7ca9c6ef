#ifndef QOV_TOOLS_QOV_ENDPOINT_WALKS_H
#define QOV_TOOLS_QOV_ENDPOINT_WALKS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

#include "tools/qov-endpoint/tables.h"

namespace qov::endpoint {

/// One client's walks through the tables.
///
/// A walk through a live table goes through one reading of it, made when the walk starts: a walk of
/// n rows would otherwise read the table n times. A reading is made anew when a client goes on
/// behind a row after more than kFreshFor, or on a new connection; since a row is found by the next
/// larger key, rows that came or went in between make a walk neither repeat itself nor hang.
class Walks {
 public:
  static constexpr std::chrono::seconds kFreshFor{30};

  explicit Walks(const Tables& tables) : tables_(tables) {}

  /// The first row with a key above `cursor`, or null. Valid until the next call.
  const Rows::value_type* next(std::uint32_t table, std::uint64_t cursor);
  /// The row with that key, if there is one. Of a live table it is read now, apart from all walks.
  std::optional<CTLVRecordV3> row(std::uint32_t table, std::uint64_t key) const;

 private:
  struct Reading {
    std::chrono::steady_clock::time_point at;
    Rows rows;
  };

  const Rows& readAnew(std::uint32_t table);
  const Rows& rowsBehind(std::uint32_t table, std::uint64_t cursor);

  const Tables& tables_;
  std::map<std::uint32_t, Reading> readings_;
};

}  // namespace qov::endpoint

#endif
