#include "modules/mqtt/client.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <qovpub/qov_exception.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <system_error>
#include <utility>

namespace qov::mqtt {
namespace {

/// Messages that are published and not acknowledged; the broker may allow fewer.
constexpr int kMostUnacknowledged = 64;

/// A list of properties in the making.
class Properties {
 public:
  Properties() = default;
  ~Properties() { mosquitto_property_free_all(&list_); }
  Properties(const Properties&) = delete;
  Properties& operator=(const Properties&) = delete;

  void add(int result) {
    if (result != MOSQ_ERR_SUCCESS) {
      result_ = result;
    }
  }
  void addNumber(int name, std::uint32_t value) {
    add(mosquitto_property_add_int32(&list_, name, value));
  }
  void addText(int name, const std::string& value) {
    if (!value.empty()) {
      add(mosquitto_property_add_string(&list_, name, value.c_str()));
    }
  }

  int result() const { return result_; }
  mosquitto_property** list() { return &list_; }

 private:
  mosquitto_property* list_ = nullptr;
  int result_ = MOSQ_ERR_SUCCESS;  ///< of the first that was not taken
};

std::string textIn(const mosquitto_property* properties, int name) {
  char* text = nullptr;
  mosquitto_property_read_string(properties, name, &text, false);
  std::string copy = text != nullptr ? text : "";
  std::free(text);
  return copy;
}

std::string bytesIn(const mosquitto_property* properties, int name) {
  void* bytes = nullptr;
  std::uint16_t length = 0;
  mosquitto_property_read_binary(properties, name, &bytes, &length, false);
  std::string copy(static_cast<const char*>(bytes), bytes != nullptr ? length : 0);
  std::free(bytes);
  return copy;
}

std::vector<std::pair<std::string, std::string>> userPropertiesIn(
    const mosquitto_property* properties) {
  std::vector<std::pair<std::string, std::string>> all;
  char* name = nullptr;
  char* value = nullptr;
  for (bool again = false;
       (properties = mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name,
                                                         &value, again)) != nullptr;
       again = true) {
    all.emplace_back(name, value);
    std::free(name);
    std::free(value);
  }
  return all;
}

Incoming incoming(const mosquitto_message& message, const mosquitto_property* properties) {
  Incoming made;
  made.topic = message.topic;
  made.payload.assign(static_cast<const char*>(message.payload),
                      static_cast<std::size_t>(message.payloadlen));
  made.contentType = textIn(properties, MQTT_PROP_CONTENT_TYPE);
  made.responseTopic = textIn(properties, MQTT_PROP_RESPONSE_TOPIC);
  made.correlation = bytesIn(properties, MQTT_PROP_CORRELATION_DATA);
  made.properties = userPropertiesIn(properties);
  return made;
}

/// The most bytes that its packet can have. libmosquitto's own check is some bytes short, and its
/// second one ends the process.
std::size_t mostBytesOf(const Outgoing& message) {
  // The fixed header, the lengths, the packet's number and the properties without a text.
  constexpr std::size_t kHeader = 32;
  constexpr std::size_t kPairHeader = 5;
  std::size_t bytes = kHeader + message.topic.size() + message.contentType.size() + message.size();
  for (const auto& [name, value] : message.properties) {
    bytes += kPairHeader + name.size() + value.size();
  }
  return bytes;
}

void setOption(int socket, int option) {
  constexpr int kOn = 1;
  ::setsockopt(socket, IPPROTO_TCP, option, &kOn, sizeof kOn);
}

/// What the broker would say to a message that libmosquitto does not take; else 0. What finds the
/// connection broken is kept for the next one.
int reasonOf(int result) {
  switch (result) {
    case MOSQ_ERR_NOMEM:
      return MQTT_RC_UNSPECIFIED;
    case MOSQ_ERR_INVAL:
    case MOSQ_ERR_MALFORMED_UTF8:
      return MQTT_RC_TOPIC_NAME_INVALID;
    case MOSQ_ERR_PAYLOAD_SIZE:
    case MOSQ_ERR_OVERSIZE_PACKET:
      return MQTT_RC_PACKET_TOO_LARGE;
    case MOSQ_ERR_QOS_NOT_SUPPORTED:
      return MQTT_RC_QOS_NOT_SUPPORTED;
    case MOSQ_ERR_RETAIN_NOT_SUPPORTED:
      return MQTT_RC_RETAIN_NOT_SUPPORTED;
    default:
      return 0;
  }
}

}  // namespace

/// libmosquitto calls these from within its own calls.
struct Client::Callbacks {
  static Client& of(void* client) { return *static_cast<Client*>(client); }

