#include <qovpub/qov_om_message_package.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "msg/package_fault.h"
#include "msg/package_log.h"

namespace {

constexpr unsigned int kOuterHead = sizeof(QOVMsgHead);
constexpr unsigned int kInnerHead = sizeof(TLVMsgHeadV3);

/// Bytes of the package's records, in 64 bits: the sum may be more than a message can say.
template <class Package>
std::uint64_t recordBytes(const Package& package) {
  std::uint64_t bytes = 0;
  for (unsigned long i = 0; i < package.count(); ++i) {
    bytes += MIN_RECORD_SIZE + package[i].length();
  }
  return bytes;
}

std::unique_ptr<CT7QPackageV3> copyOf(const CT7QPackageV3* package) {
  if (package == nullptr) {
    return nullptr;
  }
  return std::make_unique<CT7QPackageV3>(*package);
}

/// Stores LEN in the header itself and writes the header.
void writeHead(QOVMsgHead& head, std::uint64_t len, unsigned char* buf) noexcept {
  head.len_ = static_cast<std::uint32_t>(len);
  std::memcpy(buf, &head, sizeof head);
}

using Buffer = std::unique_ptr<unsigned char[]>;

/// Zeroed bytes; null, and a log line, if there is no memory or a message cannot be that long.
Buffer allocate(std::uint64_t bytes) noexcept {
  Buffer made;
  if (bytes < CQOV_MsgPackage::kFailed) {
    made.reset(new (std::nothrow) unsigned char[bytes]());
  }
  if (made == nullptr) {
    qov::logNoMemory(bytes);
  }
  return made;
}

Buffer encodeHead(QOVMsgHead& head) {
  Buffer made = allocate(kOuterHead);
  if (made != nullptr) {
    writeHead(head, 0, made.get());
  }
  return made;
}

/// The header before itself and the outer records; `inner` bytes of records are only counted.
Buffer encodeTwoHeads(CQOV_OM_MsgPackage& package, std::uint64_t inner) {
  const std::uint64_t own = kOuterHead + recordBytes(package);
  Buffer made = allocate(kOuterHead + std::max(kInnerHead + inner, own));
  if (made == nullptr) {
    return nullptr;
  }
  unsigned char* const second = made.get() + kOuterHead;
  if (package.CQOV_MsgPackage::encode(second, static_cast<unsigned int>(own)) ==
      CQOV_MsgPackage::kFailed) {
    return nullptr;
  }
  writeHead(package.head(), kInnerHead + inner, made.get());
  writeHead(package.head(), inner, second);
  return made;
}

}  // namespace

CQOV_OM_MsgPackage::CQOV_OM_MsgPackage(CT7QPackageV3* inner) : inner_(inner) {
  head().flags_ |= QOVMsgHead::kFlagOm;
}

CQOV_OM_MsgPackage::CQOV_OM_MsgPackage(const CQOV_OM_MsgPackage& other)
    : CQOV_MsgPackage(other), inner_(copyOf(other.get())) {}

CQOV_OM_MsgPackage& CQOV_OM_MsgPackage::operator=(const CQOV_OM_MsgPackage& other) {
  if (this != &other) {
    std::unique_ptr<CT7QPackageV3> inner = copyOf(other.get());
    CQOV_MsgPackage::operator=(other);
    inner_.swap(inner);
  }
  return *this;
}

CQOV_OM_MsgPackage::~CQOV_OM_MsgPackage() = default;

void CQOV_OM_MsgPackage::set(CT7QPackageV3* p) noexcept {
  if (p != inner_.get()) {
    inner_.reset(p);
  }
}

unsigned int CQOV_OM_MsgPackage::decode(unsigned char* buf, unsigned int size) {
  using Kind = qov::DecodeFault::Kind;
  qov::DecodeFault fault = qov::headFault<QOVMsgHead>(buf, size);
  setDecodeFault(fault);
  if (fault.kind != Kind::kNone) {
    qov::logHeadFault(fault);
    return kFailed;
  }
  if (inner_ != nullptr) {
    inner_->clear();
  } else {
    inner_.reset(new (std::nothrow) CT7QPackageV3);
    if (inner_ == nullptr) {
      qov::logNoMemory(sizeof(CT7QPackageV3));
      setDecodeFault({Kind::kNoMemory, kOuterHead});
      return kFailed;
    }
  }
  std::memcpy(&head(), buf, kOuterHead);
  const unsigned int result = inner_->decode(buf + kOuterHead, size - kOuterHead);
  fault = inner_->decodeFault();
  fault.pos += fault.kind != Kind::kNone ? kOuterHead : 0;
  setDecodeFault(fault);
  return result;
}

unsigned int CQOV_OM_MsgPackage::encode(unsigned char*& buf) {
  const std::uint64_t inner = inner_ != nullptr ? recordBytes(*inner_) : 0;
  buf = (inner_ != nullptr ? encodeTwoHeads(*this, inner) : encodeHead(head())).release();
  if (buf == nullptr) {
    return kFailed;
  }
  return static_cast<unsigned int>(kOuterHead + (inner_ != nullptr ? kInnerHead + inner : 0));
}

unsigned int CQOV_OM_MsgPackage::encode(unsigned char* buf, unsigned int size) {
  const std::uint64_t body = inner_ != nullptr ? kInnerHead + recordBytes(*inner_) : 0;
  if (size < kOuterHead + body) {
    return kFailed;
  }
  if (buf == nullptr) {
    qov::logNoBuffer();
    return kFailed;
  }
  // The inner package first: when it fails, nothing has changed.
  if (inner_ != nullptr &&
      inner_->encode(buf + kOuterHead, static_cast<unsigned int>(body)) == kFailed) {
    return kFailed;
  }
  writeHead(head(), body, buf);
  return static_cast<unsigned int>(kOuterHead + body);
}

void CQOV_OM_MsgPackage::dump(std::ostringstream& out) const {
  CQOV_MsgPackage::dump(out);
  if (inner_ != nullptr) {
    inner_->dump(out);
  }
}

CQOV_MsgPackage* CreateQovMsgPackage(const QOVMsgHead& head) {
  CQOV_MsgPackage* made = nullptr;
  if ((head.flags_ & QOVMsgHead::kFlagOm) != 0) {
    made = new (std::nothrow) CQOV_OM_MsgPackage(nullptr);
  } else {
    made = new (std::nothrow) CQOV_MsgPackage;
  }
  if (made == nullptr) {
    errno = ENOMEM;
  }
  return made;
}
