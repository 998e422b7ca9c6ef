#include <pthread.h>
#include <qovpub/qov_msg.h>

namespace {

// Both are constant-initialised: a header built while other libraries still initialise, or after
// they are torn down, finds a lock that works.
pthread_mutex_t serialLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

/// Serials shall start anywhere, so that those of a restarted process differ from the last run's.
/// Runs before the library's own constructors of static objects.
__attribute__((constructor(101))) void seedSerial() {
  QOVMsgHead::u32SN_ = static_cast<std::uint32_t>(pthread_self());
}

std::uint32_t nextSerial() noexcept {
  pthread_mutex_lock(&serialLock);
  const std::uint32_t serial = ++QOVMsgHead::u32SN_;
  pthread_mutex_unlock(&serialLock);
  return serial;
}

}  // namespace

std::uint32_t QOVMsgHead::u32SN_ = 0;

std::atomic<std::uint16_t> TLVMsgHeadV3::oAtomicSerial_{0};

QOVMsgHead::QOVMsgHead()
    : magic_(kMagic),
      version_(kVersion),
      type_(kNoType),
      mst_(0),
      spid_(255),
      smid_(255),
      rpid_(255),
      rmid_(255),
      flags_(0),
      cid_(-1),
      sn_(nextSerial()),
      opc_(0),
      len_(0) {}

void TLVMsgHeadV3::allocateSerial(TLVMsgHeadV3& head) {
  constexpr std::uint16_t kLast = 0x7FFE;
  if (oAtomicSerial_.load() > kLast) {
    oAtomicSerial_.exchange(1);
  }
  head.ser_ = static_cast<std::uint16_t>(oAtomicSerial_.fetch_add(1) + 1);
}
