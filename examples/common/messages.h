#ifndef QOV_EXAMPLES_COMMON_MESSAGES_H
#define QOV_EXAMPLES_COMMON_MESSAGES_H

#include <qovpub/qov_request.h>

#include <cstdint>
#include <string_view>

/// What the modules of the example agent say to one another.
namespace devagent {

/// The modules by their ids: message addresses, thread groups and debug kits go by them.
enum Module : std::uint8_t {
  kInventory = 10,
  kCollector = 20,
  kJournal = 30,
  kUplink = 40,
  kDrill = 50,
  kPartner = 60,
  kReporter = 70,
  kMqtt = 251,  ///< qovmqtt, which comes with the library
};

/// Operation codes.
enum Operation : std::uint64_t {
  // Requests to the inventory; the answer holds the records named below.
  kReadHost = 0x1001,         ///< one kHostRecord
  kReadInterfaces = 0x1002,   ///< a kInterfaceRecord per network interface
  kReadFileSystems = 0x1003,  ///< a kFileSystemRecord per mounted file system
  kReadNothing = 0x10FF,      ///< an operation that nobody answers

  /// Request to the inventory or the collector; the answer holds one kTallyRecord.
  kReadTally = 0x2001,
  /// Request of the collector to itself: run one round.
  kRunRound = 0x2002,

  /// Request to the inventory, an OM message: keep the table in the message that it carries. The
  /// answer holds one kTallyRecord.
  kTakeTable = 0x2003,

  // Notices and events to the journal.
  kWriteEntry = 0x3001,     ///< one kEntryRecord
  kRoundFinished = 0x3002,  ///< no record; the collector's tally has changed

  // To the drill and its partner, without records; nobody answers.
  kSleep = 0x4001,    ///< the handler sleeps
  kAskBack = 0x4002,  ///< the handler asks the other of the two the same

  /// Request to the MQTT module: publish one kReportRecord.
  kReport = 0x5001,
};

/// Command codes of records, each followed by the tags of its cells.
enum Record : std::uint64_t {
  kHostRecord = 1,
  kInterfaceRecord = 2,
  kFileSystemRecord = 3,
  kTallyRecord = 4,
  kEntryRecord = 5,
  kReportRecord = 6,
};

enum HostTag : unsigned short {
  kHostName = 1,           // String
  kKernel = 2,             // String
  kUptimeSeconds = 3,      // Uint
  kProcessors = 4,         // Uint
  kMemoryTotalKb = 5,      // Uint
  kMemoryAvailableKb = 6,  // Uint
  kLoadThousandths = 7,    // Array: over 1, 5 and 15 minutes
};

enum InterfaceTag : unsigned short {
  kInterfaceName = 1,       // String
  kInterfaceUp = 2,         // Bool
  kInterfaceHardware = 3,   // Octet; missing when the interface has no hardware address
  kInterfaceAddresses = 4,  // Array of strings
};

enum FileSystemTag : unsigned short {
  kMountPoint = 1,   // String
  kMountDevice = 2,  // String
  kMountType = 3,    // String
  kSizeKb = 4,       // Uint; missing, with kFreeKb, when the file system does not tell
  kFreeKb = 5,       // Uint
};

enum TallyTag : unsigned short {
  kRounds = 1,           // Uint, all of them
  kSent = 2,             // requests that the collector sent
  kAnswered = 3,         // of these: answered
  kTimedOut = 4,         // of these: not answered in time
  kRecordsReceived = 5,  // records about the machine that the collector got
  kRecordsSent = 6,      // records about the machine that the inventory sent to who asks
  kInterfaces = 7,       // network interfaces in the last round
  kFileSystems = 8,      // mounted file systems in the last round
  kTablesTaken = 9,      // tables that the inventory was given
  kRowsTaken = 10,       // rows in these
};

enum EntryTag : unsigned short { kEntryText = 1 };  // String

enum ReportTag : unsigned short { kReportName = 1 };  // String

/// Makes the journal write `text`.
inline void writeEntry(CQOV_Task& sender, QOVMsgHead::Type type, std::string_view text) {
  QOVRequest entry(sender, kJournal, kWriteEntry);
  entry.addRecord(kEntryRecord).addString(kEntryText, text);
  entry.tell(type);
}

}  // namespace devagent

#endif
