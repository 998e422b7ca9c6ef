#include "modules/mqtt/event_sender.h"

#include <mqtt_protocol.h>
#include <pthread.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_log.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "modules/mqtt/log_ids.h"

namespace qov::mqtt {
namespace {

/// Handed to the connection at a time: enough for it never to run dry.
constexpr std::size_t kMostInFlight = 256;
/// Removed from the outbox together. After a crash that many may be sent again.
constexpr std::size_t kMostTaken = 256;
/// So many acknowledgements are worth waking up for; fewer wait for kIdle.
constexpr std::size_t kMostSettled = 64;
constexpr std::chrono::milliseconds kIdle{200};
constexpr std::chrono::seconds kRetry{1};
constexpr std::chrono::seconds kLongestRetry{60};
constexpr std::chrono::seconds kStopPatience{5};
/// Also the longest wait of the thread, so that the last ones are told, too.
constexpr std::chrono::seconds kBetweenDropRecords{60};

/// Whether the broker will never take such a message.
bool isForGood(int reason) {
  return reason == MQTT_RC_TOPIC_NAME_INVALID || reason == MQTT_RC_PACKET_TOO_LARGE ||
         reason == MQTT_RC_PAYLOAD_FORMAT_INVALID;
}

}  // namespace

EventSender::EventSender(const Settings& settings, const Topics& topics)
    : kit_(settings.moduleId),
      topics_(topics),
      file_(settings.outbox),
      limits_{settings.outboxRows, settings.outboxBytes},
      backOff_(kLongestRetry) {
  try {
    open();
  } catch (const DatabaseError& failure) {
    throw CQOV_Exception("Failed to open the outbox of MQTT: " + file_ + ": " + failure.what());
  }
}

EventSender::~EventSender() {
  stop();
  // What the connection has brought to the broker at its own end need not be sent again.
  settle(settled_);
  if (!taken_.empty()) {
    commit({});
  }
}

void EventSender::open() {
  inFlight_.clear();
  taken_.clear();
  published_ = 0;
  newest_ = 0;
  hasMore_ = true;
  isRefused_ = false;
  std::error_code failure;
  std::filesystem::create_directories(std::filesystem::path(file_).parent_path(), failure);
  if (failure) {
    throw DatabaseError(SQLITE_CANTOPEN, "its folder cannot be made: " + failure.message());
  }
  try {
    outbox_ = std::make_unique<Outbox>(file_, limits_);
  } catch (const DatabaseError& error) {
    if (!error.isCorrupt()) {
      throw;
    }
    const std::string aside = setOutboxAside(file_);
    outbox_ = std::make_unique<Outbox>(file_, limits_);
    QOV_GUARD(guard, kit_);
    QOV_ERROR(guard, log_id::kOutboxSetAside,
              "The outbox %s is damaged: %s; it is now %s, and what it held is not sent",
              file_.c_str(), error.what(), aside.c_str());
  }
}

void EventSender::start(Publish publish) {
  publish_ = std::move(publish);
  thread_ = std::thread([this] {
    ::pthread_setname_np(::pthread_self(), ("m" + std::to_string(kit_) + "-outbox").c_str());
    run();
    ended_.set_value();
  });
}

void EventSender::stop() {
  if (!thread_.joinable()) {
    return;
  }
  {
    const std::lock_guard lock(lock_);
    stopping_ = true;
  }
  changed_.notify_one();
  if (ended_.get_future().wait_for(kStopPatience) != std::future_status::ready) {
    tellHeldUp();
  }
  thread_.join();
}

/// The library ends a process whose stop takes too long. Nothing else ends a call that waits for
/// the disk.
void EventSender::tellHeldUp() {
  std::size_t count = 0;
  {
    const std::lock_guard lock(lock_);
    count = waiting_.size() + inHand_;
  }
  QOV_GUARD(guard, kit_);
  QOV_WARN(guard, log_id::kOutboxHoldsUp,
           "The outbox %s holds up the stop: its disk has not answered for %lld s, and %zu events "
           "are not stored",
           file_.c_str(), static_cast<long long>(kStopPatience.count()), count);
}

/// What waits at the end, as the outbox has failed.
void EventSender::tellLost() {
  std::size_t count = 0;
  {
    const std::lock_guard lock(lock_);
    count = waiting_.size();
  }
  if (count > 0) {
    counts_.dropped += count;
    QOV_GUARD(guard, kit_);
    QOV_ERROR(guard, log_id::kEventsLost,
              "%zu events are lost at the stop: the outbox %s could not be used: %s", count,
              file_.c_str(), lastFailure_.c_str());
  }
}

void EventSender::accept(Event&& event, Receipt receipt) {
  const std::size_t size = event.payload.size();
  if (size == 0 || size > kMostEventBytes) {
    refuse(event, size, receipt);
    return;
  }
  std::deque<Waiting> dropped;
  {
    const std::lock_guard lock(lock_);
    waiting_.push_back({std::move(event), std::move(receipt)});
    waitingBytes_ += size;
    while (waiting_.size() > kMostWaiting || waitingBytes_ > kMostWaitingBytes) {
      waitingBytes_ -= waiting_.front().event.payload.size();
      dropped.push_back(std::move(waiting_.front()));
      waiting_.pop_front();
    }
  }
  changed_.notify_one();
  counts_.dropped += dropped.size();
  for (const Waiting& one : dropped) {
    if (one.receipt) {
      one.receipt(false);
    }
  }
}

void EventSender::refuse(const Event& event, std::size_t size, const Receipt& receipt) {
  ++counts_.dropped;
  if (const std::uint64_t count = badEvents_.add(); count > 0) {
    const std::string why = size == 0 ? std::string("it cannot be written in bytes")
                                      : "it has " + std::to_string(size) + " bytes, more than " +
                                            std::to_string(kMostEventBytes);
    QOV_GUARD(guard, kit_);
    QOV_WARN(guard, log_id::kEventRefused,
             "Failed to take an event of module %u, operation %llu: %s; %llu so far", event.module,
             static_cast<unsigned long long>(event.opc), why.c_str(),
             static_cast<unsigned long long>(count));
  }
  if (receipt) {
    receipt(false);
  }
}

void EventSender::settled(std::uint64_t token, int reason) {
  bool areEnough = false;
  {
    const std::lock_guard lock(lock_);
    settled_.push_back({token, reason});
    areEnough = settled_.size() == 1 || settled_.size() == kMostSettled;
  }
  if (areEnough) {
    changed_.notify_one();
  }
}

void EventSender::run() {
  publishMore();
  for (bool stopping = false; !stopping;) {
    Work work = takeWork();
    stopping = work.stopping;
    settle(work.settled);
    const bool removes = taken_.size() >= kMostTaken || work.isIdle || stopping;
    bool works = true;
    if (!work.events.empty() || (removes && !taken_.empty()) || !lastFailure_.empty()) {
      works = store(std::move(work.events));
    }
    if (!stopping) {
      works = publishMore() && works;
    }
    if (works) {
      recover();
    }
    tellDropped(stopping);
  }
  tellLost();
}

/// Waits until there is some, or until what has failed can be tried again.
EventSender::Work EventSender::takeWork() {
  const bool isFailing = !lastFailure_.empty();
  std::unique_lock lock(lock_);
  // The first acknowledgement begins the wait for others.
  const std::size_t enough = taken_.empty() ? 1 : kMostSettled;
  const auto hasWork = [&] {
    return stopping_ || settled_.size() >= enough || (!waiting_.empty() && !isFailing);
  };
  std::chrono::milliseconds longest = kBetweenDropRecords;
  if (isFailing || isRefused_ || (hasMore_ && inFlight_.size() < kMostInFlight)) {
    longest = kRetry;
  } else if (!taken_.empty()) {
    longest = kIdle;
  }
  const bool isIdle = !changed_.wait_for(lock, longest, hasWork);
  waitingBytes_ = 0;
  inHand_ = waiting_.size();
  return {std::exchange(waiting_, {}), std::exchange(settled_, {}), isIdle, stopping_};
}

void EventSender::settle(const std::vector<Settled>& settled) {
  for (const Settled& one : settled) {
    const auto found = inFlight_.find(one.token);
    if (found == inFlight_.end()) {
      continue;  // of an outbox that is gone
    }
    if (one.reason >= Connection::kFirstRefusal && !isForGood(one.reason)) {
      // In time the broker may take it. Those behind it need not wait for that.
      if (!std::exchange(isRefused_, true)) {
        nextTry_ = Clock::now() + backOff_.next();
      }
    } else {
      taken_.push_back(found->second);
      counts_.dropped += one.reason >= Connection::kFirstRefusal ? 1 : 0;
    }
    inFlight_.erase(found);
  }
}

bool EventSender::store(std::deque<Waiting>&& events) {
  std::vector<Event> stored;
  stored.reserve(events.size());
  for (Waiting& one : events) {
    stored.push_back(std::move(one.event));
  }
  const bool done = commit(stored);
  // A full outbox keeps the newest.
  const std::size_t first =
      done && outbox_->rows() < events.size() ? events.size() - outbox_->rows() : 0;
  std::vector<Event> again;
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (events[i].receipt) {
      events[i].receipt(done && i >= first);
    } else if (!done) {
      again.push_back(std::move(stored[i]));
    }
  }
  putBack(std::move(again));
  return done;
}

