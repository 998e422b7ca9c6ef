#ifndef QOV_ENDURE_LINK_LANE_H
#define QOV_ENDURE_LINK_LANE_H

#include <qovpub/qov_long_socket.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "endure/campaign.h"
#include "endure/fault_proxy.h"
#include "endure/link_fault.h"

namespace qov::endure {

/// The endpoint's table: row `key` has a text of that length, and the key itself.
inline constexpr std::uint32_t kTable = 7;
inline constexpr std::uint64_t kRows = 500;
std::size_t lengthOfRow(std::uint64_t key);

/// What all lanes count together.
struct LinkFigures {
  /// To be called before the figures are printed.
  void updateRarest();

  Campaign& campaign;
  Figure& exchanges = campaign.figure("exchanges");
  Figure& walks = campaign.figure("walks");  ///< of these
  Figure& faults = campaign.figure("faults");
  Figure& answered = campaign.figure("answered");
  Figure& failed = campaign.figure("failed");
  Figure& bad = campaign.figure("bad");
  /// Without a fault, but beyond the short time-out: the machine's business.
  Figure& slow = campaign.figure("slow");
  Figure& missed = campaign.figure("missed");          ///< the same, though the answer was in time
  Figure& longest_ms = campaign.figure("longest_ms");  ///< of one exchange
  /// How often the kind was met that was met the least.
  Figure& rarest = campaign.figure("rarest");
  std::array<Figure, kFaultKinds.size()> of_kind{};
};

/// One link with the proxy between it and the endpoint.
///
/// Thread: the one that runs it; busyFor() and now() any.
/// Owns:   the link and the proxy.
/// Errors: told to the campaign.
class LinkLane {
 public:
  /// One that is hasty has short time-outs and meets the faults that need them; another one has the
  /// time-outs of every link and meets all others.
  LinkLane(Campaign& campaign, LinkFigures& figures, std::uint16_t endpoint, bool hasty,
           std::uint64_t seed);

  /// Has the link meet faults while `goesOn`, and nothing has failed.
  void run(const std::atomic<bool>& goesOn);

  /// What it is at for how long.
  std::string now() const { return kFaultKinds.at(kind_).name; }
  std::chrono::seconds busyFor() const;

 private:
  class Link : public CQOVLongSocket {
   public:
    using CQOVLongSocket::Limits;
    Link(std::uint16_t port, const Limits& limits)
        : CQOVLongSocket(ACE_INET_Addr(port, "127.0.0.1"), limits) {}
    virtual ~Link() = default;

    unsigned int sendMsg_i(const unsigned char* data, unsigned int length) override;

    // Of this exchange's request.
    int sent = 0;                                  ///< how often it was sent
    int tries = 0;                                 ///< how often the link tried to
    std::chrono::steady_clock::time_point sentAt;  ///< the last time
  };
  struct Outcome {
    unsigned int result;
    bool answers;         ///< the package has the answer to the request
    bool asks;            ///< it has the request
    unsigned long count;  ///< of its records
    std::uint64_t rows;   ///< of a walk: those that it has, in their order
    std::chrono::milliseconds time;
  };

  void meet(const FaultKind& kind);
  void follow(const FaultKind& kind, const FaultProxy::Plan& plan);
  void followInterruption();
  void followLate();
  void followShifted();
  void followAway();

  Outcome exchange();
  bool isSlow(const Outcome& outcome);
  bool holdsWhatIsDocumented(const Outcome& outcome) const;
  void expectAnswer();
  void expectFailure();
  void expectBadReply();
  Outcome expectNoOther();
  void require(bool holds, const Outcome& outcome, const char* expected);
  std::uint64_t draw(std::uint64_t least, std::uint64_t most) {
    return std::uniform_int_distribution<std::uint64_t>(least, most)(random_);
  }

  Campaign& campaign_;
  LinkFigures& figures_;
  std::mt19937_64 random_;
  const bool hasty_;
  std::vector<std::size_t> kinds_;  ///< those that it meets
  FaultProxy proxy_;
  Link link_;
  std::uint64_t number_ = 0;  ///< of the last request
  std::uint64_t walked_ = 0;  ///< not 0: exchanges are walks through so many last rows
  std::uint64_t before_ = 0;  ///< how many of them a walk has that meets the fault
  std::atomic<std::size_t> kind_{0};
  std::atomic<std::chrono::steady_clock::time_point> since_{std::chrono::steady_clock::now()};
};

}  // namespace qov::endure

#endif
