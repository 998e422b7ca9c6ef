#include "modules/mqtt/cause.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <system_error>

namespace qov::mqtt {
namespace {

const char* whatToDoAbout(int reason) {
  switch (reason) {
    case MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION:
      return "take a broker that speaks MQTT 5";
    case MQTT_RC_CLIENTID_NOT_VALID:
      return "let the broker take the client id, or change Node";
    case MQTT_RC_BAD_USERNAME_OR_PASSWORD:
      return "compare User and PasswordFile with the broker's accounts";
    case MQTT_RC_NOT_AUTHORIZED:
      return "compare User, PasswordFile and CertFile with the broker's accounts and access list";
    case MQTT_RC_SERVER_UNAVAILABLE:
    case MQTT_RC_SERVER_BUSY:
    case MQTT_RC_SERVER_SHUTTING_DOWN:
    case MQTT_RC_CONNECTION_RATE_EXCEEDED:
    case MQTT_RC_MESSAGE_RATE_TOO_HIGH:
      return "nothing, it is tried again; if it lasts, the broker has too much to do";
    case MQTT_RC_BANNED:
    case MQTT_RC_ADMINISTRATIVE_ACTION:
      return "ask who runs the broker";
    case MQTT_RC_SESSION_TAKEN_OVER:
      return "look for another agent with this Node and process name";
    case MQTT_RC_KEEP_ALIVE_TIMEOUT:
      return "look at the network; KeepAliveSeconds may be longer";
    case MQTT_RC_PACKET_TOO_LARGE:
      return "raise the broker's largest packet, or send smaller messages";
    case MQTT_RC_QUOTA_EXCEEDED:
      return "raise the broker's quota";
    case MQTT_RC_USE_ANOTHER_SERVER:
    case MQTT_RC_SERVER_MOVED:
      return "change Host";
    case MQTT_RC_RETAIN_NOT_SUPPORTED:
    case MQTT_RC_QOS_NOT_SUPPORTED:
    case MQTT_RC_WILDCARD_SUBS_NOT_SUPPORTED:
      return "take a broker with retained messages, QoS 1 and wildcards";
    default:
      return "look into the broker's log";
  }
}

const char* whatToDoAboutResult(int result) {
  switch (result) {
    case MOSQ_ERR_EAI:
    case MOSQ_ERR_LOOKUP:
      return "compare Host with the name server";
    case MOSQ_ERR_TLS:
    case MOSQ_ERR_TLS_HANDSHAKE:
      return "compare CaFile, CertFile, KeyFile and the name in Host with the broker's "
             "certificate, "
             "and look into the broker's log";
    case MOSQ_ERR_NO_CONN:
    case MOSQ_ERR_CONN_LOST:
    case MOSQ_ERR_KEEPALIVE:
      return "look whether the broker runs and what its log says";
    case MOSQ_ERR_PROTOCOL:
      return "look whether an MQTT broker listens there, with or without TLS as Tls says, and what "
             "its log says";
    default:
      return "look whether the broker runs at Host and Port, and whether the network leads there";
  }
}

bool isBadPacket(int result) {
  return result == MOSQ_ERR_PROTOCOL || result == MOSQ_ERR_MALFORMED_PACKET ||
         result == MOSQ_ERR_MALFORMED_UTF8 || result == MOSQ_ERR_DUPLICATE_PROPERTY ||
         result == MOSQ_ERR_INVAL;
}

}  // namespace

Cause causeOfReason(int reason) {
  return {mosquitto_reason_string(reason) + (" (reason " + std::to_string(reason) + ")"),
          whatToDoAbout(reason)};
}

Cause causeOfResult(int result, int system, const std::string& library) {
  std::string why = mosquitto_strerror(result);
  if (result == MOSQ_ERR_ERRNO) {
    why = std::generic_category().message(system);
  }
  if (!why.empty() && why.back() == '.') {
    why.pop_back();
  }
  if (!library.empty()) {
    why += " (" + library + ")";
  }
  return {why, whatToDoAboutResult(result), isBadPacket(result)};
}

}  // namespace qov::mqtt
