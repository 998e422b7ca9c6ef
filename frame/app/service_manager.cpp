#include "frame/app/service_manager.h"

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_stats.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

#include "diag/kit_registry.h"
#include "diag/log_ids.h"
#include "frame/env/failure.h"

namespace qov {

namespace {

/// A manager that takes nothing for so long is not waited for.
constexpr timeval kSendPatience{1, 0};

std::string environment(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): no module yet
  return value != nullptr ? value : "";
}

/// A whole number without sign; nothing else.
std::optional<std::uint64_t> numberIn(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) {
      ::close(descriptor_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return descriptor_; }

 private:
  const int descriptor_;
};

void warn(unsigned long long logId, unsigned int line, const Failure& failure) {
  if (const CQOVDebugKit* const kit = KitRegistry::find(0)) {
    kit->warn(logId, "ServiceManager", line, textOf(failure));
  }
}

}  // namespace

ServiceManager& ServiceManager::process() {
  static ServiceManager manager;
  return manager;
}

void ServiceManager::find() {
  socket_ = environment("NOTIFY_SOCKET");
  patience_.reset();
  isSilent_ = false;
  if (!socket_.empty()) {
    findPatience();
  }
}

void ServiceManager::findPatience() {
  const std::string text = environment("WATCHDOG_USEC");
  const std::string process = environment("WATCHDOG_PID");
  const bool isForAnother = !process.empty() && process != std::to_string(::getpid());
  if (text.empty() || isForAnother) {
    return;
  }
  const auto patience = numberIn(text);
  if (!patience || *patience == 0) {
    warn(log_id::kNoWatchdog, __LINE__,
         {"feed the service manager's watchdog",
          {},
          0,
          "WATCHDOG_USEC",
          "\"" + text + "\" is no whole number above 0"});
    return;
  }
  constexpr std::uint64_t kLongest =
      std::chrono::microseconds(std::chrono::hours(24 * 365)).count();
  patience_ = std::chrono::microseconds(std::min(*patience, kLongest));
}

void ServiceManager::tellReady() noexcept {
  tell(0, [] {
    return "READY=1\nSTATUS=modules that run: " + std::to_string(getModuleStats().size());
  });
}

void ServiceManager::tellReloading() noexcept {
  tell(0, [] {
    // The manager compares this time with its own.
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return "RELOADING=1\nMONOTONIC_USEC=" +
           std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count()) +
           "\nSTATUS=reads the settings of the log again";
  });
}

void ServiceManager::tellStopping() noexcept {
  tell(0, [] { return std::string("STOPPING=1\nSTATUS=stops its modules"); });
}

void ServiceManager::feedWatchdog() noexcept {
  tell(MSG_DONTWAIT, [] { return std::string("WATCHDOG=1"); });
}

void ServiceManager::tellStatus(const std::string& status) noexcept {
  tell(MSG_DONTWAIT, [&] { return "STATUS=" + status; });
}

template <class Lines>
void ServiceManager::tell(int flags, Lines lines) noexcept {
  if (socket_.empty()) {
    return;
  }
  try {
    const std::string text = lines();
    const int error = send(text, flags);
    const bool wasSilent = std::exchange(isSilent_, error != 0);
    if (isSilent_ && !wasSilent) {
      logSilence(text, error);
    }
  } catch (const std::bad_alloc&) {
    // Neither for the lines nor for a record.
  }
}

void ServiceManager::logSilence(const std::string& lines, int error) {
  warn(log_id::kServiceManagerSilent, __LINE__,
       {"tell the service manager", socket_, 0, lines.substr(0, lines.find('\n')),
        errnoText(error)});
}

int ServiceManager::send(const std::string& lines, int flags) const {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socket_.front() != '/' && socket_.front() != '@') {
    return EAFNOSUPPORT;
  }
  if (socket_.size() > sizeof address.sun_path) {
    return ENAMETOOLONG;
  }
  socket_.copy(address.sun_path, socket_.size());
  if (socket_.front() == '@') {
    // A name that is no file's.
    address.sun_path[0] = '\0';
  }
  const Descriptor descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (descriptor.get() < 0) {
    return errno;
  }
  ::setsockopt(descriptor.get(), SOL_SOCKET, SO_SNDTIMEO, &kSendPatience, sizeof kSendPatience);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  const ssize_t sent =
      ::sendto(descriptor.get(), lines.data(), lines.size(), MSG_NOSIGNAL | flags,
               reinterpret_cast<const sockaddr*>(&address), size);  // NOLINT: as the system has it
  return sent >= 0 ? 0 : errno;
}

}  // namespace qov
