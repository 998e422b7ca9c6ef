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
  std::string endpoint = "127.0.0.1:19001";  ///< as the link takes it
  /// Seconds for sending, for the reply's head and for what is behind it, each.
  double timeout = 30;
  /// How often a request that gets no reply is sent again, on a new connection each time.
  unsigned int retries = 1;
};

/// The library's link, which also knows why an exchange came to nothing.
///
/// Thread: one at a time.
/// Owns:   the connection and a message's room to receive in.
/// Errors: Failure; std::bad_alloc.
class EndpointLink : public CQOVLongSocket {
 public:
  /// Connects to the first address of the host that takes the connection, or throws why none does.
  explicit EndpointLink(const Target& target);

  /// One exchange: `package` becomes the reply, also when it throws because of the reply's RET.
  void exchange(CT7QPackageV3& package);

  /// The same of a request whose reply has one record.
  void exchangeForRecord(CT7QPackageV3& package);

  /// Walks a table. `take` gets each reply as it comes, the one that ends the walk too, but none
  /// that refuses the request. What it throws ends the walk. No reply is kept, not in `request`
  /// either.
  using Taker = std::function<void(const CT7QPackageV3& reply, bool isRow)>;
  void walk(CT7QPackageV3& request, const Taker& take);

  /// How often the request was sent that was sent most often.
  unsigned int mostSent() const { return mostSent_; }

  unsigned int sendMsg_i(const unsigned char* data, unsigned int length) override;
  unsigned int receiveMsg(CT7QPackageV3* package) override;

 private:
  /// Throws what `result` of an exchange or a walk means, unless it is success.
  void check(unsigned int result) const;
  [[noreturn]] void throwNoConnection() const;
  [[noreturn]] void throwNoReply() const;
  [[noreturn]] void throwTooLong() const;
  [[noreturn]] void throwBadReply() const;
  void spendRetry();
  unsigned int transmit();
  unsigned int receive(CT7QPackageV3& package);
  void takeReply(const CT7QPackageV3& reply);
  void checkEndOfWalk() const;

  const Target target_;
  std::vector<char> buffer_;

  // Of the last request: its bytes, how often it may be sent again and was sent, how far it has
  // come. In a walk each reply that is taken settles one.
  const unsigned char* request_ = nullptr;
  unsigned int length_ = 0;
  unsigned int retriesLeft_ = 0;
  unsigned int sent_ = 0;
  enum class Stage { kNotTried, kNotSent, kNotReceived, kReceived };
  Stage stage_ = Stage::kNotTried;
  unsigned short serial_ = 0;
  unsigned int replyLength_ = 0;
  DecodeFault fault_;

  // Of a walk.
  Taker take_;
  unsigned long rows_ = 0;
  std::uint64_t status_ = 0;          ///< of the last reply
  std::optional<std::uint64_t> key_;  ///< of the last row

  unsigned int mostSent_ = 0;
};

}  // namespace qov::ctl

#endif
