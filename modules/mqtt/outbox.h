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

  /// The oldest one with a number above `number`. It is cheap when that is the one of before.
  std::optional<StoredEvent> next(std::uint64_t number);

  std::uint64_t rows() const { return size_.rows; }
  std::uint64_t bytes() const { return size_.bytes; }

 private:
  static Database opened(const std::string& file);
  std::string readId() const;
  /// Of all.
  Limits readSize() const;
  void raiseNumbers();
  void remove(std::vector<std::uint64_t> numbers);
  /// Those from `first` to `last`.
  void remove(std::uint64_t first, std::uint64_t last);
  void removeOldest();

  const Limits limits_;
  Database database_;
  const std::string id_;
  Limits size_;
  bool isRaised_ = false;      ///< the numbers, since the file was opened
  std::uint64_t reached_ = 0;  ///< where next_ stands; 0 for nowhere
  Statement insert_;
  Statement measure_;
  Statement remove_;
  Statement oldest_;
  Statement next_;
};

/// Puts a damaged file aside, under the returned name, in place of the one that was put there
/// before. Throws DatabaseError.
std::string setOutboxAside(const std::string& file);

}  // namespace qov::mqtt

#endif
