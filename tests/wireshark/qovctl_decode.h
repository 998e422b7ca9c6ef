#ifndef QOV_TESTS_WIRESHARK_QOVCTL_DECODE_H
#define QOV_TESTS_WIRESHARK_QOVCTL_DECODE_H

#include <string>
#include <vector>

#include "tests/wireshark/tshark.h"

namespace qov::test {

/// What qovctl makes of bytes.
struct Decoded {
  std::vector<Json::Value> messages;  ///< their meanings
  std::string refused;                ///< its complaint about what follows them, if something does
};

Decoded decodeWithQovctl(const std::string& bytes);

/// Both have found the same messages in the same bytes, and the same fault behind them if any.
void expectAgreement(const std::vector<Shown>& shown, const Decoded& decoded);

}  // namespace qov::test

#endif