  static void set(mosquitto* client) {
    mosquitto_connect_v5_callback_set(client, [](mosquitto* connected, void* self, int reason,
                                                 int flags, const mosquitto_property* properties) {
      // libmosquitto would write a line for each packet, which nobody reads. Its errors matter
      // until the connection stands.
      mosquitto_log_callback_set(connected, nullptr);
      of(self).hasAnswer_ = true;
      of(self).largestPacket_ = std::numeric_limits<std::uint32_t>::max();
      mosquitto_property_read_int32(properties, MQTT_PROP_MAXIMUM_PACKET_SIZE,
                                    &of(self).largestPacket_, false);
      std::uint8_t retains = 1;
      mosquitto_property_read_byte(properties, MQTT_PROP_RETAIN_AVAILABLE, &retains, false);
      of(self).listener_.onAnswer(reason, (flags & 1) != 0, retains != 0);
    });
    mosquitto_disconnect_v5_callback_set(
        client, [](mosquitto*, void* self, int reason, const mosquitto_property*) {
          // Below are libmosquitto's own results, which its calls return, too.
          if (reason >= MQTT_RC_UNSPECIFIED) {
            of(self).listener_.onEnd(reason);
          }
        });
    mosquitto_publish_v5_callback_set(
        client, [](mosquitto*, void* self, int id, int reason, const mosquitto_property*) {
          of(self).listener_.onPublished(id, reason);
        });
    mosquitto_subscribe_v5_callback_set(client, [](mosquitto*, void* self, int id, int count,
                                                   const int* reasons, const mosquitto_property*) {
      // One without a reason is no refusal.
      of(self).listener_.onSubscribed(id, count > 0 ? *reasons : 0);
    });
    mosquitto_message_v5_callback_set(
        client, [](mosquitto*, void* self, const mosquitto_message* message,
                   const mosquitto_property* properties) {
          of(self).listener_.onReceived(incoming(*message, properties));
        });
    mosquitto_log_callback_set(client, [](mosquitto*, void* self, int level, const char* text) {
      // What follows the first one says less of it.
      if (level == MOSQ_LOG_ERR && of(self).libraryError_.empty()) {
        of(self).libraryError_ = text;
      }
    });
  }
};

Client::Client(const Settings& settings, const std::string& clientId, Listener& listener)
    : settings_(settings),
      clientId_(clientId),
      listener_(listener),
      client_(nullptr, mosquitto_destroy) {
  mosquitto_lib_init();
  if (const auto cause = make(false); cause) {
    throw CQOV_Exception("Failed to prepare the client of the broker " + settings_.host + ": " +
                         cause->why);
  }
}

Client::~Client() {
  client_.reset();
  mosquitto_lib_cleanup();
}

std::optional<Cause> Client::make(bool cleanStart) {
  client_.reset(mosquitto_new(clientId_.c_str(), cleanStart, this));
  if (client_ == nullptr) {
    return causeOf(MOSQ_ERR_ERRNO);
  }
  Callbacks::set(client_.get());
  mosquitto_int_option(client_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client_.get(), MOSQ_OPT_SEND_MAXIMUM, kMostUnacknowledged);
  if (const int result = settings_.tls ? configureTls() : MOSQ_ERR_SUCCESS; result != 0) {
    return causeOf(result);
  }
  Properties properties;
  properties.addNumber(MQTT_PROP_SESSION_EXPIRY_INTERVAL,
                       static_cast<std::uint32_t>(settings_.session.count()));
  properties.addNumber(MQTT_PROP_MAXIMUM_PACKET_SIZE, Connection::kMostReceived);
  // The call that does not wait takes no properties. It takes those of this one, which keeps them
  // although it fails, as there is no host.
  mosquitto_connect_bind_v5(client_.get(), nullptr, settings_.port, keepAlive(), nullptr,
                            *properties.list());
  return std::nullopt;
}

int Client::keepAlive() const {
  return static_cast<int>(settings_.keepAlive.count());
}

int Client::configureTls() {
  const auto orNull = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
  if (settings_.caFile.empty()) {
    const int result = mosquitto_int_option(client_.get(), MOSQ_OPT_TLS_USE_OS_CERTS, 1);
    if (result != MOSQ_ERR_SUCCESS) {
      return result;
    }
  }
  // Otherwise OpenSSL would ask for it on the terminal.
  const auto noPassword = [](char*, int, int, void*) { return 0; };
  return mosquitto_tls_set(client_.get(), orNull(settings_.caFile), nullptr,
                           orNull(settings_.certFile), orNull(settings_.keyFile), noPassword);
}

/// The file is read for each connection, so that a new password needs no restart.
std::optional<Cause> Client::setPassword() {
  if (settings_.user.empty()) {
    return std::nullopt;
  }
  std::string password;
  if (!settings_.passwordFile.empty()) {
    errno = 0;
    std::ifstream file(settings_.passwordFile);
    if (!std::getline(file, password)) {
      if (errno != 0) {
        return Cause{
            settings_.passwordFile + " cannot be read: " + std::generic_category().message(errno),
            "let the agent's user read it"};
      }
      return Cause{settings_.passwordFile + " has no password",
                   "write it into the file's first line"};
    }
    if (!password.empty() && password.back() == '\r') {
      password.pop_back();
    }
  }
  return causeOf(
      mosquitto_username_pw_set(client_.get(), settings_.user.c_str(),
                                settings_.passwordFile.empty() ? nullptr : password.c_str()));
}

