#include <ace/Log_Msg.h>
#include <qovpub/detail/cell_bytes.h>
#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "msg/package_fault.h"
#include "msg/package_log.h"
#include "msg/plain_numbers.h"
#include "msg/record_codec.h"

namespace {

using Kind = qov::DecodeFault::Kind;

// The failure texts name the header of the package template, from the root of the tree, wherever
// the library was built, and one form of the parsing function's signature, whatever the compiler:
// log watchers match both.
constexpr const char* kFile = "agent/common/include/qovpub/qov_message_package.h";

constexpr const char* signature(const QOVMsgHead*) {
  return "u_int CTLVPackageV3<MSG_S_HEAD>::getRecord(unsigned char*, unsigned int, CTLVRecordV3*&) "
         "[with MSG_S_HEAD = QOVMsgHead; u_int = unsigned int]";
}
constexpr const char* signature(const TLVMsgHeadV3*) {
  return "u_int CTLVPackageV3<MSG_S_HEAD>::getRecord(unsigned char*, unsigned int, CTLVRecordV3*&) "
         "[with MSG_S_HEAD = TLVMsgHeadV3; u_int = unsigned int]";
}

/// What went wrong, in bytes of its own: it may have to be said that there is no memory.
using Text = std::array<char, 160>;

template <class Head>
void logParseFailure(const Head* head, int line, const Text& text) noexcept {
  const int error = errno;
  ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) at File=%s,Line=%d,Function=%s%s\n"), kFile, line,
             signature(head), text.data()));
  errno = error;
}

/// `what`, and where in a message of `size` bytes.
Text describe(const char* what, unsigned int size, unsigned int pos) noexcept {
  Text text{};
  std::snprintf(text.data(), text.size(), "%sbuf size=%u, parsing pos=%u", what, size, pos);
  return text;
}

constexpr const char* kRecordShort = ": MIN_RECORD_SIZE(10) > uiRemainLen, ";

/// What is wrong with a record, in the words that log watchers know; some comparison signs read the
/// wrong way and are kept.
Text describe(const qov::DecodeFault& fault, const unsigned char* record) noexcept {
  Text text{};
  char* const to = text.data();
  switch (fault.kind) {
    case Kind::kRecordShort:
      return describe(kRecordShort, fault.value, 0);
    case Kind::kRecordLength:
      std::snprintf(to, text.size(),
                    " : record length is too long, (usRecordLen +  MIN_RECORD_SIZE) > uiBufSize "
                    "->%u+10 < %u",
                    fault.value, fault.limit + MIN_RECORD_SIZE);
      break;
    case Kind::kCellShort:
      std::snprintf(to, text.size(), " : (MIN_TLV_SIZE > uiBufSize - pos) ->4 < uiBufSize - %u",
                    fault.pos);
      break;
    case Kind::kCellType:
      std::snprintf(to, text.size(), " : data type unmated, received type is %u", fault.value);
      break;
    case Kind::kCellLength:
      // The position is that of the value, behind the length.
      std::snprintf(to, text.size(),
                    " : data length is too long, ((sDataLen + pos) > usRecordLen + "
                    "MIN_RECORD_SIZE) ->%u+%u > %u+10",
                    fault.value, fault.pos + 2U,
                    unsigned{qov::loadWord<std::uint16_t>(record + 8)});
      break;
    default:
      std::snprintf(to, text.size(), " : no memory for the record");
      break;
  }
  return text;
}

/// How many records these bytes hold if they are sound.
unsigned long countRecords(const unsigned char* p, unsigned int len) {
  unsigned long records = 0;
  while (len >= MIN_RECORD_SIZE) {
    const unsigned int step = MIN_RECORD_SIZE + qov::loadWord<std::uint16_t>(p + 8);
    ++records;
    if (step > len) {
      break;
    }
    p += step;
    len -= step;
  }
  return records;
}

}  // namespace

namespace qov {

void logHeadFault(const DecodeFault& fault) {
  if (fault.kind == Kind::kHeadShort) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("%D %M (%t) at File=%s,Line=%d,Function=CTLVPackageV3::verifyMsgHead: pBuf "
                        "is null or uiBufSize equal zero!\n"),
               kFile, __LINE__));
  }
  ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) invalid MSG header!\n")));
}

void logNoBuffer() {
  ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) buf pointer is null!\n")));
}

