#ifndef QOV_EXAMPLES_COLLECTOR_COLLECTION_H
#define QOV_EXAMPLES_COLLECTOR_COLLECTION_H

#include <qovpub/qov_message_package.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace devagent {

/// How far the collector has come; always that of a finished round.
struct Tally {
  std::uint64_t rounds = 0;
  std::uint64_t sent = 0;
  std::uint64_t answered = 0;
  std::uint64_t timedOut = 0;
  std::uint64_t recordsReceived = 0;
  std::uint64_t recordsSent = 0;  ///< what the inventory says
  std::uint64_t interfaces = 0;
  std::uint64_t fileSystems = 0;
};

/// What the collector keeps: the latest answer to each operation, and the tally.
///
/// Thread: any.
/// Owns:   the answers.
class Collection {
 public:
  /// Keeps `answer` in place of the one before it and returns the number of its records.
  std::uint64_t keep(std::unique_ptr<CQOV_MsgPackage> answer);

  /// Number of records of the answer kept for `operation`.
  std::uint64_t recordsOf(std::uint64_t operation) const;

  /// Appends a copy of the kHostRecord kept, or an empty one while there is none.
  void appendHost(CQOV_MsgPackage& message) const;

  void publish(const Tally& tally);
  Tally tally() const;

 private:
  mutable std::mutex lock_;
  // Guarded by lock_.
  std::map<std::uint64_t, std::unique_ptr<CQOV_MsgPackage>> answers_;
  Tally tally_;
};

}  // namespace devagent

#endif
