#ifndef QOVPUB_QOV_MESSAGE_PACKAGE_H
#define QOVPUB_QOV_MESSAGE_PACKAGE_H

#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>

namespace qov {

/// The records of one package, in their order, and the memory of those made here.
///
/// Records and their cells stand one behind the other in pieces of memory, the first of which lies
/// in the store itself: a small message needs no memory but its package's. The newest record has
/// all the rest of the newest piece to grow into, until the next record is made.
///
/// Thread: as the package. The newest record grows here, so it counts as a part of the package.
/// Owns:   the records, those handed in included.
/// Errors: missing memory is reported by the result, errno is ENOMEM.
class RecordStore {
 public:
  RecordStore() noexcept = default;
  RecordStore(const RecordStore&) = delete;
  RecordStore& operator=(const RecordStore&) = delete;
  ~RecordStore() { clear(); }

  std::size_t size() const noexcept { return size_; }
  CTLVRecordV3& operator[](std::size_t i) const noexcept { return *records_[i]; }
  CTLVRecordV3* const* begin() const noexcept { return records_; }
  CTLVRecordV3* const* end() const noexcept { return records_ + size_; }

  /// Makes sure that `more` records can be added without a further table of records.
  bool reserve(std::size_t more) noexcept {
    return more <= capacity_ - size_ || growTable(size_ + more);
  }
  /// Appends a record from `new` and takes it over; on failure it stays with the caller.
  bool add(CTLVRecordV3* record) noexcept;
  /// Appends a new record and returns it, or null.
  CTLVRecordV3* make(std::uint64_t cmd) noexcept;
  /// Gives the newest record, whose room is used up, a further block. False for any other record.
  bool extend(CTLVRecordV3& record) noexcept;
  void clear() noexcept;

 private:
  static constexpr std::size_t kInsideRecords = 4;
  static constexpr std::size_t kInsideBytes = 384;

  struct Piece {
    Piece* next;
  };

  bool growTable(std::size_t capacity) noexcept;
  bool addPiece() noexcept;
  void closeNewest() noexcept;
  CellBlock* openBlock() noexcept;

  CTLVRecordV3** records_ = inside_;
  std::size_t size_ = 0;
  std::size_t capacity_ = kInsideRecords;
  // The newest record's last block, which ends where the newest piece does.
  CellBlock* open_ = nullptr;
  // The newest piece's rest, behind the records there; without what open_ has used since.
  unsigned char* room_ = memory_;
  unsigned char* roomEnd_ = memory_ + kInsideBytes;
  Piece* pieces_ = nullptr;
  CTLVRecordV3* inside_[kInsideRecords];
  alignas(8) unsigned char memory_[kInsideBytes];
};

}  // namespace qov

/// One message: a header of type MSG_S_HEAD and an ordered list of records.
///
/// There are two instances, CQOV_MsgPackage and CT7QPackageV3; the library holds both, compiled.
///
/// Thread: a value that one thread has at a time, its records included; a package travels by
///         pointer from thread to thread. Const operations may run in several threads at once.
/// Owns:   its records.
/// Errors: encode() and decode() log and return kFailed; errno is ENOMEM when memory was short.
///         CQOV_Exception for a record that is not there.
template <class MSG_S_HEAD>
class CTLVPackageV3 {
 public:
  /// What encode() and decode() return on failure.
  static constexpr unsigned int kFailed = 0xFFFFFFFF;

  /// A header with the defaults of its type, no records.
  CTLVPackageV3();
  /// That header with its serial number, no records.
  explicit CTLVPackageV3(const MSG_S_HEAD& head);
  /// A deep copy; std::bad_alloc when there is no memory. Of an object of a derived class this
  /// makes a plain package.
  CTLVPackageV3(const CTLVPackageV3& other);
  /// The same for an existing package, which is left with some of the records when it throws.
  CTLVPackageV3& operator=(const CTLVPackageV3& other);
  virtual ~CTLVPackageV3();

