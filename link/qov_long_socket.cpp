#include <qovpub/qov_common_debugkit.h>

#include <ace/Guard_T.h>
#include <qovpub/detail/cell_bytes.h>

#include <cassert>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "diag/log_ids.h"
#include "diag/uncancelled.h"
#include "link/deadline.h"
#include "link/dump_text.h"
#include "link/endpoint_address.h"
#include "link/link_state.h"
#include "link/socket_io.h"

namespace {

void logTraffic(CQOVDebugKitGuard& guard, const char* what, const CT7QPackageV3& package) {
  if (CQOVDebugKit::isOn(LM_DEBUG)) {
    guard.debug(qov::log_id::kTraffic, "sendMsg", __LINE__, "%s\n%s", what,
                qov::dumpOf(package).c_str());
  }
}

}  // namespace

CQOVLongSocket::CQOVLongSocket() : state_(std::make_unique<State>()) {
  CQOVDebugKitGuard guard(0, "CQOVLongSocket::CQOVLongSocket()");
  setupConnection();
}

CQOVLongSocket::CQOVLongSocket(const ACE_INET_Addr& endpoint, const Limits& limits)
    : state_(std::make_unique<State>(std::make_unique<qov::Endpoint>(endpoint), limits)) {
  CQOVDebugKitGuard guard(0, "CQOVLongSocket::CQOVLongSocket(const ACE_INET_Addr&, const Limits&)");
  setupConnection();
}

CQOVLongSocket::CQOVLongSocket(const std::string& endpoint, const Limits& limits)
    : state_(std::make_unique<State>(std::make_unique<qov::Endpoint>(endpoint), limits)) {
  CQOVDebugKitGuard guard(0, "CQOVLongSocket::CQOVLongSocket(const std::string&, const Limits&)");
  setupConnection();
}

CQOVLongSocket::~CQOVLongSocket() {
  CQOVDebugKitGuard guard(0, "CQOVLongSocket::~CQOVLongSocket()");
  disconnect();
}

std::string CQOVLongSocket::whyNotConnected() const {
  assert(state_->endpoint_ != nullptr);
  return state_->endpoint_->failure().cause;
}

int CQOVLongSocket::whyNotReceived() const {
  return state_->receiveError_;
}

bool CQOVLongSocket::isRetry() const {
  return state_->retry_;
}

void CQOVLongSocket::interrupt() {
  CQOVDebugKitGuard guard(0, "void CQOVLongSocket::interrupt()");
  state_->interruption_.set();
}

void CQOVLongSocket::resume() {
  CQOVDebugKitGuard guard(0, "void CQOVLongSocket::resume()");
  state_->interruption_.clear();
}

int CQOVLongSocket::setupConnection() {
  CQOVDebugKitGuard guard(0, "int CQOVLongSocket::setupConnection()");
  disconnect();
  if (state_->endpoint_ == nullptr) {
    state_->endpoint_ = qov::configuredEndpoint(guard);
  }
  state_->peer_.set_handle(
      state_->endpoint_->connect(state_->limits_.connect, state_->interruption_, state_->server_));
  state_->sleeps_ = qov::letSleep(state_->peer_.get_handle(), state_->limits_.reply);
  const qov::AddressText address = qov::textOf(state_->server_);
  if (state_->peer_.get_handle() == ACE_INVALID_HANDLE) {
    guard.error(qov::log_id::kLinkNotConnected, __FUNCTION__, __LINE__,
                "Failed to connect socket server, server ip is %s", address.data());
    guard.error(qov::log_id::kLinkReason, __FUNCTION__, __LINE__, "%s",
                qov::textOf(state_->endpoint_->failure()).c_str());
    return -1;
  }
  guard.info(qov::log_id::kLinkConnected, __FUNCTION__, __LINE__,
             "Successed to connect socket server, server ip is %s", address.data());
  return 0;
}

