#ifndef QOV_TOOLS_QOV_ENDPOINT_TABLES_H
#define QOV_TOOLS_QOV_ENDPOINT_TABLES_H

#include <qovpub/qov_message_package.h>

#include <cstddef>
#include <cstdint>
#include <map>

#include "tools/qov-endpoint/rows.h"

namespace qov::endpoint {

/// All tables: those that stand here, filled from a file or by requests, and those that are read
/// from this machine each time somebody asks.
class Tables {
 public:
  using Reader = Rows (*)();

  /// What all tables that stand here may hold together.
  static constexpr std::size_t kMaxRows = 50000;
  static constexpr std::size_t kMaxBytes = 32U << 20;

  void addLive(std::uint32_t number, Reader reader) { live_[number] = reader; }
  /// Puts a row into a table that stands here, and makes that if there is none. kBadRequest when it
  /// has such a key, or the row is too long to be answered; kTableFull.
  Result addRow(std::uint32_t number, std::uint64_t key, const CTLVRecordV3& row);
  /// Makes an empty table that stands here; false when there is one of that number.
  bool addEmpty(std::uint32_t number) { return standing_.try_emplace(number).second; }

  bool exists(std::uint32_t number) const;
  /// Null for a table that does not stand here.
  const Rows* standing(std::uint32_t number) const;
  /// Reads a live table.
  Rows read(std::uint32_t number) const { return live_.at(number)(); }

  /// Puts all records of the request into the table behind its last row, or none of them.
  Result store(std::uint32_t number, const CT7QPackageV3& request);

 private:
  Result checkRoom(const CT7QPackageV3& request) const;

  std::map<std::uint32_t, Reader> live_;
  std::map<std::uint32_t, Rows> standing_;
  std::size_t rows_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace qov::endpoint

#endif