void logNoMemory(std::uint64_t bytes) noexcept {
  ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) no memory for the message! data size=%Q!\n"), bytes));
  errno = ENOMEM;
}

}  // namespace qov

template <class MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>::CTLVPackageV3() = default;

template <class MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>::CTLVPackageV3(const MSG_S_HEAD& head) : head_(head) {}

template <class MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>::CTLVPackageV3(const CTLVPackageV3& other) : head_(other.head_) {
  copyRecords(other);
}

template <class MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>& CTLVPackageV3<MSG_S_HEAD>::operator=(const CTLVPackageV3& other) {
  if (this != &other) {
    records_.clear();
    copyRecords(other);
    head_ = other.head_;
  }
  return *this;
}

template <class MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::copyRecords(const CTLVPackageV3& other) {
  for (const CTLVRecordV3* record : other.records_) {
    addRecord(record->cmd()).addCopies(*record);
  }
}

template <class MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>::CTLVPackageV3(CTLVPackageV3&& other) noexcept
    : head_(other.head_), records_(std::move(other.records_)) {}

template <class MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>& CTLVPackageV3<MSG_S_HEAD>::operator=(CTLVPackageV3&& other) noexcept {
  head_ = other.head_;
  records_ = std::move(other.records_);
  return *this;
}

template <class MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>::~CTLVPackageV3() = default;

template <class MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::clear() {
  records_.clear();
}

template <class MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::dump(std::ostringstream& out) const {
  const qov::PlainNumbers plain(out);
  out << "{" << std::endl;
  head_.dump(out);
  for (const CTLVRecordV3* record : records_) {
    record->dump(out);
  }
  out << "}" << std::endl;
}

template <class MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::append(CTLVRecordV3* record) {
  if (record == nullptr) {
    return;
  }
  checkFree(*record);
  if (!records_.add(record)) {
    throw std::bad_alloc();
  }
}

template <class MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::checkFree(const CTLVRecordV3& record) {
  if (record.owned_) {
    throw CQOV_Exception("record belongs to a package already, cmd is " +
                         std::to_string(record.cmd()));
  }
}

template <class MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::erase(unsigned long i) {
  checkIndex(i);
  records_.erase(i);
}

template <class MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::replace(unsigned long i, CTLVRecordV3* record) {
  if (record == nullptr) {
    return;
  }
  checkIndex(i);
  checkFree(*record);
  records_.replace(i, record);
}

template <class MSG_S_HEAD>
CTLVRecordV3& CTLVPackageV3<MSG_S_HEAD>::addRecord(std::uint64_t cmd) {
  CTLVRecordV3* record = records_.make(cmd);
  if (record == nullptr) {
    throw std::bad_alloc();
  }
  return *record;
}

template <class MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::throwMissing(unsigned long i) {
  throw CQOV_Exception("record don't exist, index is " + std::to_string(i));
}

template <class MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::decode(unsigned char* buf, unsigned int size) {
  fault_ = qov::messageFault<MSG_S_HEAD>(buf, size);
  if (fault_.kind != Kind::kNone) {
    qov::logHeadFault(fault_);
    return kFailed;
  }
  const auto len = qov::loadWord<std::uint32_t>(buf + offsetof(MSG_S_HEAD, len_));
  if (!decodeRecords(buf, size, static_cast<unsigned int>(sizeof(MSG_S_HEAD)) + len)) {
    clear();
    return kFailed;
  }
  std::memcpy(&head_, buf, sizeof(MSG_S_HEAD));
  return len;
}

/// Appends the records that end at `end`; positions count from the start of the message.
template <class MSG_S_HEAD>
bool CTLVPackageV3<MSG_S_HEAD>::decodeRecords(unsigned char* buf, unsigned int size,
                                              unsigned int end) {
  unsigned int pos = sizeof(MSG_S_HEAD);
  if (!records_.reserve(countRecords(buf + pos, end - pos))) {
    qov::logNoMemory(end);
    fault_ = {Kind::kNoMemory, pos};
    return false;
  }
  while (pos < end) {
    if (end - pos < MIN_RECORD_SIZE) {
      fault_ = {Kind::kRecordShort, pos, end - pos, MIN_RECORD_SIZE};
      logParseFailure(&head_, __LINE__, describe(kRecordShort, size, pos));
      return false;
    }
    CTLVRecordV3* record = nullptr;
    const unsigned int taken = parseRecord(buf + pos, end - pos, &records_, record);
    if (record == nullptr) {
      logParseFailure(&head_, __LINE__, describe(" : it failed to parse record, ", size, pos));
      fault_.pos += pos;
      return false;
    }
    pos += taken;
  }
  return true;
}

