#include "tools/qovctl/fleet_broker.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <sys/random.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <new>

#include "modules/common/octets.h"
#include "tools/qovctl/fleet_properties.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

constexpr int kPort = 1883;
constexpr int kTlsPort = 8883;
/// Reasons from here on are refusals.
constexpr int kRefusal = 128;
constexpr int kKeepAlive = 60;
/// Seconds. Agents refuse a request that asks for more.
constexpr double kLongestOfAgents = 600;
/// Bytes that may come before the broker answers a subscription.
constexpr std::size_t kMostWaiting = std::size_t{256} << 20U;

std::size_t sizeOf(const Delivery& delivery) {
  return sizeof delivery + delivery.topic.size() + delivery.payload.size();
}

std::string randomText() {
  std::array<char, 8> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw Failure(kFailed, std::string("no random number: ") + std::strerror(errno));
  }
  return common::hexText({bytes.data(), bytes.size()});
}

/// The first line of a file.
std::string passwordIn(const std::string& file) {
  const std::string content = readInput(file);
  return content.substr(0, content.find_first_of("\r\n"));
}

/// libmosquitto does not say which file it cannot read.
const char* readable(const std::string& file) {
  if (::access(file.c_str(), R_OK) != 0) {
    throw Failure(kFailed, file + ": " + std::strerror(errno));
  }
  return file.c_str();
}

/// While this lives, what the library writes to a broker that is gone raises no SIGPIPE. Otherwise
/// the signal ends the program when nobody reads its output.
class NoPipeSignal {
 public:
  NoPipeSignal() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &before_);
  }
  ~NoPipeSignal() { ::sigaction(SIGPIPE, &before_, nullptr); }
  NoPipeSignal(const NoPipeSignal&) = delete;
  NoPipeSignal& operator=(const NoPipeSignal&) = delete;

 private:
  struct sigaction before_ {};
};

/// With the signal that it ignores as it was.
mosquitto* newClient(const std::string& id, void* broker) {
  const NoPipeSignal asBefore;
  return mosquitto_new(id.c_str(), true, broker);
}

/// The library connects to one of the host's addresses after the other, for minutes where nobody
/// answers. While this lives, each attempt is broken off after its time.
class ConnectLimit {
 public:
  explicit ConnectLimit(double seconds) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &action, &before_);
    const auto whole = static_cast<time_t>(seconds);
    const timeval time{whole,
                       static_cast<suseconds_t>((seconds - static_cast<double>(whole)) * 1e6)};
    const itimerval timer{time, time};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }
  ~ConnectLimit() {
    const itimerval none{};
    ::setitimer(ITIMER_REAL, &none, nullptr);
    ::sigaction(SIGALRM, &before_, nullptr);
  }
  ConnectLimit(const ConnectLimit&) = delete;
  ConnectLimit& operator=(const ConnectLimit&) = delete;

 private:
  struct sigaction before_ {};
};

}  // namespace

Broker::Library::Library() {
  mosquitto_lib_init();
}

Broker::Library::~Library() {
  mosquitto_lib_cleanup();
}

void Broker::Free::operator()(mosquitto* client) const {
  mosquitto_destroy(client);
}

Broker::Broker(const BrokerTarget& target)
    : name_(target.address),
      timeout_(target.timeout),
      clientId_("qovctl-" + randomText()),
      client_(newClient(clientId_, this)) {
  if (client_ == nullptr) {
    throw std::bad_alloc();
  }
  const BrokerAddress address = *brokerAddressOf(target.address);
  host_ = address.host;
  port_ = address.port.value_or(target.caFile.empty() ? kPort : kTlsPort);
  setUp(target);
  setCallbacks();
  connect();
}

Broker::~Broker() {
  // Nobody waits for the broker's word on this.
  const NoPipeSignal quiet;
  mosquitto_disconnect(client_.get());
}