bool EventSender::commit(const std::vector<Event>& events) {
  try {
    if (outbox_ == nullptr) {
      open();
    }
    counts_.dropped += outbox_->commit(events, taken_);
  } catch (const DatabaseError& failure) {
    fail(failure);
    return false;
  }
  taken_.clear();
  hasMore_ = hasMore_ || !events.empty();
  counts_.stored += events.size();
  return true;
}

/// What could not be stored is the oldest of what waits. The rest is done with.
void EventSender::putBack(std::vector<Event>&& events) {
  const std::lock_guard lock(lock_);
  inHand_ = 0;
  for (auto event = events.rbegin(); event != events.rend(); ++event) {
    waitingBytes_ += event->payload.size();
    waiting_.push_front({std::move(*event), {}});
  }
}

void EventSender::fail(const DatabaseError& failure) {
  if (failure.isCorrupt()) {
    outbox_.reset();  // to be opened anew, which sets it aside
  }
  lastFailure_ = failure.what();
  // A disk that fails and recovers in turn must not fill itself with that.
  if (lastFailure_ != toldFailure_ && failures_.add() > 0) {
    QOV_GUARD(guard, kit_);
    QOV_ERROR(guard, log_id::kOutboxFails,
              "Failed to use the outbox %s: %s; events wait in memory, up to %zu", file_.c_str(),
              failure.what(), kMostWaiting);
    toldFailure_ = lastFailure_;
  }
}

