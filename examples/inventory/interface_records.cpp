#include <arpa/inet.h>
#include <ifaddrs.h>
#include <json/value.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <qovpub/qov_exception.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "examples/common/messages.h"
#include "examples/inventory/state_records.h"

namespace devagent {
namespace {

/// What getifaddrs() says about one interface, in several entries.
struct Interface {
  bool up = false;
  std::string hardware;
  Json::Value addresses{Json::arrayValue};
};

std::string printable(const sockaddr& address) {
  char text[INET6_ADDRSTRLEN] = {};
  if (address.sa_family == AF_INET) {
    sockaddr_in v4;
    std::memcpy(&v4, &address, sizeof v4);
    inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
  } else {
    sockaddr_in6 v6;
    std::memcpy(&v6, &address, sizeof v6);
    inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
  }
  return text;
}

std::string hardwareAddress(const sockaddr& address) {
  sockaddr_ll link;
  std::memcpy(&link, &address, sizeof link);
  return {reinterpret_cast<const char*>(link.sll_addr), link.sll_halen};
}

void takeAddress(Interface& interface, const sockaddr& address) {
  if (address.sa_family == AF_PACKET) {
    interface.hardware = hardwareAddress(address);
  } else if (address.sa_family == AF_INET || address.sa_family == AF_INET6) {
    interface.addresses.append(printable(address));
  }
}

std::map<std::string, Interface> readInterfaces() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    throw CQOV_Exception("cannot read the network interfaces");
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
  std::map<std::string, Interface> interfaces;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    Interface& interface = interfaces[entry->ifa_name];
    interface.up = (entry->ifa_flags & IFF_UP) != 0;
    if (entry->ifa_addr != nullptr) {
      takeAddress(interface, *entry->ifa_addr);
    }
  }
  return interfaces;
}

}  // namespace

void appendInterfaces(CQOV_MsgPackage& answer) {
  for (const auto& [name, interface] : readInterfaces()) {
    CTLVRecordV3& record = answer.addRecord(kInterfaceRecord);
    record.addString(kInterfaceName, name);
    record.addBool(kInterfaceUp, interface.up);
    if (!interface.hardware.empty()) {
      record.addOctets(kInterfaceHardware, interface.hardware.data(), interface.hardware.size());
    }
    record.addJson(kInterfaceAddresses, interface.addresses);
  }
}

}  // namespace devagent
