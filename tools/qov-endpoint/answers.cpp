#include "tools/qov-endpoint/answers.h"

namespace qov::endpoint {
namespace {

/// Sets `cursor` to the key that a request names, 0 when it names none. False when the cell is not
/// a number.
bool readCursor(const CTLVRecordV3& request, std::uint64_t& cursor) {
  const CTLVCell* cell = request.find(kCursorTag);
  cursor = 0;
  if (cell == nullptr) {
    return true;
  }
  if (cell->type() != CTLVCell::TLV_UINT) {
    return false;
  }
  cursor = cell->getUnsigned();
  return true;
}

void addRow(std::uint64_t cmd, std::uint64_t key, const CTLVRecordV3& row, CT7QPackageV3& answer) {
  CTLVRecordV3& record = answer.addRecord(cmd);
  for (const CTLVCell& cell : row) {
    record.add(cell);
  }
  record.addUnsigned(kCursorTag, key);
  record.addEnum(kStatusTag, kRow);
}

bool allHaveOneCommand(const CT7QPackageV3& request) {
  for (unsigned long i = 1; i < request.count(); ++i) {
    if (request[i].cmd() != request[0].cmd()) {
      return false;
    }
  }
  return true;
}

bool isOperation(std::uint32_t operation) {
  return operation >= kGetNext && operation <= kReadCounts;
}

}  // namespace

void Answers::answer(const CT7QPackageV3& request, bool decoded, bool endless, Walks& walks,
                     CT7QPackageV3& answer) {
  const Result result =
      decoded && request.count() != 0 ? handle(request, endless, walks, answer) : kBadRequest;
  answer.head().ret_ = result;
}

Result Answers::handle(const CT7QPackageV3& request, bool endless, Walks& walks,
                       CT7QPackageV3& answer) {
  const std::uint64_t cmd = request[0].cmd();
  const std::uint32_t operation = operationOf(cmd);
  if (!isOperation(operation)) {
    return kUnknownOperation;
  }
  if (operation == kReadCounts ? tableOf(cmd) != 0 : !tables_.exists(tableOf(cmd))) {
    return kUnknownTable;
  }
  if (operation == kStore) {
    return store(request, answer);
  }
  if (request.count() != 1) {
    return kBadRequest;
  }
  switch (operation) {
    case kGetNext:
      return getNext(request[0], endless, walks, answer);
    case kGet:
      return get(request[0], walks, answer);
    default:
      return readCounts(cmd, answer);
  }
}

Result Answers::getNext(const CTLVRecordV3& request, bool endless, Walks& walks,
                        CT7QPackageV3& answer) {
  std::uint64_t cursor = 0;
  if (!readCursor(request, cursor)) {
    return kBadRequest;
  }
  const std::uint32_t table = tableOf(request.cmd());
  const Rows::value_type* row = walks.next(table, cursor);
  if (row == nullptr && endless) {
    row = walks.next(table, 0);
  }
  if (row != nullptr) {
    addRow(request.cmd(), row->first, row->second, answer);
  } else if (endless) {
    addRow(request.cmd(), 1, CTLVRecordV3(), answer);
  } else {
    answer.addRecord(request.cmd()).addEnum(kStatusTag, kEnd);
  }
  return kOk;
}

Result Answers::get(const CTLVRecordV3& request, const Walks& walks, CT7QPackageV3& answer) const {
  std::uint64_t key = 0;
  if (!readCursor(request, key)) {
    return kBadRequest;
  }
  const std::optional<CTLVRecordV3> row = walks.row(tableOf(request.cmd()), key);
  if (!row) {
    return kNoSuchRow;
  }
  addRow(request.cmd(), key, *row, answer);
  return kOk;
}

Result Answers::store(const CT7QPackageV3& request, CT7QPackageV3& answer) {
  const std::uint32_t table = tableOf(request[0].cmd());
  if (table < kFirstStoredTable) {
    return kReadOnly;
  }
  if (!allHaveOneCommand(request)) {
    return kBadRequest;
  }
  const Result result = tables_.store(table, request);
  if (result == kOk) {
    counts_.change().stored += request.count();
    answer.addRecord(request[0].cmd()).addUnsigned(kStoredRows, tables_.standing(table)->size());
  }
  return result;
}

Result Answers::readCounts(std::uint64_t cmd, CT7QPackageV3& answer) const {
  const Counts& counts = counts_.counts();
  CTLVRecordV3& record = answer.addRecord(cmd);
  record.addUnsigned(kConnections, counts.connections);
  record.addUnsigned(kRequests, counts.requests);
  record.addUnsigned(kReplies, counts.replies);
  record.addUnsigned(kRows, counts.rows);
  record.addUnsigned(kEnds, counts.ends);
  record.addUnsigned(kStored, counts.stored);
  record.addUnsigned(kRefusals, counts.refusals);
  return kOk;
}

}  // namespace qov::endpoint
