#ifndef QOV_MODULES_STATUS_LISTENING_SOCKET_H
#define QOV_MODULES_STATUS_LISTENING_SOCKET_H

#include <sys/types.h>

#include <string>
#include <string_view>

#include "modules/status/descriptor.h"
#include "modules/status/settings.h"

namespace qov::status {

/// A Unix stream socket that listens and never blocks.
///
/// Its file appears in one step, with owner and mode, when it already listens. It takes the place
/// of one that nobody listens at any more; one that somebody listens at, and a file of another
/// kind, stay. Of several processes that begin at once one has the socket: who locks the file
/// beside it, while the others are refused.
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
  std::string withEnding(std::string_view ending) const;
  [[noreturn]] void fail(const std::string& why) const;
  void check(bool done) const;
  void makeFolder(const std::string& folder) const;
  /// The lock is given back when the descriptor is closed.
  Descriptor lockFile(const std::string& file) const;
  void refuseOther() const;
  void bindAs(const std::string& file, const Settings& settings);

  const std::string path_;
  const Descriptor socket_;
  dev_t device_ = 0;  ///< with inode_: the file that it has made
  ino_t inode_ = 0;
};

}  // namespace qov::status

#endif