  /// Reads a message of at most `size` bytes and appends its records to those already here.
  ///
  /// Returns the number of record bytes (0 for a message without records) or kFailed. A bad header
  /// leaves the package as it was; a bad record clears it, earlier records included, and keeps the
  /// header.
  virtual unsigned int decode(unsigned char* buf, unsigned int size);

  /// Allocates exactly the bytes needed, encodes into them and returns their number; the caller
  /// frees `buf` with delete[]. On failure returns kFailed with `buf` null.
  virtual unsigned int encode(unsigned char*& buf);

  /// Encodes into `buf` and returns the number of bytes written, or kFailed: `buf` is null, `size`
  /// too small or a record longer than 65535 bytes. Nothing is written then. Stores the length of
  /// the records in the package's own header.
  virtual unsigned int encode(unsigned char* buf, unsigned int size);

  /// Deletes all records; the header stays.
  virtual void clear();

  /// Writes the message's text form, as it stands in the logs.
  virtual void dump(std::ostringstream& out) const;

  MSG_S_HEAD& head() noexcept { return head_; }
  const MSG_S_HEAD& head() const noexcept { return head_; }

  /// Puts `record`, which must come from `new`, at the end and takes it over; null is ignored.
  /// Throws, and takes nothing, when a package owns the record already.
  void append(CTLVRecordV3* record);
  /// Appends an empty record and returns it; the reference is valid until clear(). Records are made
  /// and filled fastest one after the other.
  CTLVRecordV3& addRecord(std::uint64_t cmd);

  /// Number of records.
  unsigned long count() const noexcept { return records_.size(); }
  /// Record `i`, counted from 0; throws CQOV_Exception when there is none.
  CTLVRecordV3& operator[](unsigned long i) {
    checkIndex(i);
    return records_[i];
  }
  const CTLVRecordV3& operator[](unsigned long i) const {
    checkIndex(i);
    return records_[i];
  }

  /// Parses the record at `p`, of which `remain` bytes may be read. Returns the bytes it takes and
  /// sets `rec`, which the caller deletes; on failure logs, returns 0 and sets `rec` to null. Every
  /// cell has to end within its record.
  unsigned int getRecord(unsigned char* p, unsigned int remain, CTLVRecordV3*& rec);

 private:
  void checkIndex(unsigned long i) const {
    if (i >= records_.size()) {
      throwMissing(i);
    }
  }
  [[noreturn]] static void throwMissing(unsigned long i);
  void copyRecords(const CTLVPackageV3& other);
  bool decodeRecords(unsigned char* buf, unsigned int size, unsigned int end);
  unsigned int parseRecord(const unsigned char* p, unsigned int remain, qov::RecordStore* store,
                           CTLVRecordV3*& rec);
  bool measure(std::uint64_t& needed) const;
  unsigned int write(unsigned char* buf, std::uint64_t needed) noexcept;

  MSG_S_HEAD head_;
  qov::RecordStore records_;
};

/// The message that the modules of one process exchange.
using CQOV_MsgPackage = CTLVPackageV3<QOVMsgHead>;
/// The message of the management link.
using CT7QPackageV3 = CTLVPackageV3<TLVMsgHeadV3>;

extern template class CTLVPackageV3<QOVMsgHead>;
extern template class CTLVPackageV3<TLVMsgHeadV3>;

/// Builds the response to `request`: sender and receiver exchanged, type 2, MST `mst` (the result
/// that the requester's send() returns), the request's OPC, SN and CID, no records. It is a plain
/// package: flags bit 0 is cleared. Null, with errno ENOMEM, when there is no memory.
///
/// Use this to answer another module, and send the result with the asynchronous
/// CQOV_Task::send(): the leaders match a response crosswise, its sender against the request's
/// receiver, so only exchanged addresses find the way back. CQOV_CommonTaskEx's automatic answers
/// copy the addresses unexchanged; they are for requesters of the worker's own module only.
std::unique_ptr<CQOV_MsgPackage> CreateQovRspPackage(const CQOV_MsgPackage& request,
                                                     std::uint8_t mst = 0);

#endif
