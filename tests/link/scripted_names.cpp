#include "tests/link/scripted_names.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>

#include <map>

namespace qov::test {
namespace {

std::map<std::string, std::vector<std::string>> names;
int failure = EAI_NONAME;
int asked = 0;

bool isNumeric(const char* host) {
  unsigned char bytes[sizeof(in6_addr)];
  return ::inet_pton(AF_INET, host, bytes) == 1 || ::inet_pton(AF_INET6, host, bytes) == 1;
}

int real(const char* host, const char* service, const addrinfo* hints, addrinfo** found) {
  static const auto next =
      reinterpret_cast<decltype(&::getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return next(host, service, hints, found);
}

}  // namespace

void ScriptedNames::forget() {
  names.clear();
  failure = EAI_NONAME;
  asked = 0;
}

void ScriptedNames::know(const std::string& name, std::vector<std::string> addresses) {
  names[name] = std::move(addresses);
}

void ScriptedNames::failWith(int error) {
  failure = error;
}

int ScriptedNames::lookUps() {
  return asked;
}

}  // namespace qov::test

/// In place of the system's, for the libraries, too.
extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints,
                           addrinfo** found) {
  using namespace qov::test;
  if (host == nullptr || isNumeric(host)) {
    return real(host, service, hints, found);
  }
  ++asked;
  const auto known = names.find(host);
  if (known == names.end()) {
    return failure;
  }
  addrinfo** end = found;
  for (const std::string& address : known->second) {
    if (const int error = real(address.c_str(), service, hints, end); error != 0) {
      return error;
    }
    end = &(*end)->ai_next;
  }
  return 0;
}
