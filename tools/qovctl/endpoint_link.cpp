#include "tools/qovctl/endpoint_link.h"

#include <qovpub/qov_cell_bytes.h>
#include <qovpub/qov_exception.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string_view>
#include <utility>

#include "tools/common/endpoint_protocol.h"
#include "tools/qovctl/refusal.h"
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

template <class Word>
Word headField(const std::vector<char>& message, std::size_t offset) {
  return loadWord<Word>(reinterpret_cast<const unsigned char*>(message.data()) + offset);
}

/// What is wrong with bytes that are no V3 message.
std::string badReply(std::string_view bytes) {
  return "bad reply: " + textOf(findRefusal(bytes, Kind::kV3), 0);
}

/// The number in the cell with that tag of the reply's one record; nothing without it.
std::optional<std::uint64_t> cellNumber(const CT7QPackageV3& reply, unsigned short tag) {
  const CTLVCell* const cell = reply.count() == 1 ? reply[0].find(tag) : nullptr;
  if (cell == nullptr || cell->type() < CTLVCell::TLV_UINT) {
    return std::nullopt;
  }
  return cell->number();
}

}  // namespace

bool isRow(const CT7QPackageV3& reply) {
  if (reply.count() != 1) {
    return false;
  }
  const CTLVCell* const status = reply[0].find(endpoint::kStatusTag);
  return status == nullptr ||
         cellNumber(reply, endpoint::kStatusTag).value_or(endpoint::kEnd) != endpoint::kEnd;
}

std::optional<HostPort> hostPortOf(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    return std::nullopt;
  }
  std::string host = text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find_first_of(":[]") != std::string::npos) {
    return std::nullopt;
  }
  const auto port = numberOf(text.substr(colon + 1), 65535);
  if (!port || *port == 0) {
    return std::nullopt;
  }
  return HostPort{host, static_cast<unsigned short>(*port)};
}

EndpointLink::EndpointLink(const Target& target)
    : CQOVLongSocket(target.endpoint, {timeValueOf(std::min(target.timeout, kConnectSeconds)),
                                       timeValueOf(target.timeout), timeValueOf(target.timeout)}),
      target_(target),
      timeout_(timeValueOf(target.timeout)),
      buffer_(kMaxMessage) {
  if (!whyNotConnected().empty()) {
    throwNoConnection();
  }
}

unsigned int EndpointLink::sendMsg_i(const unsigned char* data, unsigned int length) {
  // Every exchange has a serial number of its own.
  const auto serial = loadWord<std::uint16_t>(data + offsetof(TLVMsgHeadV3, ser_));
  const bool again = sent_ && serial == serial_;
  serial_ = serial;
  tried_ = true;
  received_ = false;
  const unsigned int result = CQOVLongSocket::sendMsg_i(data, length);
  sent_ = result == 0;
  resent_ = resent_ || (again && sent_);
  return result;
}

unsigned int EndpointLink::receiveMsg(CT7QPackageV3* package) {
  using Clock = std::chrono::steady_clock;
  const auto timeout = std::chrono::duration<double>(target_.timeout);
  const auto begin = Clock::now();
  // So that what is left there by an earlier reply is not taken for this one's.
  std::fill_n(buffer_.begin(), kHeadSize, '\0');
  if (const unsigned int result = recvData(buffer_.data(), replyLength_, &timeout_); result != 0) {
    // Connecting anew is part of that time. It takes long only when the endpoint is silent as well.
    timedOut_ = Clock::now() - begin >= timeout;
    return result;
  }
  received_ = true;
  converted_ = convert(reinterpret_cast<unsigned char*>(buffer_.data()), replyLength_, package);
  records_ = package->count();
  if (take_ && converted_ == 0) {
    noteWalked(*package);
    take_(*package);
  }
  return converted_;
}

void EndpointLink::noteWalked(const CT7QPackageV3& reply) {
  status_ = cellNumber(reply, endpoint::kStatusTag);
  if (isRow(reply)) {
    ++rows_;
    key_ = cellNumber(reply, endpoint::kCursorTag);
  }
}

void EndpointLink::exchange(CT7QPackageV3& package) {
  check(sendMsg(&package));
}

void EndpointLink::exchangeForRecord(CT7QPackageV3& package) {
  exchange(package);
  if (records_ != 1) {
    throwNotOneRecord();
  }
}

void EndpointLink::walk(CT7QPackageV3& request, Taker take) {
  take_ = std::move(take);
  try {
    check(sendGetNextMsgV3(&request));
  } catch (const CQOV_Exception&) {
    throw Failure(kBadData, "bad reply: its status (tag " + std::to_string(endpoint::kStatusTag) +
                                ") is no number");
  }
  checkEndOfWalk();
}

void EndpointLink::checkEndOfWalk() const {
  if (status_ == endpoint::kEnd) {
    return;
  }
  if (status_.value_or(endpoint::kRow) != endpoint::kRow) {
    throw Failure(kEndpointError,
                  "the endpoint ended the walk with status " + std::to_string(*status_));
  }
  throw Failure(kIncomplete, "the walk stopped after " + std::to_string(rows_) +
                                 " rows, before the end of the table; " +
                                 (key_ ? "--after " + std::to_string(*key_) + " goes on"
                                       : "the last row has no key to go on behind"));
}

void EndpointLink::check(unsigned int result) const {
  if (result == 0) {
    return;
  }
  // A result may be the endpoint's own, so it is not asked what it says.
  if (!tried_) {
    throw Failure(kBadData, "the request cannot be encoded");
  }
  if (!sent_) {
    throwNoConnection();
  }
  if (!received_) {
    throwNoReply();
  }
  throwBadReply();
}

void EndpointLink::throwNoConnection() const {
  throw Failure(kNoConnection, "no connection to " + target_.endpoint + ": " + whyNotConnected());
}

void EndpointLink::throwNoReply() const {
  const auto length = headField<std::int32_t>(buffer_, offsetof(TLVMsgHeadV3, len_));
  if (length > static_cast<std::int32_t>(kMaxMessage - kHeadSize)) {
    const std::string_view head(buffer_.data(), kHeadSize);
    if (kindOfBytes(head) != Kind::kV3) {
      throw Failure(kBadData, badReply(head));
    }
    throw Failure(kBadData, "bad reply: LEN is " + std::to_string(length) +
                                ", a reply has at most " + std::to_string(kMaxMessage - kHeadSize));
  }
  if (timedOut_) {
    throw Failure(kTimedOut, "no reply from " + target_.endpoint + " within " +
                                 secondsText(target_.timeout) + "; --timeout gives it longer");
  }
  throw Failure(kNoConnection,
                "the connection to " + target_.endpoint + " was lost before the reply was there");
}

void EndpointLink::throwBadReply() const {
  const auto serial = headField<std::uint16_t>(buffer_, offsetof(TLVMsgHeadV3, ser_));
  if (serial != serial_) {
    throw Failure(kBadData, "bad reply: its serial number is " + std::to_string(serial) +
                                ", the request's is " + std::to_string(serial_));
  }
  if (const auto ret = headField<std::uint32_t>(buffer_, offsetof(TLVMsgHeadV3, ret_)); ret != 0) {
    throw Failure(kEndpointError, "the endpoint refused the request: " + resultText(ret));
  }
  if (converted_ != 0) {
    throw Failure(kBadData, badReply({buffer_.data(), replyLength_}));
  }
  throwNotOneRecord();
}

void EndpointLink::throwNotOneRecord() const {
  throw Failure(kBadData, "bad reply: it has " + std::to_string(records_) + " records, not one");
}

}  // namespace qov::ctl
