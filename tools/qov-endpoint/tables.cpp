#include "tools/qov-endpoint/tables.h"

namespace qov::endpoint {
namespace {

/// A record as a row: without the cells that every answer makes for itself.
CTLVRecordV3 rowOf(const CTLVRecordV3& record) {
  CTLVRecordV3 row;
  for (const CTLVCell& cell : record) {
    if (!isReservedTag(cell.tag())) {
      row.add(cell);
    }
  }
  return row;
}

bool isAnswerable(const CTLVRecordV3& row) {
  return row.length() + kRowOverhead <= CTLVRecordV3::kMaxLength;
}

/// Keys of rows that were stored follow one another, so the last one says how many there are; a
/// table from a file goes on behind its largest key.
std::uint64_t lastKey(const Rows& rows) {
  return rows.empty() ? 0 : rows.rbegin()->first;
}

}  // namespace

Result Tables::addRow(std::uint32_t number, std::uint64_t key, const CTLVRecordV3& row) {
  if (rows_ == kMaxRows || row.length() > kMaxBytes - bytes_) {
    return kTableFull;
  }
  if (!isAnswerable(row) || !standing_[number].try_emplace(key, row).second) {
    return kBadRequest;
  }
  ++rows_;
  bytes_ += row.length();
  return kOk;
}

bool Tables::exists(std::uint32_t number) const {
  return number >= kFirstStoredTable || standing(number) != nullptr || live_.count(number) != 0;
}

const Rows* Tables::standing(std::uint32_t number) const {
  static const Rows kNothingYet;
  const auto found = standing_.find(number);
  if (found != standing_.end()) {
    return &found->second;
  }
  return number >= kFirstStoredTable ? &kNothingYet : nullptr;
}

Result Tables::checkRoom(const CT7QPackageV3& request) const {
  std::size_t bytes = 0;
  for (unsigned long i = 0; i < request.count(); ++i) {
    const CTLVRecordV3 row = rowOf(request[i]);
    if (!isAnswerable(row)) {
      return kBadRequest;
    }
    bytes += row.length();
  }
  return request.count() > kMaxRows - rows_ || bytes > kMaxBytes - bytes_ ? kTableFull : kOk;
}

Result Tables::store(std::uint32_t number, const CT7QPackageV3& request) {
  const Result room = checkRoom(request);
  if (room != kOk) {
    return room;
  }
  std::uint64_t key = lastKey(*standing(number));
  if (key > UINT64_MAX - request.count()) {
    return kTableFull;
  }
  for (unsigned long i = 0; i < request.count(); ++i) {
    addRow(number, ++key, rowOf(request[i]));
  }
  return kOk;
}

}  // namespace qov::endpoint
