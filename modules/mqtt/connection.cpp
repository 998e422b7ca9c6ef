#include "modules/mqtt/connection.h"

#include <mqtt_protocol.h>
#include <poll.h>
#include <pthread.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_log.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>
#include <thread>

#include "modules/mqtt/back_off.h"
#include "modules/mqtt/cause.h"
#include "modules/mqtt/client.h"
#include "modules/mqtt/log_ids.h"
#include "modules/mqtt/seldom.h"
#include "modules/mqtt/settings.h"

namespace qov::mqtt {
namespace {

using Clock = std::chrono::steady_clock;

/// The broker answers in this time, or the connection is given up.
constexpr std::chrono::seconds kPatience{30};
constexpr std::chrono::seconds kPatienceAtEnd{2};
/// libmosquitto's keep-alive, and a changed Presence, wait for it.
constexpr std::chrono::seconds kTurn{1};
/// As many as may be unacknowledged, and as many again to go on with.
constexpr std::size_t kMostGiven = 128;
/// So many connections in turn may end with a packet that cannot be read. It waits in the session
/// then, and the broker would send it again on every one.
constexpr int kMostBadPackets = 3;

/// Ends a poll().
class Bell {
 public:
  Bell() : descriptor_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (descriptor_ < 0) {
      throw CQOV_Exception("Failed to make the event of the MQTT thread: " +
                           std::generic_category().message(errno));
    }
  }
  ~Bell() { ::close(descriptor_); }
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;

  void ring() const { ::eventfd_write(descriptor_, 1); }
  void hush() const {
    eventfd_t count = 0;
    ::eventfd_read(descriptor_, &count);
  }
  int descriptor() const { return descriptor_; }

 private:
  const int descriptor_;
};

}  // namespace

/// The connection's thread and what it works with.
class Connection::Loop : private Client::Listener {
 public:
  Loop(const Settings& settings, const std::string& clientId, Presence presence, Handlers handlers,
       const std::vector<std::string>& filters)
      : kit_(settings.moduleId),
        broker_(settings.host + ":" + std::to_string(settings.port)),
        clientId_(clientId),
        presence_(std::move(presence)),
        handlers_(std::move(handlers)),
        filters_(filters),
        client_(settings, clientId, *this),
        backOff_(settings.longestWait),
        thread_([this] {
          ::pthread_setname_np(::pthread_self(), ("m" + std::to_string(kit_) + "-mqtt").c_str());
          run();
        }) {}

  ~Loop() override {
    {
      const std::lock_guard lock(lock_);
      stopping_ = true;
    }
    bell_.ring();
    thread_.join();
  }

  bool publish(Outgoing&& message) {
    bool isAwaited = false;
    {
      const std::lock_guard lock(lock_);
      const std::size_t pending = message.atMostOnce ? answers_.size() : pending_;
      std::size_t& bytes = message.atMostOnce ? answerBytes_ : pendingBytes_;
      if (pending >= kMostPending || bytes + message.size() > kMostPendingBytes) {
        ++counts_.noRoom;
        return false;
      }
      pending_ += message.atMostOnce ? 0 : 1;
      bytes += message.size();
      std::deque<Outgoing>& queue = message.atMostOnce ? answers_ : queue_;
      // What stands before it has rung, or waits for acknowledgements or the socket.
      isAwaited = queue.empty();
      queue.push_back(std::move(message));
    }
    if (isAwaited) {
      bell_.ring();
    }
    return true;
  }

  bool isOnline() const { return isOnline_; }
  const Counts& counts() const { return counts_; }

 private:
  enum class State { kWaiting, kConnecting, kOnline };

  /// A message that the broker has not acknowledged.
  struct Given {
    int id;  ///< libmosquitto's
    Outgoing message;
    bool isPresence;
  };

  void run() {
    while (!isStopping()) {
      if (state_ == State::kWaiting && Clock::now() >= nextTry_) {
        connect();
      }
      if (state_ == State::kOnline) {
        publishPresence();
        publishAnswers();
        publishQueue();
      }
      wait(isStopping() ? Clock::now() : nextTurn());
    }
    sayGoodbye();
  }

  bool isStopping() {
    const std::lock_guard lock(lock_);
    return stopping_;
  }

  Clock::time_point nextTurn() const {
    return state_ == State::kWaiting ? nextTry_ : Clock::now() + kTurn;
  }

