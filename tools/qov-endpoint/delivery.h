#ifndef QOV_TOOLS_QOV_ENDPOINT_DELIVERY_H
#define QOV_TOOLS_QOV_ENDPOINT_DELIVERY_H

#include <chrono>
#include <string>

#include "tools/qov-endpoint/counts.h"

namespace qov::endpoint {

/// The bytes that answer one request, and how they go out.
struct Delivery {
  enum class Then {
    kGoOn,    ///< the next request of this connection is answered
    kClose,   ///< the connection is closed
    kRefuse,  ///< as well, and for some time no other is accepted
  };

  std::string bytes;
  std::chrono::milliseconds delay{0};  ///< before the first byte
  bool singly = false;                 ///< each byte in a send of its own
  std::chrono::milliseconds pause{0};  ///< between two of these
  Then then = Then::kGoOn;
  std::chrono::milliseconds refusal{0};  ///< for kRefuse
  Counts counted;  ///< added to the counts just before the first byte goes out
};

}  // namespace qov::endpoint

#endif
