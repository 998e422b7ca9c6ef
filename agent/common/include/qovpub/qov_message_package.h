#ifndef QOVPUB_QOV_MESSAGE_PACKAGE_H
#define QOVPUB_QOV_MESSAGE_PACKAGE_H

#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <vector>

/// One message: a header of type MSG_S_HEAD and an ordered list of records.
///
/// There are two instances, CQOV_MsgPackage and CT7QPackageV3, and both are compiled in the
/// library.
///
/// Thread: a value that one thread has at a time; a package travels by pointer from thread to
///         thread. Const operations other than encode() may run in several threads at once.
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
  /// That header, no records; an internal header keeps its serial number.
  explicit CTLVPackageV3(const MSG_S_HEAD& head);
  /// A deep copy. Only what the package itself holds is copied: of an object of a derived class
  /// this makes a plain package.
  CTLVPackageV3(const CTLVPackageV3& other);
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
  void append(CTLVRecordV3* record);
  /// Appends an empty record with room for `cells` cells and returns it, valid until clear().
  CTLVRecordV3& addRecord(std::uint64_t cmd, unsigned long cells = 0);

  /// Number of records.
  unsigned long count() const noexcept { return records_.size(); }
  /// Record `i`, counted from 0; throws CQOV_Exception when there is none.
  CTLVRecordV3& operator[](unsigned long i) {
    checkIndex(i);
    return *records_[i];
  }
  const CTLVRecordV3& operator[](unsigned long i) const {
    checkIndex(i);
    return *records_[i];
  }

  /// Parses the record at `p`, of which `remain` bytes may be read. Returns the bytes it takes and
  /// sets `rec`, which the caller deletes; on failure logs, returns 0 and sets `rec` to null.
  unsigned int getRecord(unsigned char* p, unsigned int remain, CTLVRecordV3*& rec);

 private:
  void checkIndex(unsigned long i) const {
    if (i >= records_.size()) {
      throwMissing(i);
    }
  }
  [[noreturn]] static void throwMissing(unsigned long i);
  bool reserve(unsigned long records) noexcept;
  bool decodeRecords(unsigned char* buf, unsigned int size, unsigned int end);
  bool measure(std::uint64_t& needed) const;
  unsigned int write(unsigned char* buf, std::uint64_t needed) noexcept;

  MSG_S_HEAD head_;
  std::vector<std::unique_ptr<CTLVRecordV3>> records_;
};

/// The message that the modules of one process exchange.
using CQOV_MsgPackage = CTLVPackageV3<QOVMsgHead>;
/// The message of the management link.
using CT7QPackageV3 = CTLVPackageV3<TLVMsgHeadV3>;

extern template class CTLVPackageV3<QOVMsgHead>;
extern template class CTLVPackageV3<TLVMsgHeadV3>;

/// Builds the response to `request`: sender and receiver exchanged, type 2, MST `mst` (the result
/// that the requester's send() returns), the request's OPC, SN and CID, no records. Null, with
/// errno ENOMEM, when there is no memory.
///
/// Use this to answer another module, and send the result with the asynchronous
/// CQOV_Task::send(): the leaders match a response crosswise, its sender against the request's
/// receiver, so only exchanged addresses find the way back. CQOV_CommonTaskEx's automatic answers
/// copy the addresses unexchanged; they are for requesters of the worker's own module only.
std::unique_ptr<CQOV_MsgPackage> CreateQovRspPackage(const CQOV_MsgPackage& request,
                                                     std::uint8_t mst = 0);

#endif