  /// For the socket, the bell or the time; and serves the socket.
  void wait(Clock::time_point until) {
    const auto span = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    // That of a connection that has failed may still be open, and nobody serves it.
    const int socket = state_ == State::kWaiting ? -1 : client_.socket();
    if (socket >= 0) {
      client_.flush();
    }
    const bool holdsBack = manyAnswersWait();
    const bool hasUnread = state_ != State::kWaiting && !holdsBack && client_.hasUnread();
    const short reading = holdsBack ? 0 : POLLIN;
    const short writing = socket >= 0 && client_.wantsToWrite() ? POLLOUT : 0;
    pollfd descriptors[]{{bell_.descriptor(), POLLIN, 0},
                         {socket, static_cast<short>(reading | writing), 0}};
    ::poll(descriptors, 2, span > 0 && !hasUnread ? static_cast<int>(span) : 0);
    if (descriptors[0].revents != 0) {
      bell_.hush();
    }
    if (state_ != State::kWaiting) {
      const short found = descriptors[1].revents;
      // A broker that takes nothing may wait until what it has sent is read.
      const bool isStuck = holdsBack && Clock::now() >= lastMove_ + kTurn;
      if (found != 0 || isStuck) {
        lastMove_ = Clock::now();
      }
      serve((found & ~POLLOUT) != 0 || hasUnread || isStuck, (found & POLLOUT) != 0);
    }
  }

  bool manyAnswersWait() {
    const std::lock_guard lock(lock_);
    return state_ == State::kOnline &&
           (answers_.size() >= kMostPending / 2 || answerBytes_ >= kMostPendingBytes / 2);
  }

  void serve(bool canRead, bool canWrite) {
    auto cause = client_.serve(canRead, canWrite);
    if (state_ == State::kConnecting && !cause && Clock::now() > answerUntil_) {
      client_.disconnect(false);
      cause = Cause{"no answer within " + std::to_string(kPatience.count()) + " s",
                    "look whether an MQTT broker listens there, with or without TLS as Tls says"};
    }
    if (cause || client_.socket() < 0) {
      fail(reason_ ? causeOfReason(*reason_)
                   : cause.value_or(Cause{"it has been closed", "look into the broker's log"}));
    }
  }

  void connect() {
    state_ = State::kConnecting;
    answerUntil_ = Clock::now() + kPatience;
    reason_.reset();
    if (const auto cause = client_.connect(presence_.topic, presence_.offline(), forgets_); cause) {
      fail(*cause);
    }
  }

  /// The connection did not come about, or has broken.
  void fail(const Cause& cause) {
    QOV_GUARD(guard, kit_);
    const bool wasOnline = state_ == State::kOnline;
    state_ = State::kWaiting;
    takeBack();
    if (wasOnline) {
      isOnline_ = false;
      handlers_.online(false);
      QOV_WARN(guard, log_id::kConnectionLost, "Lost the connection to the broker %s: %s",
               broker_.c_str(), cause.text().c_str());
      badPackets_ = cause.isBadPacket ? badPackets_ + 1 : 0;
      if (badPackets_ == kMostBadPackets) {
        forgets_ = true;
        QOV_WARN(
            guard, log_id::kSessionGivenUp,
            "The broker %s has sent what cannot be read on %d connections in turn: its session "
            "is begun anew, and requests that wait there are lost",
            broker_.c_str(), badPackets_);
      }
      // One that breaks again and again is no success.
      if (Clock::now() - onlineSince_ > lastWait_) {
        backOff_.reset();
      }
    } else if (toldFailures_.insert(cause.text()).second) {
      QOV_WARN(guard, log_id::kNotConnected, "Failed to connect to the broker %s: %s",
               broker_.c_str(), cause.text().c_str());
    }
    lastWait_ = backOff_.next();
    nextTry_ = Clock::now() + lastWait_;
  }

  /// What the broker has not acknowledged goes out first on the next connection; the presence is
  /// made anew there.
  void takeBack() {
    const std::lock_guard lock(lock_);
    for (auto given = given_.rbegin(); given != given_.rend(); ++given) {
      if (given->isPresence) {
        --pending_;
      } else {
        queue_.push_front(std::move(given->message));
      }
    }
    given_.clear();
  }

