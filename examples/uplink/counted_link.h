#ifndef QOV_EXAMPLES_UPLINK_COUNTED_LINK_H
#define QOV_EXAMPLES_UPLINK_COUNTED_LINK_H

#include <qovpub/qov_long_socket.h>

#include <cstdint>

namespace devagent {

/// What has gone over a link.
struct LinkTally {
  std::uint64_t exchanges = 0;   ///< begun
  std::uint64_t answered = 0;    ///< of these: an answer was received
  std::uint64_t resends = 0;     ///< requests that were sent once more
  std::uint64_t reconnects = 0;  ///< answers that were the first after a failure
};

/// The link to the management endpoint, with a count of what it does.
///
/// Thread: one, but for interrupt().
class CountedLink final : public CQOVLongSocket {
 public:
  unsigned int sendMsg_i(const unsigned char* data, unsigned int length) override;
  unsigned int receiveMsg(CT7QPackageV3* package) override;

  const LinkTally& tally() const { return tally_; }

 private:
  LinkTally tally_;
  bool failed_ = false;
};

}  // namespace devagent

#endif
