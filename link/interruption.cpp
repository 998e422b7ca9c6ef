#include <qovpub/qov_interruption.h>

#include <sys/eventfd.h>
#include <unistd.h>

namespace qov {

Interruption::Interruption() : handle_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Interruption::~Interruption() {
  if (handle_ != ACE_INVALID_HANDLE) {
    ::close(handle_);
  }
}

void Interruption::set() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!isSet()) {
    ++changes_;
    static_cast<void>(::eventfd_write(handle_, 1));
  }
}

void Interruption::clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (isSet()) {
    eventfd_t count;
    static_cast<void>(::eventfd_read(handle_, &count));
    ++changes_;
  }
}

}  // namespace qov
