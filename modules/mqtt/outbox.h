#ifndef QOV_MODULES_MQTT_OUTBOX_H
#define QOV_MODULES_MQTT_OUTBOX_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "modules/mqtt/database.h"

namespace qov::mqtt {

/// A message of a module for whoever listens at the broker.
struct Event {
  unsigned int module = 0;  ///< that has sent it
  std::uint64_t opc = 0;
  bool isText = true;  ///< JSON; else the message's bytes
  std::string payload;
};

struct StoredEvent {
  std::uint64_t number = 0;  ///< never used twice in one file
  Event event;
};

/// The events that the broker has not acknowledged, in a file, the oldest first.
///
/// Thread: one at a time.
/// Errors: every operation throws DatabaseError; the file is as it was then.
class Outbox {
 public:
  /// What an event takes beside its payload, about.
  static constexpr std::uint64_t kRowBytes = 64;
  /// So many numbers are left out after each opening.
  static constexpr std::uint64_t kNumberStep = std::uint64_t{1} << 20U;

  struct Limits {
    std::uint64_t rows;
    std::uint64_t bytes;  ///< of payloads, with kRowBytes for each
  };

  /// Opens the file, or makes it. A damaged one is refused.
  Outbox(const std::string& file, const Limits& limits);

  /// Made at random with the file.
  const std::string& id() const { return id_; }

  /// Stores `events`, of which it drops the oldest beyond the limits, and removes `taken`, all or
  /// nothing. Returns how many it has dropped.
  std::uint64_t commit(const std::vector<Event>& events, const std::vector<std::uint64_t>& taken);

  /// The oldest one with a number above `number`.
  std::optional<StoredEvent> next(std::uint64_t number);

  std::uint64_t rows() const { return size_.rows; }
  std::uint64_t bytes() const { return size_.bytes; }

 private:
  static Database opened(const std::string& file);
  std::string readId() const;
  Limits readSize() const;
  void raiseNumbers();
  /// Runs a statement that removes rows and returns the length of each payload.
  std::uint64_t remove(Statement& statement);

  const Limits limits_;
  Database database_;
  const std::string id_;
  Limits size_;
  bool isRaised_ = false;  ///< the numbers, since the file was opened
  Statement insert_;
  Statement remove_;
  Statement removeOldest_;
  Statement next_;
};

/// Puts a damaged file aside, under the returned name, in place of the one that was put there
/// before. Throws DatabaseError.
std::string setOutboxAside(const std::string& file);

}  // namespace qov::mqtt

#endif
