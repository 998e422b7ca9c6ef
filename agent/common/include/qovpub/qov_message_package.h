#ifndef QOVPUB_QOV_MESSAGE_PACKAGE_H
#define QOVPUB_QOV_MESSAGE_PACKAGE_H

#include <qovpub/detail/record_iterator.h>
#include <qovpub/detail/record_store.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_msg.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <type_traits>

namespace qov {

/// Why a message was refused, as a value; the log has the same in words of its own.
///
/// Thread: a value.
/// Owns:   nothing.
/// Errors: none.
struct QOV_EXPORT DecodeFault {
  /// What is wrong.
  enum class Kind : unsigned char {
    kNone,          ///< nothing was refused
    kHeadShort,     ///< no bytes, or fewer than the header has; `value`: how many there are
    kMagic,         ///< another magic, `value`
    kVersion,       ///< another version, `value`
    kType,          ///< in an internal header, a type, `value`, other than 1 to 4
    kLength,        ///< LEN, `value`, is more than the bytes behind the header
    kRecordShort,   ///< `value` bytes, 1 to 9, where a record should start
    kRecordLength,  ///< a record's length, `value`, is more than what is left of LEN
    kCellShort,     ///< `value` bytes, 0 to 3, of the message left for a cell's head
    kCellType,      ///< a cell of type `value`, 10 to 15
    kCellLength,    ///< a cell's length, `value`, is more than what is left of its record
    kNoMemory       ///< none for the records; errno is ENOMEM
  };

  Kind kind = Kind::kNone;  ///< kNone while nothing was refused
  /// What is wrong starts at this byte, counted from the first that decode() was given. For
  /// kRecordShort, kCellShort and kCellType that is where the record or cell starts, for the
  /// others the field.
  unsigned int pos = 0;
  /// What stands there, as said with each kind; otherwise 0.
  unsigned int value = 0;
  /// What `value` is held against: the right magic or version, the least number of bytes, or the
  /// most that the type or length may be; 0 for kNone and kNoMemory.
  unsigned int limit = 0;

  /// The kind in a few words of English, such as "a cell is longer than its record".
  const char* text() const noexcept;
};

}  // namespace qov

/// One message: a header of type MSG_S_HEAD and an ordered list of records.
///
/// There are two instances, CQOV_MsgPackage and CT7QPackageV3; the library holds both, compiled.
///
/// Thread: a value that one thread has at a time, its records included; a package travels by
///         pointer from thread to thread. Const operations may run in several threads at once.
/// Owns:   its records.
/// Errors: encode() and decode() log and return kFailed; errno is ENOMEM when memory was short, and
///         decodeFault() tells why decode() failed. CQOV_Exception for a record that is not there.
template <class MSG_S_HEAD>
class QOV_EXPORT CTLVPackageV3 {
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
  /// Takes all records over and copies the header; nothing is allocated. `other` keeps its header,
  /// serial number included, and has no records. References to records that append() took over stay
  /// valid, and so do those to their cells; all others into `other` do not.
  CTLVPackageV3(CTLVPackageV3&& other) noexcept;
  /// The same for an existing package, whose records are deleted.
  CTLVPackageV3& operator=(CTLVPackageV3&& other) noexcept;
  virtual ~CTLVPackageV3();

  /// Reads a message of at most `size` bytes and appends its records to those already here.
  ///
  /// Returns the number of record bytes (0 for a message without records) or kFailed. A bad header
  /// leaves the package as it was; a bad record clears it, earlier records included, and keeps the
  /// header.
  virtual unsigned int decode(unsigned char* buf, unsigned int size);

  /// The same for bytes that must not be changed: decoding does not change them. A derived class
  /// that overrides decode() hides this one unless it says `using CTLVPackageV3::decode`. It is a
  /// template so that a call with a null pointer is not ambiguous.
  template <class Byte, std::enable_if_t<std::is_same_v<Byte, unsigned char>, int> = 0>
  unsigned int decode(const Byte* buf, unsigned int size) {
    return decode(const_cast<unsigned char*>(buf), size);
  }

