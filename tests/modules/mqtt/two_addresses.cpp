// In this program the host "two.test" has an address of IPv6, where nobody listens, and 127.0.0.1.
#include <dlfcn.h>
#include <netdb.h>

#include <cstring>

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** found) {
  static const auto next =
      reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  if (node == nullptr || std::strcmp(node, "two.test") != 0) {
    return next(node, service, hints, found);
  }
  if (const int failure = next("::1", service, hints, found); failure != 0) {
    return failure;
  }
  addrinfo* last = *found;
  while (last->ai_next != nullptr) {
    last = last->ai_next;
  }
  // freeaddrinfo() takes lists that are put together.
  return next("127.0.0.1", service, hints, &last->ai_next);
}
