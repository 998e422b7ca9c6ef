#ifndef QOV_TOOLS_QOVCTL_ENDPOINT_LINK_H
#define QOV_TOOLS_QOVCTL_ENDPOINT_LINK_H

#include <qovpub/qov_long_socket.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/qovctl/failure.h"

namespace qov::ctl {

/// Where the endpoint is and how long it may take.
struct Target {
  std::string endpoint = "127.0.0.1:19001";  ///< host:port or [host]:port
  /// Seconds for sending, for the reply's head and for what is behind it, each.
  double timeout = 30;
};

/// The host and the port in host:port or [host]:port; nothing when it is no such text.
struct HostPort {
  std::string host;
  unsigned short port;
};
std::optional<HostPort> hostPortOf(const std::string& text);

/// Whether a reply to a walk is a row of the table and not the walk's end.
bool isRow(const CT7QPackageV3& reply);

/// The library's link, which also knows why an exchange came to nothing.
///
/// Thread: one at a time.
/// Owns:   the connection and a message's room to receive in.
/// Errors: Failure.
class EndpointLink : public CQOVLongSocket {
 public:
  /// Connects to the first address of the host that takes the connection, or throws why none does.
  explicit EndpointLink(const Target& target);

  /// One exchange: `package` becomes the reply, also when it throws because of the reply's RET.
  void exchange(CT7QPackageV3& package);

  /// The same of a request whose reply has one record.
  void exchangeForRecord(CT7QPackageV3& package);

  /// Walks a table. `take` gets each reply as it comes, the one that ends the walk too; what it
  /// throws ends the walk.
  using Taker = std::function<void(const CT7QPackageV3& reply)>;
  void walk(CT7QPackageV3& request, Taker take);

  /// Whether a request was sent once more.
  bool hasResent() const { return resent_; }

  unsigned int sendMsg_i(const unsigned char* data, unsigned int length) override;
  unsigned int receiveMsg(CT7QPackageV3* package) override;

 private:
  /// Throws what `result` of an exchange or a walk means, unless it is success.
  void check(unsigned int result) const;
  [[noreturn]] void throwNoConnection() const;
  [[noreturn]] void throwNoReply() const;
  [[noreturn]] void throwBadReply() const;
  [[noreturn]] void throwNotOneRecord() const;
  void noteWalked(const CT7QPackageV3& reply);
  void checkEndOfWalk() const;

  const Target target_;
  const ACE_Time_Value timeout_;
  std::vector<char> buffer_;

  // Of the last request.
  bool tried_ = false;
  bool sent_ = false;
  bool received_ = false;
  bool timedOut_ = false;
  unsigned short serial_ = 0;
  unsigned int replyLength_ = 0;
  // What the last reply was found to be, and how many records it has.
  unsigned int converted_ = 0;
  unsigned long records_ = 0;

  // Of a walk.
  Taker take_;
  unsigned long rows_ = 0;
  std::optional<std::uint64_t> status_;  ///< of the last reply
  std::optional<std::uint64_t> key_;     ///< of the last row

  bool resent_ = false;
};

}  // namespace qov::ctl

#endif