  void onAnswer(int reason, bool hadSession, bool retains) override {
    if (reason != 0) {
      reason_ = reason;
      return;
    }
    QOV_GUARD(guard, kit_);
    QOV_INFO(guard, log_id::kConnected, "Connected to the broker %s as %s, %s session",
             broker_.c_str(), clientId_.c_str(), hadSession ? "its former" : "a new");
    // libmosquitto publishes the status without it, and says nothing.
    if (!retains && !std::exchange(retainTold_, true)) {
      tellRefusal(presence_.topic, MQTT_RC_RETAIN_NOT_SUPPORTED);
    }
    if (std::exchange(forgets_, false)) {
      badPackets_ = 0;
    }
    state_ = State::kOnline;
    onlineSince_ = Clock::now();
    toldFailures_.clear();
    document_.clear();
    nextPresence_ = onlineSince_;
    subscriptions_.clear();
    for (const std::string& filter : filters_) {
      int id = 0;
      if (const auto cause = client_.subscribe(filter, id); cause) {
        tellSubscription(filter, *cause);
      }
      subscriptions_.emplace(id, filter);
    }
    ++counts_.connections;
    isOnline_ = true;
    handlers_.online(true);
  }

  void onEnd(int reason) override { reason_ = reason; }

  void onSubscribed(int id, int reason) override {
    if (reason >= kFirstRefusal) {
      tellSubscription(subscriptions_[id], causeOfReason(reason));
    }
  }

  void tellSubscription(const std::string& filter, const Cause& cause) {
    QOV_GUARD(guard, kit_);
    QOV_WARN(guard, log_id::kSubscriptionRefused, "The broker %s refuses a subscription: %s: %s",
             broker_.c_str(), filter.c_str(), cause.text().c_str());
  }

  void onReceived(Incoming&& message) override {
    ++counts_.received;
    handlers_.received(std::move(message));
    if (manyAnswersWait()) {
      // libmosquitto would read on while TLS holds something. It takes this for the end of it.
      errno = EAGAIN;
    }
  }

  void onPublished(int id, int reason) override {
    const auto found = std::find_if(given_.begin(), given_.end(),
                                    [id](const Given& given) { return given.id == id; });
    if (found == given_.end()) {
      return;
    }
    const Given given = std::move(*found);
    const Outgoing& message = given.message;
    given_.erase(found);
    if (reason >= kFirstRefusal) {
      tellRefusal(message.topic, reason);
    }
    settle(message, given.isPresence ? 0 : message.size(), reason);
  }

  void settle(const Outgoing& message, std::size_t bytes, int reason) {
    ++(reason >= kFirstRefusal ? counts_.refused : counts_.published);
    if (!message.atMostOnce) {
      const std::lock_guard lock(lock_);
      --pending_;
      pendingBytes_ -= bytes;
    }
    if (message.number != 0) {
      handlers_.settled(message.number, reason);
    }
  }

  void tellRefusal(const std::string& topic, int reason) {
    if (const std::uint64_t count = refusals_[reason].add(); count > 0) {
      QOV_GUARD(guard, kit_);
      QOV_WARN(guard, log_id::kMessageRefused,
               "The broker %s refuses a message: %s: %s; %llu for that so far", broker_.c_str(),
               topic.c_str(), causeOfReason(reason).text().c_str(),
               static_cast<unsigned long long>(count));
    }
  }

  std::optional<Outgoing> takeFrom(std::deque<Outgoing>& queue) {
    const std::lock_guard lock(lock_);
    if (queue.empty()) {
      return std::nullopt;
    }
    std::optional<Outgoing> message(std::move(queue.front()));
    queue.pop_front();
    answerBytes_ -= message->atMostOnce ? message->size() : 0;
    return message;
  }

  /// As many as the socket takes.
  void publishAnswers() {
    while (state_ == State::kOnline && !client_.wantsToWrite()) {
      auto message = takeFrom(answers_);
      if (!message) {
        return;
      }
      int id = 0;
      const int refusal = client_.publish(*message, false, id);
      if (refusal != 0) {
        tellRefusal(message->topic, refusal);
      }
      settle(*message, message->size(), refusal);
      if (refusal == MQTT_RC_PACKET_TOO_LARGE) {
        handlers_.tooLarge(std::move(*message));
      }
    }
  }

  void publishQueue() {
    while (given_.size() < kMostGiven) {
      auto taken = takeFrom(queue_);
      if (!taken) {
        return;
      }
      Outgoing& message = *taken;
      int id = 0;
      const int refusal = client_.publish(message, false, id);
      if (refusal != 0) {
        tellRefusal(message.topic, refusal);
        settle(message, message.size(), refusal);
      } else {
        given_.push_back({id, std::move(message), false});
      }
    }
  }

