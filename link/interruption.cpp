#include <qovpub/qov_interruption.h>

#include <sys/socket.h>

namespace qov {

void Interruption::set() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!isSet()) {
    ++changes_;
    if (waitedFor_ != ACE_INVALID_HANDLE) {
      ::shutdown(waitedFor_, SHUT_RDWR);
    }
  }
}

void Interruption::clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (isSet()) {
    ++changes_;
  }
}

Interruption::Wait::Wait(Interruption& interruption, ACE_HANDLE socket)
    : interruption_(interruption) {
  const std::lock_guard<std::mutex> lock(interruption.mutex_);
  changes_ = interruption.changes_;
  interruption.waitedFor_ = socket;
}

Interruption::Wait::~Wait() {
  end();
}

bool Interruption::Wait::end() {
  const std::lock_guard<std::mutex> lock(interruption_.mutex_);
  interruption_.waitedFor_ = ACE_INVALID_HANDLE;
  return !isInterrupted();
}

}  // namespace qov
