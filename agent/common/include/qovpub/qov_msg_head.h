#ifndef QOVPUB_QOV_MSG_HEAD_H
#define QOVPUB_QOV_MSG_HEAD_H

#include <qovpub/qov_export.h>

#include <atomic>
#include <cstdint>
#include <sstream>

/// Header of the messages between the modules of one process: 32 bytes, host byte order.
///
/// The fields are named by their width and meaning on the wire; MST and CID are carried unchanged.
///
/// Thread: a value. Building one takes the next serial number under a lock of its own, from any
///         thread and at any time, static initialisation included.
/// Owns:   nothing.
/// Errors: none.
struct QOV_EXPORT __attribute__((packed)) QOVMsgHead {
  static constexpr std::uint32_t kMagic = 20080808;  ///< of every such header
  static constexpr std::uint8_t kVersion = 1;        ///< of every such header
  /// Set in flags_ when the message carries a whole V3 package as its body.
  static constexpr std::uint8_t kFlagOm = 1;

  /// Values of type_ (TP in log texts).
  enum Type : std::uint8_t {
    kNoType = 0,    ///< of a new header; not a valid message
    kRequest = 1,   ///< is answered by a response
    kResponse = 2,  ///< goes to whoever waits for it
    kNotice = 3,    ///< asynchronous: nobody waits for an answer
    kEvent = 4,     ///< the same; what differs is up to sender and receiver
  };
  /// Whether `type` is that of a valid message, 1 to 4.
  static constexpr bool isType(int type) { return type >= kRequest && type <= kEvent; }

  /// The defaults: no type, all four addresses 255, CID -1 and a serial number of its own.
  QOVMsgHead();

  std::uint32_t magic_;   ///< decode() refuses another than kMagic
  std::uint8_t version_;  ///< decode() refuses another than kVersion
  std::uint8_t type_;     ///< see Type
  std::uint8_t mst_;      ///< in a response: the responder's result
  std::uint8_t spid_;     ///< sender's process id
  std::uint8_t smid_;     ///< sender's module id
  std::uint8_t rpid_;     ///< receiver's process id
  std::uint8_t rmid_;     ///< receiver's module id
  std::uint8_t flags_;    ///< bit 0 is kFlagOm; the others are carried unchanged
  std::int32_t cid_;      ///< an answer has that of its request; the library does not look at it
  std::uint32_t sn_;      ///< serial number
  std::uint64_t opc_;     ///< operation code
  std::uint32_t len_;     ///< record bytes that follow; encode() and decode() set it

  /// Writes the eleven lines of the header's text form.
  void dump(std::ostringstream& out) const;

  /// The last serial number given out. It starts at a value that differs from process to process
  /// and wraps at 2^32.
  static std::uint32_t u32SN_;
};
static_assert(sizeof(QOVMsgHead) == 32, "copied byte for byte");

/// Header of the V3 messages on the management link: 28 bytes, host byte order.
///
/// Thread: a value; allocateSerial() from any thread.
/// Owns:   nothing.
/// Errors: none.
struct QOV_EXPORT TLVMsgHeadV3 {
  static constexpr std::uint32_t kMagic = 0x55555555;  ///< of every such header
  static constexpr std::uint32_t kVersion = 3;         ///< of every such header

  std::uint32_t magic_ = kMagic;      ///< decode() refuses another
  std::uint32_t version_ = kVersion;  ///< decode() refuses another
  std::uint32_t ret_ = 0;             ///< result code
  std::uint32_t ssk_ = 0xFFFFFFFF;    ///< session key; never printed as it is
  std::uint16_t nid_ = 0xFFFD;        ///< carried unchanged
  std::uint16_t reserved_ = 0xFFFF;   ///< carried unchanged; dump() leaves it out
  std::uint16_t bid_ = 0xFFFF;        ///< carried unchanged
  std::uint16_t ser_ = 0xFFFF;        ///< serial number; 0xFFFF until one is allocated
  std::uint32_t len_ = 0;             ///< record bytes that follow; encode() and decode() set it

  /// Writes the next serial number, 1 to 32767, into `head`. The count restarts so that 1 comes
  /// only once per process. Two threads that meet at the restart may get the same number; that is
  /// accepted, the link matches a reply with one outstanding request only.
  static void allocateSerial(TLVMsgHeadV3& head);

  /// Writes the six lines of the header's text form; of the session key only the end of its digest.
  void dump(std::ostringstream& out) const;

  /// The last serial number given out; 0 before the first.
  static std::atomic<std::uint16_t> oAtomicSerial_;
};
static_assert(sizeof(TLVMsgHeadV3) == 28, "copied byte for byte");

#endif
