#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_long_socket.h>

#include <ace/Guard_T.h>
#include <qovpub/detail/cell_bytes.h>

#include <cassert>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "diag/log_ids.h"
#include "diag/uncancelled.h"
#include "link/deadline.h"
#include "link/dump_text.h"
#include "link/endpoint.h"
#include "link/endpoint_address.h"
#include "link/socket_io.h"

namespace {

constexpr unsigned int kHeadSize = sizeof(TLVMsgHeadV3);

unsigned char* makeBuffer() {
  return new unsigned char[CQOVLongSocket::kMaxMessage];  // not zeroed: most of it is never used
}

void logTraffic(CQOVDebugKitGuard& guard, const char* what, const CT7QPackageV3& package) {
  if (CQOVDebugKit::isOn(LM_DEBUG)) {
    guard.debug(qov::log_id::kTraffic, "sendMsg", __LINE__, "%s\n%s", what,
                qov::dumpOf(package).c_str());
  }
}

}  // namespace

CQOVLongSocket::CQOVLongSocket() : buffer_(makeBuffer()) {
  CQOVDebugKitGuard guard(0, "CQOVLongSocket::CQOVLongSocket()");
  setupConnection();
}

CQOVLongSocket::CQOVLongSocket(const ACE_INET_Addr& endpoint, const Limits& limits)
    : buffer_(makeBuffer()), endpoint_(std::make_unique<qov::Endpoint>(endpoint)), limits_(limits) {
  CQOVDebugKitGuard guard(0, "CQOVLongSocket::CQOVLongSocket(const ACE_INET_Addr&, const Limits&)");
  setupConnection();
}

CQOVLongSocket::CQOVLongSocket(const std::string& endpoint, const Limits& limits)
    : buffer_(makeBuffer()), endpoint_(std::make_unique<qov::Endpoint>(endpoint)), limits_(limits) {
  CQOVDebugKitGuard guard(0, "CQOVLongSocket::CQOVLongSocket(const std::string&, const Limits&)");
  setupConnection();
}

CQOVLongSocket::~CQOVLongSocket() {
  CQOVDebugKitGuard guard(0, "CQOVLongSocket::~CQOVLongSocket()");
  disconnect();
}

std::string CQOVLongSocket::whyNotConnected() const {
  assert(endpoint_ != nullptr);
  return endpoint_->failure().cause;
}

void CQOVLongSocket::interrupt() {
  CQOVDebugKitGuard guard(0, "void CQOVLongSocket::interrupt()");
  interruption_.set();
}

void CQOVLongSocket::resume() {
  CQOVDebugKitGuard guard(0, "void CQOVLongSocket::resume()");
  interruption_.clear();
}

int CQOVLongSocket::setupConnection() {
  CQOVDebugKitGuard guard(0, "int CQOVLongSocket::setupConnection()");
  disconnect();
  connect(guard);
  const qov::AddressText address = qov::textOf(server_);
  if (peer_.get_handle() == ACE_INVALID_HANDLE) {
    guard.error(qov::log_id::kLinkNotConnected, __FUNCTION__, __LINE__,
                "Failed to connect socket server, server ip is %s", address.data());
    guard.error(qov::log_id::kLinkReason, __FUNCTION__, __LINE__, "%s",
                qov::textOf(endpoint_->failure()).c_str());
    return -1;
  }
  guard.info(qov::log_id::kLinkConnected, __FUNCTION__, __LINE__,
             "Successed to connect socket server, server ip is %s", address.data());
  return 0;
}

void CQOVLongSocket::connect(CQOVDebugKitGuard& guard) {
  if (endpoint_ == nullptr) {
    endpoint_ = qov::configuredEndpoint(guard);
  }
  peer_.set_handle(endpoint_->connect(limits_.connect, interruption_, server_));
  sleeps_ = qov::letSleep(peer_.get_handle(), limits_.reply);
}

unsigned int CQOVLongSocket::sendMsg_i(const unsigned char* data, unsigned int length) {
  CQOVDebugKitGuard guard(
      0, "unsigned int CQOVLongSocket::sendMsg_i(const unsigned char*, unsigned int)");
  const ssize_t sent =
      qov::sendWithin(peer_.get_handle(), data, length, limits_.send, interruption_);
  if (sent >= 0) {
    // A short send counts, and is not repeated. The endpoint goes on waiting for the rest.
    cut_ = cut_ || static_cast<std::size_t>(sent) < length;
    return 0;
  }
  guard.error(qov::log_id::kLinkNotSent, __FUNCTION__, __LINE__,
              "Failed to send V3 message, error is %s", std::strerror(errno));
  return reconnect();
}

/// errno says what has ended the connection that was.
unsigned int CQOVLongSocket::reconnect() {
  if (errno == ECANCELED) {
    disconnect();
  } else {
    setupConnection();
  }
  return kSocketFailed;
}