  /// Why the last decode() or getRecord() failed; kNone when it did not, or there was none yet.
  /// Copies and moved packages start with kNone.
  const qov::DecodeFault& decodeFault() const noexcept { return fault_; }

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

  /// @{
  /// The header, to be read and changed at any time but for LEN, which encode() and decode() set.
  /// The reference holds as long as the package.
  MSG_S_HEAD& head() noexcept { return head_; }
  const MSG_S_HEAD& head() const noexcept { return head_; }
  /// @}

  /// Puts `record`, which must come from `new`, at the end and takes it over; null is ignored.
  /// Throws, and takes nothing, when a package owns the record already.
  void append(CTLVRecordV3* record);
  /// Appends an empty record and returns it; the reference is valid until clear(). Records are made
  /// and filled fastest one after the other. `addRecord(cmd) = std::move(record)` takes a finished
  /// one over.
  CTLVRecordV3& addRecord(std::uint64_t cmd);
  /// Deletes record `i`; the ones behind move up by one. Throws when there is none. What a package
  /// has made keeps its memory until clear().
  void erase(unsigned long i);
  /// Deletes record `i` and takes `record` over as append() does, in its place; null is ignored.
  /// Throws, and takes nothing, when there is no record `i` or a package owns `record` already. To
  /// change what record `i` holds, assign to it.
  void replace(unsigned long i, CTLVRecordV3* record);

  /// Number of records.
  unsigned long count() const noexcept { return records_.size(); }
  /// @{
  /// Record `i`, counted from 0; throws CQOV_Exception when there is none.
  CTLVRecordV3& operator[](unsigned long i) {
    checkIndex(i);
    return records_[i];
  }
  const CTLVRecordV3& operator[](unsigned long i) const {
    checkIndex(i);
    return records_[i];
  }
  /// @}

  /// @{
  /// The records in their order, for range-for. Iterators are valid until a record is added, erased
  /// or the package is cleared, assigned to, moved or destroyed.
  using iterator = qov::RecordIterator<CTLVRecordV3>;
  using const_iterator = qov::RecordIterator<const CTLVRecordV3>;
  iterator begin() noexcept { return iterator(records_.begin()); }
  iterator end() noexcept { return iterator(records_.end()); }
  const_iterator begin() const noexcept { return const_iterator(records_.begin()); }
  const_iterator end() const noexcept { return const_iterator(records_.end()); }
  /// @}

  /// Parses the record at `p`, of which `remain` bytes may be read. Returns the bytes it takes and
  /// sets `rec`, which the caller deletes; on failure logs, returns 0 and sets `rec` to null. Every
  /// cell has to end within its record.
  unsigned int getRecord(unsigned char* p, unsigned int remain, CTLVRecordV3*& rec);

 protected:
  /// For derived classes that decode in their own way.
  void setDecodeFault(const qov::DecodeFault& fault) noexcept { fault_ = fault; }

 private:
  void checkIndex(unsigned long i) const {
    if (i >= records_.size()) {
      throwMissing(i);
    }
  }
  [[noreturn]] static void throwMissing(unsigned long i);
  static void checkFree(const CTLVRecordV3& record);
  void copyRecords(const CTLVPackageV3& other);
  bool decodeRecords(unsigned char* buf, unsigned int size, unsigned int end);
  unsigned int parseRecord(const unsigned char* p, unsigned int remain, qov::RecordStore* store,
                           CTLVRecordV3*& rec);
  bool measure(std::uint64_t& needed) const;
  unsigned int write(unsigned char* buf, std::uint64_t needed) noexcept;

  MSG_S_HEAD head_;
  qov::RecordStore records_;
  qov::DecodeFault fault_;
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
QOV_EXPORT std::unique_ptr<CQOV_MsgPackage> CreateQovRspPackage(const CQOV_MsgPackage& request,
                                                                std::uint8_t mst = 0);

#endif