/// All that is to be done has been done without a failure.
void EventSender::recover() {
  lastFailure_.clear();
  if (!toldFailure_.empty()) {
    QOV_GUARD(guard, kit_);
    QOV_INFO(guard, log_id::kOutboxGoesOn, "The outbox %s takes events again", file_.c_str());
    toldFailure_.clear();
  }
}

bool EventSender::publishMore() {
  if (outbox_ == nullptr) {
    return false;
  }
  if (!hasMore_ && inFlight_.empty() && !isRefused_) {
    backOff_.reset();
  }
  try {
    while (inFlight_.size() < kMostInFlight && (hasMore_ || startsAgain())) {
      auto stored = outbox_->next(published_);
      hasMore_ = stored.has_value();
      if (stored) {
        const std::uint64_t number = stored->number;
        if (!isUnderWay(number) && !publish(std::move(*stored))) {
          return true;
        }
        published_ = number;
        newest_ = std::max(newest_, number);
      }
    }
    return true;
  } catch (const DatabaseError& failure) {
    fail(failure);
    return false;
  }
}

bool EventSender::startsAgain() {
  if (!isRefused_ || Clock::now() < nextTry_) {
    return false;
  }
  isRefused_ = false;
  published_ = 0;
  hasMore_ = true;
  return true;
}

bool EventSender::isUnderWay(std::uint64_t number) const {
  if (number > newest_) {
    return false;
  }
  return std::find(taken_.begin(), taken_.end(), number) != taken_.end() ||
         std::any_of(inFlight_.begin(), inFlight_.end(),
                     [number](const auto& one) { return one.second == number; });
}

bool EventSender::publish(StoredEvent&& stored) {
  Event& event = stored.event;
  Outgoing message;
  message.topic = topics_.event(event.module, event.opc);
  message.payload = std::move(event.payload);
  message.contentType = event.isText ? "application/json" : "application/vnd.qov.message";
  message.isText = event.isText;
  message.properties = {{"number", std::to_string(stored.number)}, {"outbox", outbox_->id()}};
  message.number = ++lastToken_;
  if (!publish_(std::move(message))) {
    return false;
  }
  inFlight_.emplace(lastToken_, stored.number);
  return true;
}

void EventSender::tellDropped(bool isLast) {
  const std::uint64_t dropped = counts_.dropped;
  const bool isFirst = droppedTold_ == 0;
  if (dropped == droppedTold_ ||
      (!isFirst && !isLast && Clock::now() < droppedToldAt_ + kBetweenDropRecords)) {
    return;
  }
  QOV_GUARD(guard, kit_);
  QOV_WARN(guard, log_id::kEventsDropped,
           "Events are dropped, %llu since the start: the outbox %s is full or too slow, or they "
           "cannot be sent",
           static_cast<unsigned long long>(dropped), file_.c_str());
  droppedTold_ = dropped;
  droppedToldAt_ = Clock::now();
}

}  // namespace qov::mqtt
