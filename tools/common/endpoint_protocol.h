#ifndef QOV_TOOLS_COMMON_ENDPOINT_PROTOCOL_H
#define QOV_TOOLS_COMMON_ENDPOINT_PROTOCOL_H

#include <qovpub/qov_msg_cell.h>

#include <cstdint>

/// What qov-endpoint and its clients say to one another: the command codes of V3 records, the
/// tables, the tags of their cells and the result codes. Every request but kStore has one record.
namespace qov::endpoint {

/// The upper half of a record's command code; the lower half is the table.
enum Operation : std::uint32_t {
  /// The row behind the one that the request's cursor names, or the first one without a cursor.
  /// The answer has one record with the request's command code: cells of the row, the row's cursor
  /// and status kRow; or, behind the last row, status kEnd and nothing else. A row's record sent
  /// back asks for the next row: all cells but the cursor are ignored.
  kGetNext = 1,
  /// The row that the request's cursor names, as kGetNext has it, or result kNoSuchRow.
  kGet = 2,
  /// Puts each record of the request into the table, with keys counted from 1. The answer has one
  /// record with a kStoredRows cell. Tables below kFirstStoredTable cannot be written.
  kStore = 3,
  /// What the endpoint has counted (table 0): one record of the cells of CountTag.
  kReadCounts = 4,
};

constexpr std::uint64_t command(Operation operation, std::uint32_t table) {
  return static_cast<std::uint64_t>(operation) << 32 | table;
}
constexpr std::uint32_t operationOf(std::uint64_t command) {
  return static_cast<std::uint32_t>(command >> 32);
}
constexpr std::uint32_t tableOf(std::uint64_t command) {
  return static_cast<std::uint32_t>(command);
}

enum Table : std::uint32_t {
  kInterfaces = 1,             ///< network interfaces; the key is the interface's index
  kMounts = 2,                 ///< mounted file systems; the key is the mount's id
  kProcesses = 3,              ///< processes; the key is the process id
  kFirstStoredTable = 0x1000,  ///< this and all above: tables that requests fill
};

/// Uint: the key of a row, 1 to 2^64 - 1. A table is walked in the order of its rows' keys.
inline constexpr unsigned short kCursorTag = 4093;
/// Enum: whether the record is a row.
inline constexpr unsigned short kStatusTag = MAX_TAG_VALUE;
enum Status : std::uint64_t { kRow = 0, kEnd = 1 };

/// Uint, in the answer to kStore: how many rows the table has now.
inline constexpr unsigned short kStoredRows = 1;

/// RET of an answer that is none; it has no records then.
enum Result : std::uint32_t {
  kOk = 0,
  kUnknownOperation = 1,
  kUnknownTable = 2,
  kNoSuchRow = 3,
  kBadRequest = 4,  ///< cannot be decoded, or has no record, or more than one
  kReadOnly = 5,
  kTableFull = 6,
};

enum InterfaceTag : unsigned short {
  kInterfaceName = 1,      // String
  kInterfaceUp = 2,        // Bool
  kInterfaceHardware = 3,  // Octet; missing when the interface has no hardware address
  kInterfaceMtu = 4,       // Uint
  kReceivedBytes = 5,      // Uint
  kSentBytes = 6,          // Uint
};

enum MountTag : unsigned short {
  kMountPoint = 1,   // String
  kMountDevice = 2,  // String
  kMountType = 3,    // String
  kMountFlags = 4,   // String, as in /proc/self/mountinfo
};

enum ProcessTag : unsigned short {
  kProcessName = 1,   // String
  kProcessState = 2,  // String of one letter, as in /proc
  kThreads = 3,       // Uint
  kResidentKb = 4,    // Uint
  kStarted = 5,       // Time: seconds since 1970
};

enum CountTag : unsigned short {
  kConnections = 1,  // Uint, as all of them: connections accepted
  kRequests = 2,     // whole requests read, this one included
  kReplies = 3,      // answers written
  kRows = 4,         // rows in these, of kGetNext and kGet
  kEnds = 5,         // end marks in these
  kStored = 6,       // records stored
  kRefusals = 7,     // answers with a result other than kOk
};

}  // namespace qov::endpoint

#endif