void Broker::setUp(const BrokerTarget& target) {
  mosquitto* const client = client_.get();
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  // A request does not wait until the broker has confirmed the bytes before it.
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  if (!target.user.empty()) {
    const std::string password =
        target.passwordFile.empty() ? std::string() : passwordIn(target.passwordFile);
    check(mosquitto_username_pw_set(client, target.user.c_str(),
                                    target.passwordFile.empty() ? nullptr : password.c_str()),
          "--user");
  }
  if (!target.caFile.empty()) {
    const bool hasCertificate = !target.certificate.empty();
    check(mosquitto_tls_set(client, readable(target.caFile), nullptr,
                            hasCertificate ? readable(target.certificate) : nullptr,
                            hasCertificate ? readable(target.key) : nullptr, nullptr),
          "TLS");
    constexpr int kVerify = 1;  // SSL_VERIFY_PEER
    check(mosquitto_tls_opts_set(client, kVerify, "tlsv1.2", nullptr), "TLS");
  }
}

void Broker::setCallbacks() {
  mosquitto* const client = client_.get();
  mosquitto_connect_v5_callback_set(client, &onConnect);
  mosquitto_disconnect_v5_callback_set(client, &onDisconnect);
  mosquitto_subscribe_v5_callback_set(client, &onSubscribe);
  mosquitto_publish_v5_callback_set(client, &onPublish);
  mosquitto_message_v5_callback_set(client, &onMessage);
  mosquitto_log_callback_set(client, &onLog);
}

void Broker::connect() {
  PropertyList properties;
  properties.addNumber(MQTT_PROP_MAXIMUM_PACKET_SIZE, kMostBytes);
  int result = 0;
  int error = 0;
  {
    const ConnectLimit limit(timeout_);
    const NoPipeSignal quiet;
    result = mosquitto_connect_bind_v5(client_.get(), host_.c_str(), port_, kKeepAlive, nullptr,
                                       properties.get());
    error = errno;
  }
  if (result == MOSQ_ERR_ERRNO && error == EINTR) {
    failConnection(kNoConnection, std::strerror(ETIMEDOUT));
  }
  if (result != MOSQ_ERR_SUCCESS) {
    failConnection(kNoConnection,
                   result == MOSQ_ERR_ERRNO ? std::strerror(error) : mosquitto_strerror(result));
  }
  waitFor([this] { return connected_.has_value(); }, "no answer to the connection");
  if (*connected_ != 0) {
    failConnection(kEndpointError, mosquitto_reason_string(*connected_));
  }
}

void Broker::check(int result, const std::string& what) const {
  if (result == MOSQ_ERR_NOMEM) {
    throw std::bad_alloc();
  }
  if (result != MOSQ_ERR_SUCCESS) {
    throw Failure(kFailed, what + ": " + mosquitto_strerror(result));
  }
}

/// What finds the connection broken is no fault of what was to be sent.
void Broker::checkSent(int result, const std::string& what) const {
  if (result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO) {
    failLoop(result);
  }
  check(result, what);
}

void Broker::failConnection(ExitCode code, const std::string& why) const {
  throw Failure(code, "no connection to " + name_ + ": " + why +
                          (lastError_.empty() ? "" : " " + lastError_));
}

void Broker::subscribe(const std::string& filter, int qos) {
  const NoPipeSignal quiet;
  subscribed_.reset();
  checkSent(mosquitto_subscribe_v5(client_.get(), nullptr, filter.c_str(), qos, 0, nullptr),
            "subscription to " + filter);
  waitFor([this] { return subscribed_.has_value(); }, "no answer to the subscription to " + filter);
  if (*subscribed_ >= kRefusal) {
    throw Failure(kEndpointError, name_ + " refuses the subscription to " + filter + ": " +
                                      mosquitto_reason_string(*subscribed_));
  }
}

void Broker::unsubscribe(const std::string& filter) {
  const NoPipeSignal quiet;
  checkSent(mosquitto_unsubscribe(client_.get(), nullptr, filter.c_str()),
            "end of the subscription to " + filter);
}

int Broker::publish(const Question& question) {
  PropertyList properties;
  properties.addText(MQTT_PROP_CONTENT_TYPE, "application/json");
  properties.addText(MQTT_PROP_RESPONSE_TOPIC, question.responseTopic);
  properties.addBytes(MQTT_PROP_CORRELATION_DATA, question.correlation);
  properties.addNumber(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                       static_cast<std::uint32_t>(std::ceil(question.timeout)));
  properties.addUser(
      "timeout", std::to_string(std::lround(std::min(question.timeout, kLongestOfAgents) * 1000)));
  const NoPipeSignal quiet;
  int id = 0;
  checkSent(mosquitto_publish_v5(client_.get(), &id, question.topic.c_str(),
                                 static_cast<int>(question.payload.size()), question.payload.data(),
                                 1, false, properties.get()),
            "request to " + question.topic);
  return id;
}

