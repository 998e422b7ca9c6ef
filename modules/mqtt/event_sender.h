#ifndef QOV_MODULES_MQTT_EVENT_SENDER_H
#define QOV_MODULES_MQTT_EVENT_SENDER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "modules/mqtt/back_off.h"
#include "modules/mqtt/connection.h"
#include "modules/mqtt/outbox.h"
#include "modules/mqtt/seldom.h"
#include "modules/mqtt/settings.h"
#include "modules/mqtt/topics.h"

namespace qov::mqtt {

/// Brings events to the broker by way of the outbox, which it alone uses, on a thread of its own: a
/// slow disk holds up nobody else.
///
/// Thread: accept(), refuse(), settled() and counts() from any thread; the rest from one.
/// Errors: the constructor throws CQOV_Exception. All else is logged: docs/mqtt.md.
class EventSender {
 public:
  /// Events that wait for the disk; the oldest are dropped beyond that.
  static constexpr std::size_t kMostWaiting = 10000;
  static constexpr std::size_t kMostWaitingBytes = std::size_t{8} << 20U;
  static constexpr std::size_t kMostEventBytes = std::size_t{1} << 20U;

  using Publish = std::function<bool(Outgoing&&)>;
  /// Whether the event is in the outbox, on the disk. Told once; not if this object goes before.
  using Receipt = std::function<void(bool)>;

  struct Counts {
    std::atomic<std::uint64_t> stored{0};
    std::atomic<std::uint64_t> dropped{0};  ///< for lack of room, or as they cannot be sent
  };

  /// Opens the outbox. One that is damaged is set aside.
  EventSender(const Settings& settings, const Topics& topics);
  ~EventSender();

  EventSender(const EventSender&) = delete;
  EventSender& operator=(const EventSender&) = delete;

  /// Begins to store, and to publish by `publish`, which is as Connection::publish().
  void start(Publish publish);
  /// Stores what it has, and publishes no more. Waits for the disk; if that takes long, the log
  /// tells what is not stored.
  void stop();

  /// Takes an event, whose payload is empty if it has none in the form that the settings want;
  /// never waits.
  void accept(Event&& event, Receipt receipt = {});
  /// Counts and logs an event that cannot be taken: it has `size` bytes, too many, or 0 if it
  /// cannot be written.
  void refuse(const Event& event, std::size_t size, const Receipt& receipt);
  /// As Connection::Handlers::settled.
  void settled(std::uint64_t token, int reason);

  const Counts& counts() const { return counts_; }

 private:
  using Clock = std::chrono::steady_clock;

  struct Waiting {
    Event event;
    Receipt receipt;
  };
  struct Settled {
    std::uint64_t token;
    int reason;
  };
  /// What there is to do.
  struct Work {
    std::deque<Waiting> events;
    std::vector<Settled> settled;
    bool isIdle = false;  ///< nothing has come for a while
    bool stopping = false;
  };

  void open();
  void run();
  Work takeWork();
  void settle(const std::vector<Settled>& settled);
  // These return false where the outbox has failed.
  bool store(std::deque<Waiting>&& events);
  bool commit(const std::vector<Event>& events);
  bool publishMore();
  void putBack(std::vector<Event>&& events);
  /// True if it is time to go through the outbox again for what the broker has refused.
  bool startsAgain();
  /// Whether the broker is about to take it, or has it.
  bool isUnderWay(std::uint64_t number) const;
  bool publish(StoredEvent&& stored);
  void fail(const DatabaseError& failure);
  void recover();
  void tellDropped(bool isLast);
  void tellHeldUp();
  void tellLost();

  // Constant after start().
  const unsigned int kit_;
  const Topics topics_;
  const std::string file_;
  const Outbox::Limits limits_;
  Publish publish_;

  Counts counts_;
  Seldom badEvents_;

  std::mutex lock_;
  std::condition_variable changed_;
  // Guarded by lock_.
  std::deque<Waiting> waiting_;
  std::size_t waitingBytes_ = 0;
  std::vector<Settled> settled_;
  std::size_t inHand_ = 0;  ///< how many events the thread has taken and not stored so far
  bool stopping_ = false;

  // The thread's own.
  std::unique_ptr<Outbox> outbox_;
  std::map<std::uint64_t, std::uint64_t> inFlight_;  ///< numbers by the connection's tokens
  std::uint64_t lastToken_ = 0;
  std::vector<std::uint64_t> taken_;  ///< numbers that the broker has, still in the outbox
  std::uint64_t published_ = 0;       ///< up to this number all are in flight or have been
  std::uint64_t newest_ = 0;          ///< beyond this number none was ever
  bool hasMore_ = true;               ///< there may be some beyond
  bool isRefused_ = false;            ///< some the broker does not take now; see nextTry_
  BackOff backOff_;
  Clock::time_point nextTry_;
  std::string lastFailure_;  ///< empty since the last success
  std::string toldFailure_;  ///< the one of them that was logged last; empty for none
  Seldom failures_;
  std::uint64_t droppedTold_ = 0;
  Clock::time_point droppedToldAt_;

  std::promise<void> ended_;
  std::thread thread_;
};

}  // namespace qov::mqtt

#endif