/// Also where a thread is to be cancelled: in a destructor that would end the process.
void CQOVLongSocket::disconnect() {
  const qov::Uncancelled closing;
  peer_.close();
  cut_ = false;
  ahead_ = {};
}

unsigned int CQOVLongSocket::receiveMsg(CT7QPackageV3* package) {
  CQOVDebugKitGuard guard(0, "unsigned int CQOVLongSocket::receiveMsg(CT7QPackageV3*)");
  unsigned int length = 0;
  const unsigned int result =
      recvData(reinterpret_cast<char*>(buffer_.get()), length, &limits_.reply);
  return result == 0 ? convert(buffer_.get(), length, package) : result;
}

bool CQOVLongSocket::isEndpoint(const std::string& text) {
  return qov::hostPortOf(text).has_value();
}

unsigned int CQOVLongSocket::convert(unsigned char* data, unsigned int length,
                                     CT7QPackageV3* package) {
  CQOVDebugKitGuard guard(
      0, "unsigned int CQOVLongSocket::convert(unsigned char*, unsigned int, CT7QPackageV3*)");
  if (length < kHeadSize) {
    // The codec says so in the log.
    package->decode(data, length);
    return kBadReply;
  }
  const auto serial = qov::loadWord<std::uint16_t>(data + offsetof(TLVMsgHeadV3, ser_));
  const auto error = qov::loadWord<std::uint32_t>(data + offsetof(TLVMsgHeadV3, ret_));
  if (serial != package->head().ser_) {
    guard.error(qov::log_id::kLinkSerialMismatch, __FUNCTION__, __LINE__,
                "V3 message serial number mismatch, send serial is %d, receive serial is %d",
                int{package->head().ser_}, int{serial});
    return kBadReply;
  }
  const bool decoded = package->decode(data, length) != CT7QPackageV3::kFailed;
  if (error != 0) {
    guard.error(qov::log_id::kLinkErrorReply, __FUNCTION__, __LINE__,
                "Failed to receive V3 message, error code is %d", static_cast<int>(error));
    return error;
  }
  return decoded ? 0 : kBadReply;
}

unsigned int CQOVLongSocket::sendMsg(CT7QPackageV3* package) {
  CQOVDebugKitGuard guard(0, "unsigned int CQOVLongSocket::sendMsg(CT7QPackageV3*)");
  TLVMsgHeadV3::allocateSerial(package->head());
  unsigned char* bytes = nullptr;
  const unsigned int length = package->encode(bytes);
  const std::unique_ptr<unsigned char[]> request(bytes);
  if (length == 0 || length == CT7QPackageV3::kFailed) {
    // No error record: the codec has written one. So the guard leaves with OK.
    guard.debug(qov::log_id::kLinkNotEncoded, __FUNCTION__, __LINE__,
                "Error:it failed to encode the V3 message!");
    return kNotEncoded;
  }
  logTraffic(guard, "send:", *package);
  bool sent = false;
  const unsigned int result = exchange(request.get(), length, *package, sent);
  if (sent) {
    logTraffic(guard, "received:", *package);
  }
  if (result != 0) {
    guard.error(qov::log_id::kLinkExchangeFailed, __FUNCTION__, __LINE__,
                "Failed to send message, error code is %d, message is : %s",
                static_cast<int>(result),
                CQOVDebugKit::isOn(LM_ERROR) ? qov::dumpOf(*package).c_str() : "");
  }
  return result;
}

/// Makes no text of the messages: other threads wait for the lock.
unsigned int CQOVLongSocket::exchange(const unsigned char* data, unsigned int length,
                                      CT7QPackageV3& package, bool& sent) {
  const ACE_Guard<ACE_Thread_Mutex> lock(lock_);
  try {
    const unsigned int result = attemptTwice(data, length, package, sent);
    if (cut_) {
      // The endpoint would take the next request for the rest of this one.
      setupConnection();
    }
    return result;
  } catch (...) {
    // The next request must not meet the answer to this one.
    disconnect();
    throw;
  }
}

/// One retry in all, whether it is sending or receiving that fails.
unsigned int CQOVLongSocket::attemptTwice(const unsigned char* data, unsigned int length,
                                          CT7QPackageV3& package, bool& sent) {
  const unsigned int changes = interruption_.changes();
  retry_ = false;
  const unsigned int result = attempt(data, length, package, sent);
  retry_ = result == kSocketFailed && interruption_.wasClearSince(changes);
  return retry_ ? attempt(data, length, package, sent) : result;
}

unsigned int CQOVLongSocket::attempt(const unsigned char* data, unsigned int length,
                                     CT7QPackageV3& package, bool& sent) {
  const unsigned int result = sendMsg_i(data, length);
  sent = result == 0;
  if (!sent) {
    return result;
  }
  package.clear();
  return receiveMsg(&package);
}
