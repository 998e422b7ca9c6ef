// A getaddrinfo() for which "two.test" has the addresses ::1 and 127.0.0.1, in this order, as
// localhost has with the hosts file that Debian installs.

#include <dlfcn.h>
#include <netdb.h>

#include <cstring>

namespace {

using LookUp = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

}  // namespace

extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints,
                           addrinfo** found) {
  static const auto lookUp = reinterpret_cast<LookUp>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  if (host == nullptr || std::strcmp(host, "two.test") != 0) {
    return lookUp(host, service, hints, found);
  }
  const int error = lookUp("::1", service, hints, found);
  return error != 0 ? error : lookUp("127.0.0.1", service, hints, &(*found)->ai_next);
}
