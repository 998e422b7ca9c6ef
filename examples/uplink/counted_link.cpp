#include "examples/uplink/counted_link.h"

#include <cstring>

namespace devagent {

unsigned int CountedLink::sendMsg_i(const unsigned char* data, unsigned int length) {
  countRequest(data);
  const unsigned int result = CQOVLongSocket::sendMsg_i(data, length);
  failed_ = failed_ || result == kSocketFailed;
  return result;
}

unsigned int CountedLink::receiveMsg(CT7QPackageV3* package) {
  const unsigned int result = CQOVLongSocket::receiveMsg(package);
  if (result == kSocketFailed) {
    failed_ = true;
    return result;
  }
  ++tally_.answered;
  tally_.reconnects += failed_ ? 1 : 0;
  failed_ = false;
  return result;
}

/// Every exchange has a serial number of its own; a request that is sent once more keeps it.
void CountedLink::countRequest(const unsigned char* data) {
  TLVMsgHeadV3 head;
  std::memcpy(&head, data, sizeof head);
  if (tally_.exchanges != 0 && head.ser_ == lastSerial_) {
    ++tally_.resends;
  } else {
    ++tally_.exchanges;
  }
  lastSerial_ = head.ser_;
}

}  // namespace devagent
