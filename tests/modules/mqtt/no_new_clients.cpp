#include "tests/modules/mqtt/no_new_clients.h"

#include <dlfcn.h>
#include <mosquitto.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<bool> areRefused{false};

}  // namespace

// In place of the library's.
extern "C" mosquitto* mosquitto_new(const char* id, bool cleanStart, void* self) {
  static const auto next =
      reinterpret_cast<decltype(&mosquitto_new)>(::dlsym(RTLD_NEXT, "mosquitto_new"));
  if (areRefused) {
    errno = ENOMEM;
    return nullptr;
  }
  return next(id, cleanStart, self);
}

namespace qov::test {

NoNewClients::NoNewClients() {
  areRefused = true;
}
NoNewClients::~NoNewClients() {
  areRefused = false;
}

}  // namespace qov::test
