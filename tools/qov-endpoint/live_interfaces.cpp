#include <ifaddrs.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "tools/qov-endpoint/live_tables.h"
#include "tools/qov-endpoint/proc_file.h"

namespace qov::endpoint {
namespace {

struct Traffic {
  std::uint64_t received = 0;
  std::uint64_t sent = 0;
};

/// From /proc/net/dev: unlike what comes with the addresses, its counters have 64 bits.
std::map<std::string, Traffic> readTraffic() {
  std::map<std::string, Traffic> traffic;
  std::istringstream lines(readProcFile("/proc/net/dev"));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(':');
    const std::size_t start = line.find_first_not_of(' ');
    if (colon == std::string::npos) {
      continue;
    }
    std::istringstream fields(line.substr(colon + 1));
    Traffic read;
    std::uint64_t skipped = 0;
    fields >> read.received;
    for (int field = 0; field < 7; ++field) {
      fields >> skipped;
    }
    if (fields >> read.sent) {
      traffic[line.substr(start, colon - start)] = read;
    }
  }
  return traffic;
}

class MtuReader {
 public:
  MtuReader() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~MtuReader() { ::close(socket_); }
  MtuReader(const MtuReader&) = delete;
  MtuReader& operator=(const MtuReader&) = delete;

  /// 0 when there is no such interface any more.
  std::uint64_t read(const char* name) const {
    ifreq request = {};
    std::strncpy(request.ifr_name, name, sizeof request.ifr_name - 1);
    return ::ioctl(socket_, SIOCGIFMTU, &request) == 0 ? static_cast<std::uint64_t>(request.ifr_mtu)
                                                       : 0;
  }

 private:
  const int socket_;
};

/// Empty when there is none; the zeros of the loopback interface are none.
std::string hardwareAddress(const sockaddr_ll& link) {
  const std::size_t length = std::min<std::size_t>(link.sll_halen, sizeof link.sll_addr);
  const std::string address(reinterpret_cast<const char*>(link.sll_addr), length);
  return address.find_first_not_of('\0') == std::string::npos ? std::string() : address;
}

void fill(CTLVRecordV3& row, const ifaddrs& entry, const sockaddr_ll& link, std::uint64_t mtu,
          const Traffic& traffic) {
  row.addString(kInterfaceName, entry.ifa_name);
  row.addBool(kInterfaceUp, (entry.ifa_flags & IFF_UP) != 0);
  const std::string hardware = hardwareAddress(link);
  if (!hardware.empty()) {
    row.addOctets(kInterfaceHardware, hardware.data(), hardware.size());
  }
  row.addUnsigned(kInterfaceMtu, mtu);
  row.addUnsigned(kReceivedBytes, traffic.received);
  row.addUnsigned(kSentBytes, traffic.sent);
}

}  // namespace

Rows readInterfaces() {
  Rows rows;
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) {
    return rows;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, ::freeifaddrs);
  const auto traffic = readTraffic();
  const MtuReader mtus;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    // Each interface has one entry of this kind, and others for its addresses.
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET) {
      continue;
    }
    sockaddr_ll link;
    std::memcpy(&link, entry->ifa_addr, sizeof link);
    const auto found = traffic.find(entry->ifa_name);
    const auto [row, fresh] = rows.try_emplace(static_cast<std::uint64_t>(link.sll_ifindex));
    if (fresh) {
      fill(row->second, *entry, link, mtus.read(entry->ifa_name),
           found == traffic.end() ? Traffic() : found->second);
    }
  }
  return rows;
}

}  // namespace qov::endpoint
