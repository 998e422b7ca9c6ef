#include "modules/status/peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace qov::status {
namespace {

/// The supplementary groups of the peer; none where the system does not tell.
std::vector<gid_t> groupsOf(int socket) {
  socklen_t size = 0;
  // Refused for want of room, and says how much there is.
  ::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, nullptr, &size);
  std::vector<gid_t> groups(size / sizeof(gid_t));
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) != 0) {
    groups.clear();
  }
  return groups;
}

}  // namespace

bool mayAsk(int socket, const Settings& settings) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return false;
  }
  if (peer.uid == 0 || peer.uid == ::geteuid() || peer.uid == settings.owner) {
    return true;
  }
  if (!settings.group) {
    return false;
  }
  const std::vector<gid_t> groups = groupsOf(socket);
  return peer.gid == *settings.group ||
         std::find(groups.begin(), groups.end(), *settings.group) != groups.end();
}

}  // namespace qov::status