std::optional<Cause> Client::causeOf(int result) const {
  if (result == MOSQ_ERR_SUCCESS) {
    return std::nullopt;
  }
  return causeOfResult(result, errno, libraryError_);
}

std::optional<Cause> Client::connect(const std::string& topic, const std::string& will,
                                     bool forgets) {
  libraryError_.clear();
  if (auto cause = make(forgets); cause) {
    return cause;
  }
  if (auto cause = setPassword(); cause) {
    return cause;
  }
  // One that did not work is followed by one with the other kind of addresses.
  if (!std::exchange(hasAnswer_, false)) {
    takesOtherKind_ = !takesOtherKind_;
  }
  constexpr int kQos = 1;
  mosquitto_will_set(client_.get(), topic.c_str(), static_cast<int>(will.size()), will.data(), kQos,
                     true);
  const int result = mosquitto_connect_bind_async(client_.get(), settings_.host.c_str(),
                                                  settings_.port, keepAlive(), addressToComeFrom());
  if (result == MOSQ_ERR_SUCCESS) {
    setOption(socket(), TCP_CORK);
  }
  return causeOf(result);
}

/// libmosquitto tries the first address of a host, and others only if there is no way to that one.
/// So a broker that is not at the host's address of IPv6 would not be looked for at that of IPv4.
/// An address to come from decides between both kinds.
const char* Client::addressToComeFrom() const {
  if (!takesOtherKind_) {
    return nullptr;
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(settings_.host.c_str(), nullptr, &hints, &found) != 0) {
    return nullptr;  // libmosquitto says why
  }
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> first(found, ::freeaddrinfo);
  for (const addrinfo* each = found; each != nullptr; each = each->ai_next) {
    if (each->ai_family != first->ai_family) {
      return first->ai_family == AF_INET6 ? "0.0.0.0" : "::";
    }
  }
  return nullptr;
}

int Client::socket() const {
  return mosquitto_socket(client_.get());
}

bool Client::wantsToWrite() const {
  return mosquitto_want_write(client_.get());
}

bool Client::hasUnread() const {
  const auto* const tls = static_cast<const SSL*>(mosquitto_ssl_get(client_.get()));
  return tls != nullptr && SSL_pending(tls) > 0;
}

std::optional<Cause> Client::serve(bool canRead, bool canWrite) {
  libraryError_.clear();
  constexpr int kOnePacket = 1;
  int result = MOSQ_ERR_SUCCESS;
  if (canWrite) {
    result = mosquitto_loop_write(client_.get(), kOnePacket);
  }
  if (canRead && result == MOSQ_ERR_SUCCESS && socket() >= 0) {
    result = mosquitto_loop_read(client_.get(), kOnePacket);
  }
  if (result == MOSQ_ERR_SUCCESS) {
    result = mosquitto_loop_misc(client_.get());
  }
  return causeOf(result);
}

void Client::flush() const {
  // Beside TCP_CORK this sends what there is now, and no more.
  setOption(socket(), TCP_NODELAY);
}

void Client::disconnect(bool orderly) {
  constexpr int kNormal = MQTT_RC_NORMAL_DISCONNECTION;
  constexpr int kWithWill = MQTT_RC_DISCONNECT_WITH_WILL_MSG;
  mosquitto_disconnect_v5(client_.get(), orderly ? kNormal : kWithWill, nullptr);
  serve(false, true);
}

int Client::publish(const Outgoing& message, bool retain, int& id) {
  if (mostBytesOf(message) > largestPacket_) {
    return MQTT_RC_PACKET_TOO_LARGE;
  }
  Properties properties;
  if (message.isText) {
    properties.add(
        mosquitto_property_add_byte(properties.list(), MQTT_PROP_PAYLOAD_FORMAT_INDICATOR, 1));
  }
  properties.addText(MQTT_PROP_CONTENT_TYPE, message.contentType);
  if (!message.correlation.empty()) {
    properties.add(mosquitto_property_add_binary(
        properties.list(), MQTT_PROP_CORRELATION_DATA, message.correlation.data(),
        static_cast<std::uint16_t>(message.correlation.size())));
  }
  for (const auto& [name, value] : message.properties) {
    properties.add(mosquitto_property_add_string_pair(properties.list(), MQTT_PROP_USER_PROPERTY,
                                                      name.c_str(), value.c_str()));
  }
  if (properties.result() != MOSQ_ERR_SUCCESS) {
    return reasonOf(properties.result());
  }
  const int qos = message.atMostOnce ? 0 : 1;
  const int result = mosquitto_publish_v5(client_.get(), &id, message.topic.c_str(),
                                          static_cast<int>(message.payload.size()),
                                          message.payload.data(), qos, retain, *properties.list());
  return reasonOf(result);
}

std::optional<Cause> Client::subscribe(const std::string& filter, int& id) {
  constexpr int kQos = 1;
  return causeOf(mosquitto_subscribe_v5(client_.get(), &id, filter.c_str(), kQos,
                                        MQTT_SUB_OPT_SEND_RETAIN_NEVER, nullptr));
}

}  // namespace qov::mqtt
