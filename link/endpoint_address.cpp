#include "link/endpoint_address.h"

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_ini_operator.h>

#include <algorithm>
#include <new>
#include <string>

namespace qov {
namespace {

std::string configuredText() {
  std::string text = "127.0.0.1:19001";
  CQOV_Ini_Operator ini;
  if (ini.open(nullptr) == 0) {
    ini.getConfigItem("MMT", "MMT_ADDR", text);
  }
  return text;
}

}  // namespace

ACE_INET_Addr configuredEndpoint(CQOVDebugKitGuard& guard) try {
  const std::string text = configuredText();
  ACE_INET_Addr address;
  // ACE takes an empty text for an address, with port 0.
  if (address.string_to_addr(text.c_str()) != 0 || address.get_port_number() == 0) {
    guard.error(65610, __FUNCTION__, __LINE__, "Invalid socket server address, MMT_ADDR is %s",
                text.c_str());
    return ACE_INET_Addr();
  }
  return address;
} catch (const std::bad_alloc&) {
  return ACE_INET_Addr();
}

AddressText textOf(const ACE_INET_Addr& address) {
  // ACE writes nothing at all into a buffer that is too short, as 33 bytes can be.
  std::array<char, 64> whole{};
  address.addr_to_string(whole.data(), whole.size(), 1);
  AddressText text{};
  std::copy_n(whole.begin(), text.size() - 1, text.begin());
  return text;
}

}  // namespace qov