template <class MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::parseRecord(const unsigned char* p, unsigned int remain,
                                                    qov::RecordStore* store, CTLVRecordV3*& rec) {
  const qov::DecodeFault fault = qov::RecordCodec::parse(p, remain, store, rec);
  if (rec == nullptr) {
    fault_ = fault;
    logParseFailure(&head_, __LINE__, describe(fault, p));
    return 0;
  }
  return MIN_RECORD_SIZE + qov::loadWord<std::uint16_t>(p + 8);
}

template <class MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::getRecord(unsigned char* p, unsigned int remain,
                                                  CTLVRecordV3*& rec) {
  fault_ = {};
  return parseRecord(p, remain, nullptr, rec);
}

/// Sums up the whole message in 64 bits; false, and a log line, if a record is too long to encode.
template <class MSG_S_HEAD>
bool CTLVPackageV3<MSG_S_HEAD>::measure(std::uint64_t& needed) const {
  needed = sizeof(MSG_S_HEAD);
  for (const CTLVRecordV3* record : records_) {
    const unsigned long length = record->length();
    if (length > CTLVRecordV3::kMaxLength) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) record is too long! record length=%u, limit=%u!\n"),
                 static_cast<unsigned int>(length),
                 static_cast<unsigned int>(CTLVRecordV3::kMaxLength)));
      return false;
    }
    needed += MIN_RECORD_SIZE + length;
  }
  return true;
}

template <class MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::write(unsigned char* buf, std::uint64_t needed) noexcept {
  const auto len = static_cast<std::uint32_t>(needed - sizeof(MSG_S_HEAD));
  std::memcpy(buf, &head_, sizeof(MSG_S_HEAD));
  qov::storeWord(buf + offsetof(MSG_S_HEAD, len_), len);
  head_.len_ = len;
  unsigned char* out = buf + sizeof(MSG_S_HEAD);
  for (const CTLVRecordV3* record : records_) {
    out = qov::RecordCodec::write(*record, out, buf + needed);
  }
  return static_cast<unsigned int>(needed);
}

template <class MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::encode(unsigned char* buf, unsigned int size) {
  if (buf == nullptr) {
    qov::logNoBuffer();
    return kFailed;
  }
  std::uint64_t needed = 0;
  if (!measure(needed)) {
    return kFailed;
  }
  if (size < needed) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("%D %M (%t) buf size is less than data size! buf size=%u, data size=%u!\n"),
               size, static_cast<unsigned int>(std::min<std::uint64_t>(needed, kFailed))));
    return kFailed;
  }
  return write(buf, needed);
}

template <class MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::encode(unsigned char*& buf) {
  buf = nullptr;
  std::uint64_t needed = 0;
  if (!measure(needed)) {
    return kFailed;
  }
  if (needed < kFailed) {
    buf = new (std::nothrow) unsigned char[needed];
  }
  if (buf == nullptr) {
    qov::logNoMemory(needed);
    return kFailed;
  }
  return write(buf, needed);
}

template class CTLVPackageV3<QOVMsgHead>;
template class CTLVPackageV3<TLVMsgHeadV3>;

std::unique_ptr<CQOV_MsgPackage> CreateQovRspPackage(const CQOV_MsgPackage& request,
                                                     std::uint8_t mst) {
  const QOVMsgHead& asked = request.head();
  QOVMsgHead head(asked);
  head.type_ = QOVMsgHead::kResponse;
  head.mst_ = mst;
  head.spid_ = asked.rpid_;
  head.smid_ = asked.rmid_;
  head.rpid_ = asked.spid_;
  head.rmid_ = asked.smid_;
  // The answer is a plain package whatever the request was.
  head.flags_ = static_cast<std::uint8_t>(asked.flags_ & ~QOVMsgHead::kFlagOm);
  head.len_ = 0;
  std::unique_ptr<CQOV_MsgPackage> response(new (std::nothrow) CQOV_MsgPackage(head));
  if (response == nullptr) {
    errno = ENOMEM;
  }
  return response;
}