unsigned int CQOVLongSocket::sendMsg_i(const unsigned char* data, unsigned int length) {
  CQOVDebugKitGuard guard(
      0, "unsigned int CQOVLongSocket::sendMsg_i(const unsigned char*, unsigned int)");
  const ssize_t sent = qov::sendWithin(state_->peer_.get_handle(), data, length,
                                       state_->limits_.send, state_->interruption_);
  if (sent >= 0) {
    // A short send counts, and is not repeated. The endpoint goes on waiting for the rest.
    state_->cut_ = state_->cut_ || static_cast<std::size_t>(sent) < length;
    return 0;
  }
  guard.error(qov::log_id::kLinkNotSent, __FUNCTION__, __LINE__,
              "Failed to send V3 message, error is %s", std::strerror(errno));
  return reconnect();
}

/// errno says what has ended the connection that was.
unsigned int CQOVLongSocket::reconnect() {
  const int error = errno;
  state_->endpoint_->record().lost(qov::errnoText(error));
  if (error == ECANCELED) {
    disconnect();
  } else {
    setupConnection();
  }
  return kSocketFailed;
}

/// Also where a thread is to be cancelled: in a destructor that would end the process.
void CQOVLongSocket::disconnect() {
  const qov::Uncancelled closing;
  state_->peer_.close();
  if (state_->endpoint_ != nullptr) {
    state_->endpoint_->record().disconnected();
  }
  state_->cut_ = false;
  state_->ahead_ = {};
}

unsigned int CQOVLongSocket::receiveMsg(CT7QPackageV3* package) {
  CQOVDebugKitGuard guard(0, "unsigned int CQOVLongSocket::receiveMsg(CT7QPackageV3*)");
  unsigned int length = 0;
  const unsigned int result =
      recvData(reinterpret_cast<char*>(state_->buffer_.get()), length, &state_->limits_.reply);
  return result == 0 ? convert(state_->buffer_.get(), length, package) : result;
}

bool CQOVLongSocket::isEndpoint(const std::string& text) {
  return qov::hostPortOf(text).has_value();
}

unsigned int CQOVLongSocket::convert(unsigned char* data, unsigned int length,
                                     CT7QPackageV3* package) {
  CQOVDebugKitGuard guard(
      0, "unsigned int CQOVLongSocket::convert(unsigned char*, unsigned int, CT7QPackageV3*)");
  if (length < State::kHeadSize) {
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

/// One message and its answer.
///
/// Hidden: a nested class would be shown to the library's users as the one around it is.
class __attribute__((visibility("hidden"))) CQOVLongSocket::Exchange {
 public:
  Exchange(CQOVLongSocket& link, const unsigned char* data, unsigned int length,
           CT7QPackageV3& package)
      : link_(link), state_(*link.state_), data_(data), length_(length), package_(package) {}

  /// Makes no text of the messages: other threads wait for the lock.
  unsigned int run();
  /// Whether `package` was given up for the answer.
  bool sent() const { return sent_; }

 private:
  unsigned int attemptTwice();
  unsigned int attempt();

  CQOVLongSocket& link_;
  State& state_;
  const unsigned char* const data_;
  const unsigned int length_;
  CT7QPackageV3& package_;
  bool sent_ = false;
};

unsigned int CQOVLongSocket::Exchange::run() {
  // A thread that takes the lock again at once, as a walk does, finds that another one is next.
  ACE_Guard<ACE_Thread_Mutex> next(state_.next_);
  const ACE_Guard<ACE_Thread_Mutex> lock(state_.lock_);
  next.release();
  try {
    const unsigned int result = attemptTwice();
    if (state_.cut_) {
      // The endpoint would take the next request for the rest of this one.
      link_.setupConnection();
    }
    return result;
  } catch (...) {
    // The next request must not meet the answer to this one.
    link_.disconnect();
    throw;
  }
}

/// One retry in all, whether it is sending or receiving that fails.
unsigned int CQOVLongSocket::Exchange::attemptTwice() {
  const unsigned int changes = state_.interruption_.changes();
  state_.retry_ = false;
  const unsigned int result = attempt();
  state_.retry_ = result == kSocketFailed && state_.interruption_.wasClearSince(changes);
  return state_.retry_ ? attempt() : result;
}

unsigned int CQOVLongSocket::Exchange::attempt() {
  const unsigned int result = link_.sendMsg_i(data_, length_);
  sent_ = result == 0;
  if (!sent_) {
    return result;
  }
  package_.clear();
  return link_.receiveMsg(&package_);
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
  Exchange exchange(*this, request.get(), length, *package);
  const unsigned int result = exchange.run();
  if (exchange.sent()) {
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