void Broker::wait(Clock::time_point time) {
  if (deliveries_.empty() && refused_.empty()) {
    loop(time);
  }
}

/// Lets the library work until something has come, or it is `time`.
void Broker::loop(Clock::time_point time) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(
      std::max(time - Clock::now(), Clock::duration::zero()));
  const NoPipeSignal quiet;
  // The library keeps the connection alive in between.
  const auto longest = std::min<std::chrono::milliseconds>(left, kLongestWait);
  const int result = mosquitto_loop(client_.get(), static_cast<int>(longest.count()), 1);
  if (result == MOSQ_ERR_NOMEM) {
    throw std::bad_alloc();
  }
  // A refusal that has come first says more.
  const bool refused = connected_.value_or(0) != 0;
  if (result != MOSQ_ERR_SUCCESS && !refused) {
    failLoop(result);
  }
  if (waitingBytes_ > kMostWaiting) {
    throw Failure(kBadData, name_ + " sends more than can be kept before it answers");
  }
}

void Broker::failLoop(int result) const {
  if (!connected_) {
    failConnection(kNoConnection, mosquitto_strerror(result));
  }
  throw Failure(kNoConnection,
                "the connection to " + name_ + " is lost: " +
                    (disconnected_.value_or(0) >= kRefusal ? mosquitto_reason_string(*disconnected_)
                                                           : mosquitto_strerror(result)));
}

std::optional<Delivery> Broker::take() {
  if (deliveries_.empty()) {
    return std::nullopt;
  }
  std::optional<Delivery> first(std::move(deliveries_.front()));
  deliveries_.pop_front();
  waitingBytes_ -= sizeOf(*first);
  return first;
}

template <class Condition>
void Broker::waitFor(const Condition& condition, const std::string& what) {
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(timeout_));
  while (!condition()) {
    if (Clock::now() >= end) {
      throw Failure(kTimedOut, name_ + ": " + what);
    }
    loop(end);
  }
}

// The library is C, which no exception comes through: missing memory ends the program here.

void Broker::onConnect(mosquitto*, void* broker, int reason, int, const Properties*) noexcept {
  static_cast<Broker*>(broker)->connected_ = reason;
}

void Broker::onDisconnect(mosquitto*, void* broker, int reason, const Properties*) noexcept {
  static_cast<Broker*>(broker)->disconnected_ = reason;
}

void Broker::onSubscribe(mosquitto*, void* broker, int, int count, const int* granted,
                         const Properties*) noexcept {
  static_cast<Broker*>(broker)->subscribed_ = count > 0 ? granted[0] : kRefusal;
}

void Broker::onPublish(mosquitto*, void* broker, int id, int reason, const Properties*) noexcept {
  if (reason >= kRefusal || reason == MQTT_RC_NO_MATCHING_SUBSCRIBERS) {
    static_cast<Broker*>(broker)->refused_.emplace_back(id, mosquitto_reason_string(reason));
  }
}

void Broker::onMessage(mosquitto*, void* broker, const mosquitto_message* message,
                       const Properties* properties) noexcept {
  Delivery delivery;
  delivery.topic = message->topic;
  delivery.payload.assign(static_cast<const char*>(message->payload),
                          static_cast<std::size_t>(message->payloadlen));
  delivery.time = Clock::now();
  delivery.retained = message->retain;
  readProperties(properties, delivery);
  auto& self = *static_cast<Broker*>(broker);
  self.waitingBytes_ += sizeOf(delivery);
  self.deliveries_.push_back(std::move(delivery));
}

void Broker::onLog(mosquitto*, void* broker, int level, const char* text) noexcept {
  if (level == MOSQ_LOG_ERR) {
    static_cast<Broker*>(broker)->lastError_ = text;
  }
}

}  // namespace qov::ctl
