#include "tools/qovctl/endpoint_link.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <sstream>

#include "tools/common/endpoint_protocol.h"
#include "tools/qovctl/fault_text.h"
#include "tools/qovctl/tables.h"

namespace qov::ctl {
namespace {

constexpr std::size_t kHeadSize = sizeof(TLVMsgHeadV3);

ACE_Time_Value timeValueOf(double seconds) {
  const double whole = std::floor(seconds);
  return ACE_Time_Value(static_cast<time_t>(whole),
                        static_cast<suseconds_t>(std::lround((seconds - whole) * 1e6)));
}

std::string secondsText(double seconds) {
  std::ostringstream text;
  text << seconds << " s";
  return text.str();
}

/// As an agent's.
constexpr double kConnectSeconds = 2;

TLVMsgHeadV3 headOf(const void* message) {
  TLVMsgHeadV3 head;
  std::memcpy(&head, message, sizeof head);
  return head;
}

std::optional<std::uint64_t> numberIn(const CTLVCell* cell) {
  if (cell == nullptr || cell->type() < CTLVCell::TLV_UINT) {
    return std::nullopt;
  }
  return cell->number();
}

/// A row may lack its status. Nothing if it is no number.
std::optional<std::uint64_t> statusOf(const CTLVRecordV3& record) {
  const CTLVCell* const cell = record.find(endpoint::kStatusTag);
  return cell == nullptr ? endpoint::kRow : numberIn(cell);
}

void checkOneRecord(const CT7QPackageV3& reply) {
  if (reply.count() != 1) {
    throw Failure(kBadData,
                  "bad reply: it has " + std::to_string(reply.count()) + " records, not one");
  }
}

}  // namespace

EndpointLink::EndpointLink(const Target& target)
    : CQOVLongSocket(target.endpoint, {timeValueOf(std::min(target.timeout, kConnectSeconds)),
                                       timeValueOf(target.timeout), timeValueOf(target.timeout)}),
      target_(target),
      buffer_(kMaxMessage) {
  if (!whyNotConnected().empty()) {
    throwNoConnection();
  }
}

unsigned int EndpointLink::sendMsg_i(const unsigned char* data, unsigned int length) {
  if (length > kMaxMessage) {
    throw Failure(kBadData, "the request has " + std::to_string(length) +
                                " bytes, an endpoint reads at most " + std::to_string(kMaxMessage));
  }
  if (!isRetry()) {
    request_ = data;
    length_ = length;
    serial_ = headOf(data).ser_;
    retriesLeft_ = target_.retries;
    sent_ = 0;
  }
  unsigned int result = 0;
  // The link itself tries once more only.
  do {
    if (isRetry()) {
      spendRetry();
    }
    result = transmit();
  } while (result != 0 && isRetry());
  return result;
}

/// Throws what the last attempt has failed with if there may be no other.
void EndpointLink::spendRetry() {
  if (retriesLeft_ == 0) {
    check(kSocketFailed);
  }
  --retriesLeft_;
}

/// Sends the request once.
unsigned int EndpointLink::transmit() {
  stage_ = Stage::kNotSent;
  const unsigned int result = CQOVLongSocket::sendMsg_i(request_, length_);
  if (result == 0) {
    stage_ = Stage::kNotReceived;
    mostSent_ = std::max(mostSent_, ++sent_);
  }
  return result;
}

unsigned int EndpointLink::receiveMsg(CT7QPackageV3* package) {
  unsigned int result = receive(*package);
  while (stage_ == Stage::kNotReceived && isRetry()) {
    sendMsg_i(request_, length_);
    result = receive(*package);
  }
  return result;
}

/// Receives one reply.
unsigned int EndpointLink::receive(CT7QPackageV3& package) {
  const ACE_Time_Value timeout = timeValueOf(target_.timeout);
  if (const unsigned int result = recvData(buffer_.data(), replyLength_, &timeout); result != 0) {
    return result;
  }
  stage_ = Stage::kReceived;
  const unsigned int result =
      convert(reinterpret_cast<unsigned char*>(buffer_.data()), replyLength_, &package);
  fault_ = package.decodeFault();
  if (take_ && result == 0) {
    takeReply(package);
  }
  return result;
}

void EndpointLink::takeReply(const CT7QPackageV3& reply) {
  const auto status = reply.count() == 1 ? statusOf(reply[0]) : std::nullopt;
  const bool isRow = status && *status != endpoint::kEnd;
  if (isRow) {
    ++rows_;
    key_ = numberIn(reply[0].find(endpoint::kCursorTag));
  }
  take_(reply, isRow);
  checkOneRecord(reply);
  if (!status) {
    throw Failure(kBadData, "bad reply: its status (tag " + std::to_string(endpoint::kStatusTag) +
                                ") is no number");
  }
  status_ = *status;
  stage_ = Stage::kNotTried;
}

void EndpointLink::exchange(CT7QPackageV3& package) {
  stage_ = Stage::kNotTried;
  take_ = nullptr;
  check(sendMsg(&package));
}

void EndpointLink::exchangeForRecord(CT7QPackageV3& package) {
  exchange(package);
  checkOneRecord(package);
}

void EndpointLink::walk(CT7QPackageV3& request, const Taker& take) {
  stage_ = Stage::kNotTried;
  take_ = [&](const CT7QPackageV3& reply, bool isRow) {
    take(reply, isRow);
    // The library gathers there what it has read, and asks from a copy.
    request.clear();
  };
  check(sendGetNextMsgV3(&request));
  checkEndOfWalk();
}

void EndpointLink::checkEndOfWalk() const {
  if (status_ == endpoint::kEnd) {
    return;
  }
  if (status_ != endpoint::kRow) {
    throw Failure(kEndpointError,
                  "the endpoint ended the walk with status " + std::to_string(status_));
  }
  throw Failure(kIncomplete, "the walk stopped after " + std::to_string(rows_) +
                                 " rows, the table may have more; " +
                                 (key_ ? "--after " + std::to_string(*key_) + " goes on"
                                       : "the last row has no key to go on behind"));
}

void EndpointLink::check(unsigned int result) const {
  if (result == 0) {
    return;
  }
  // A result may be the endpoint's own, so it is not asked what it says.
  switch (stage_) {
    case Stage::kNotTried:
      // Its records are within their limits, so nothing else keeps it from being encoded.
      throw std::bad_alloc();
    case Stage::kNotSent:
      throwNoConnection();
    case Stage::kNotReceived:
      throwNoReply();
    case Stage::kReceived:
      throwBadReply();
  }
}

void EndpointLink::throwNoConnection() const {
  const std::string why = whyNotConnected();
  throw Failure(kNoConnection, why.empty() ? "the connection to " + target_.endpoint +
                                                 " was lost before the request was sent"
                                           : "no connection to " + target_.endpoint + ": " + why);
}

void EndpointLink::throwNoReply() const {
  switch (whyNotReceived()) {
    case EMSGSIZE:
      throwTooLong();
    case ETIME:
      throw Failure(kTimedOut, "no reply from " + target_.endpoint + " within " +
                                   secondsText(target_.timeout) + "; --timeout gives it longer");
    default:
      throw Failure(kNoConnection, "the connection to " + target_.endpoint +
                                       " was lost before the reply was there");
  }
}

void EndpointLink::throwTooLong() const {
  const TLVMsgHeadV3 head = headOf(buffer_.data());
  if (head.magic_ != TLVMsgHeadV3::kMagic) {
    const DecodeFault fault{DecodeFault::Kind::kMagic, 0, head.magic_, TLVMsgHeadV3::kMagic};
    throw Failure(kBadData, "bad reply: " + textOf(fault, Kind::kV3, 0));
  }
  const auto length = static_cast<std::int32_t>(head.len_);
  throw Failure(kBadData, "bad reply: LEN is " + std::to_string(length) + ", a reply has at most " +
                              std::to_string(kMaxMessage - kHeadSize));
}

void EndpointLink::throwBadReply() const {
  const TLVMsgHeadV3 head = headOf(buffer_.data());
  if (head.ser_ != serial_) {
    throw Failure(kBadData, "bad reply: its serial number is " + std::to_string(head.ser_) +
                                ", the request's is " + std::to_string(serial_));
  }
  if (head.ret_ != 0) {
    throw Failure(kEndpointError,
                  "the endpoint refused the request: " + resultText(head.ret_) +
                      (fault_.kind == DecodeFault::Kind::kNone
                           ? ""
                           : "; its reply cannot be decoded: " + textOf(fault_, Kind::kV3, 0)));
  }
  throw Failure(kBadData, "bad reply: " + textOf(fault_, Kind::kV3, 0));
}

}  // namespace qov::ctl
