#ifndef QOV_TESTS_LINK_EXCHANGE_FIXTURE_H
#define QOV_TESTS_LINK_EXCHANGE_FIXTURE_H

#include <string>

#include "tests/link/link_fixture.h"

/// What the tests of exchanges share: how endpoints answer, and what is logged when they do not.
namespace qov::test {

inline constexpr const char* kHeadFailed = "It failed to receive v3 message head!";
inline constexpr const char* kBodyFailed = "It failed to receive v3 message body!";
inline constexpr const char* kClosed =
    "Failed to receive V3 message, error is Link has been severed";

/// Sends the first `count` bytes of an answer with one record.
inline ScriptedPeer::Script answersOnly(std::size_t count) {
  return [count](PeerConnection& connection) {
    Message answer = answerTo(connection.request(), recordBytes(77));
    answer.resize(count);
    connection.send(answer);
  };
}
inline const ScriptedPeer::Script answers = [](PeerConnection& connection) {
  connection.answerAll(recordBytes(77));
};

}  // namespace qov::test

#endif