  /// If it has changed.
  void publishPresence() {
    if (Clock::now() < nextPresence_) {
      return;
    }
    nextPresence_ = Clock::now() + kTurn;
    std::string document = presence_.online();
    if (document != document_) {
      publishDocument(document);
      document_ = std::move(document);
    }
  }

  /// False if the broker would not take it.
  bool publishDocument(const std::string& document) {
    Outgoing message;
    message.topic = presence_.topic;
    message.payload = document;
    message.contentType = "application/json";
    message.isText = true;
    int id = 0;
    if (const int refusal = client_.publish(message, true, id); refusal != 0) {
      tellRefusal(presence_.topic, refusal);
      return false;
    }
    {
      const std::lock_guard lock(lock_);
      ++pending_;
    }
    given_.push_back({id, std::move(message), true});
    return true;
  }

  /// The broker learns that the agent is offline by its own will, and has time to take the answers
  /// and to acknowledge all that was given to it. Otherwise it publishes the last will.
  void sayGoodbye() {
    const bool isTold = state_ == State::kOnline && publishDocument(presence_.offline());
    const Clock::time_point until = Clock::now() + kPatienceAtEnd;
    publishAnswers();
    while (state_ == State::kOnline && !isAllTaken() && Clock::now() < until) {
      wait(until);
      publishAnswers();
    }
    tellLeft();
    if (state_ != State::kWaiting) {
      client_.disconnect(isTold && given_.empty());
    }
  }

  bool isAllTaken() { return given_.empty() && !client_.wantsToWrite() && answersLeft() == 0; }

  std::size_t answersLeft() {
    const std::lock_guard lock(lock_);
    return answers_.size();
  }

  void tellLeft() {
    const std::size_t answers = answersLeft();
    if (!given_.empty() || answers > 0) {
      QOV_GUARD(guard, kit_);
      QOV_WARN(guard, log_id::kNotOffline,
               "The broker %s has not acknowledged all messages at the end: %zu are left; %zu "
               "answers are lost",
               broker_.c_str(), given_.size(), answers);
    }
  }

  // Constant after construction.
  const unsigned int kit_;
  const std::string broker_;
  const std::string clientId_;
  const Presence presence_;
  const Handlers handlers_;
  const std::vector<std::string> filters_;
  const Bell bell_;

  std::atomic<bool> isOnline_{false};
  Counts counts_;

  std::mutex lock_;
  // Guarded by lock_.
  std::deque<Outgoing> queue_;    ///< not given to libmosquitto yet
  std::deque<Outgoing> answers_;  ///< the same of those that go at most once
  std::size_t pending_ = 0;       ///< of queue_ and of given_
  std::size_t pendingBytes_ = 0;  ///< of their payloads and correlation data
  std::size_t answerBytes_ = 0;   ///< the same of answers_
  bool stopping_ = false;

  // The thread's own.
  Client client_;
  State state_ = State::kWaiting;
  BackOff backOff_;
  BackOff::Duration lastWait_{0};
  Clock::time_point nextTry_ = Clock::now();
  Clock::time_point answerUntil_;
  Clock::time_point onlineSince_;
  Clock::time_point nextPresence_;
  Clock::time_point lastMove_;  ///< of the socket
  std::optional<int> reason_;   ///< for which the broker ends this connection
  std::deque<Given> given_;     ///< the oldest first
  std::map<int, std::string> subscriptions_;
  int badPackets_ = 0;    ///< connections in turn that have ended with one
  bool forgets_ = false;  ///< the next connection begins a new session
  bool retainTold_ = false;
  std::string document_;                ///< of the presence, as published on this connection
  std::set<std::string> toldFailures_;  ///< since the last success; addresses fail in turn
  std::map<int, Seldom> refusals_;      ///< of messages, by reason

  std::thread thread_;
};

Connection::Connection(const Settings& settings, const std::string& clientId, Presence presence,
                       Handlers handlers, const std::vector<std::string>& filters)
    : loop_(std::make_unique<Loop>(settings, clientId, std::move(presence), std::move(handlers),
                                   filters)) {}

Connection::~Connection() = default;

bool Connection::publish(Outgoing&& message) {
  return loop_->publish(std::move(message));
}

bool Connection::isOnline() const {
  return loop_->isOnline();
}

const Connection::Counts& Connection::counts() const {
  return loop_->counts();
}

}  // namespace qov::mqtt
