#include "examples/uplink/counted_link.h"

namespace devagent {

unsigned int CountedLink::sendMsg_i(const unsigned char* data, unsigned int length) {
  ++(isRetry() ? tally_.resends : tally_.exchanges);
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

}  // namespace devagent
