#ifndef QOV_MODULES_STATUS_LISTENING_SOCKET_H
#define QOV_MODULES_STATUS_LISTENING_SOCKET_H

#include <sys/types.h>

#include <string>

#include "modules/status/descriptor.h"
#include "modules/status/settings.h"

namespace qov::status {

/// A Unix stream socket that listens and never blocks.
///
/// Its file appears in one step, with owner and mode, when it already listens. One that nobody
/// listens at any more is removed before; one that somebody listens at, and a file of another kind,
/// stay. Of several processes that begin at once one has the socket.
///
/// Owns:   the socket and its file, which goes with it unless somebody has replaced it.
/// Errors: the constructor throws CQOV_Exception.
class ListeningSocket {
 public:
  /// Makes the folder of the file, too, if that is missing (mode 0755).
  explicit ListeningSocket(const Settings& settings);
  ~ListeningSocket();
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;

  int descriptor() const { return socket_.get(); }

 private:
  [[noreturn]] void fail(const std::string& why) const;
  void check(bool done) const;
  void makeFolder(const std::string& folder) const;
  void removeStale() const;
  void bindAs(const std::string& file, const Settings& settings);

  const std::string path_;
  const Descriptor socket_;
  dev_t device_ = 0;  ///< with inode_: the file that it has made
  ino_t inode_ = 0;
};

}  // namespace qov::status

#endif
