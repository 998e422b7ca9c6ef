// What of qovctl shows in its own process only: memory that is short or held, a clock that jumps, a
// connection that is lost at a certain step.

#include <ace/Log_Msg.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <ctime>
#include <new>

#include "modules/common/json_object.h"
#include "modules/common/octets.h"
#include "tests/link/scripted_peer.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/latch.h"
#include "tests/support/sleeping_thread.h"
#include "tools/qovctl/decode_command.h"
#include "tools/qovctl/endpoint_commands.h"
#include "tools/qovctl/streams.h"

namespace {

std::atomic<time_t> secondsAhead{0};

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  using Read = int (*)(clockid_t, timespec*);
  static const auto real = reinterpret_cast<Read>(::dlsym(RTLD_NEXT, "clock_gettime"));
  const int result = real(clock, now);
  if (clock == CLOCK_MONOTONIC) {
    now->tv_sec += secondsAhead;
  }
  return result;
}

namespace qov::test {
namespace {

using tests::Bytes;

constexpr std::uint64_t kGetNext = 1ULL << 32;
constexpr unsigned int kOctet = 1;
constexpr unsigned int kUint = 3;

/// A row with `octets` in a cell.
Bytes rowOf(unsigned int octets, unsigned int key) {
  Bytes bytes;
  bytes.record(kGetNext + 1, 4 + octets + 4 + 1).cell(1, kOctet, octets);
  for (unsigned int i = 0; i < octets; ++i) {
    bytes.u8(i & 0xFFU);
  }
  return bytes.cell(4093, kUint, 1).u8(key);
}

Bytes endOfWalk() {
  return recordBytes(kGetNext + 1, 1);
}

ctl::Target targetAt(const ScriptedPeer& peer) {
  ctl::Target target;
  target.endpoint = peer.address();
  return target;
}

CT7QPackageV3 walkRequest() {
  CT7QPackageV3 request;
  request.addRecord(kGetNext + 1);
  return request;
}

/// The exit status and the text that `act` fails with.
template <class Act>
std::pair<int, std::string> failureOf(Act act) {
  try {
    act();
  } catch (const ctl::Failure& failure) {
    return {failure.code(), failure.what()};
  }
  return {ctl::kDone, ""};
}

class QovctlInside : public testing::Test {
 protected:
  // As without --verbose.
  QovctlInside() { ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::PROCESS); }
};

TEST_F(QovctlInside, KeepsNoReplyOfAWalk) {
  constexpr unsigned int kRows = 100;
  constexpr unsigned int kOctets = 5000;
  ScriptedPeer peer({[&](PeerConnection& link) {
    for (unsigned int key = 1; key <= kRows; ++key) {
      link.answer(rowOf(kOctets, key));
    }
    link.answer(endOfWalk());
  }});
  ctl::EndpointLink link(targetAt(peer));
  CT7QPackageV3 request = walkRequest();
  std::vector<long> held;
  held.reserve(kRows + 1);
  link.walk(request, [&](const CT7QPackageV3&, bool) { held.push_back(heldBytes()); });
  ASSERT_EQ(held.size(), kRows + 1);
  EXPECT_LT(held[kRows - 1] - held[kRows / 2], long{kOctets});
}

TEST_F(QovctlInside, SaysThatMemoryFailsWhenItDoesWithinAWalk) {
  ScriptedPeer peer({[](PeerConnection& link) { link.answer(rowOf(5000, 1)); }});
  ctl::EndpointLink link(targetAt(peer));
  CT7QPackageV3 request = walkRequest();
  // The row, sent back as the next request.
  const auto failing = FailingAllocations::ofArraysThatGiveNull(28 + rowOf(5000, 1).data().size());
  EXPECT_THROW(link.walk(request, [](const CT7QPackageV3&, bool) {}), std::bad_alloc);
  EXPECT_TRUE(failing.hasFailed());
}

TEST_F(QovctlInside, EndsTheJsonOfAWalkThatMemoryFails) {
  ScriptedPeer peer({[](PeerConnection& link) { link.answer(rowOf(5000, 1)); }});
  ctl::EndpointOptions options;
  options.target = targetAt(peer);
  options.format = ctl::Format::kJson;
  testing::internal::CaptureStdout();
  {
    const auto failing =
        FailingAllocations::ofArraysThatGiveNull(28 + rowOf(5000, 1).data().size());
    EXPECT_THROW(ctl::walk(options, 1, std::nullopt, ctl::Columns(nullptr)), std::bad_alloc);
  }
  ctl::finishOutput();
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(common::parseJson(printed)["messages"].size(), 1U);
}

TEST_F(QovctlInside, EndsTheJsonOfMessagesWhereverMemoryFails) {
  const Message request = Bytes().headV3(0).data();
  const Message message = answerTo(request, rowOf(3, 1));
  const std::string hex =
      common::hexText({reinterpret_cast<const char*>(message.data()), message.size()});
  ctl::DecodeOptions options;
  options.text = hex + hex;
  options.json = true;
  bool failed = true;
  bool begun = false;
  for (long count = 0; failed; ++count) {
    testing::internal::CaptureStdout();
    {
      const auto failing = FailingAllocations::ofThoseThatThrow(count);
      try {
        ctl::decode(options);
      } catch (const std::bad_alloc&) {
      }
      failed = failing.hasFailed();
    }
    ctl::finishOutput();
    const std::string printed = testing::internal::GetCapturedStdout();
    if (!printed.empty()) {
      begun = begun || failed;
      ASSERT_LE(common::parseJson(printed)["messages"].size(), 2U) << count;
    }
  }
  EXPECT_TRUE(begun);
}

TEST_F(QovctlInside, TellsALostConnectionFromOneThatTakesTooLong) {
  const pid_t asking = ::gettid();
  const auto late = [&](PeerConnection& link) {
    link.request();
    waitForThread([&] { return sleeps(asking); }, "waits for the reply");
    // More than the time-out, while the reply is waited for.
    secondsAhead += 3600;
  };
  ScriptedPeer peer({late, late});
  ctl::EndpointLink link(targetAt(peer));
  CT7QPackageV3 request = walkRequest();
  EXPECT_EQ(failureOf([&] { link.exchange(request); }),
            std::make_pair(int{ctl::kNoConnection}, "the connection to " + peer.address() +
                                                        " was lost before the reply was there"));
}

/// A request of `size` bytes.
CT7QPackageV3 requestOf(std::size_t size) {
  constexpr std::size_t kHead = 28;
  constexpr std::size_t kRecordAndCell = 10 + 4;
  const std::string octets(CTLVRecordV3::kMaxLength - 4, 'x');
  CT7QPackageV3 request;
  for (size -= kHead; size > 0;) {
    const std::size_t part = std::min(size - kRecordAndCell, octets.size());
    request.addRecord(1).addOctets(1, octets.data(), part);
    size -= kRecordAndCell + part;
  }
  return request;
}

TEST_F(QovctlInside, RefusesARequestThatIsLongerThanAnEndpointReads) {
  ScriptedPeer peer({[](PeerConnection& link) { link.request(); }});
  ctl::EndpointLink link(targetAt(peer));
  CT7QPackageV3 request = requestOf(2097153);
  EXPECT_EQ(failureOf([&] { link.exchange(request); }),
            std::make_pair(int{ctl::kBadData},
                           std::string("the request has 2097153 bytes, an endpoint reads at most "
                                       "2097152")));
  peer.join();
  EXPECT_EQ(peer.requests().size(), 0U);
}

TEST_F(QovctlInside, SendsARequestAsLongAsAnEndpointReads) {
  ScriptedPeer peer({[](PeerConnection& link) {
                       const Message head = link.head();
                       link.send(answerTo(head));
                       link.ignoreAll();
                     },
                     // When the system has taken a part of the request only.
                     [](PeerConnection& link) { link.ignoreAll(); }});
  ctl::EndpointLink link(targetAt(peer));
  CT7QPackageV3 request = requestOf(2097152);
  EXPECT_EQ(failureOf([&] { link.exchange(request); }),
            std::make_pair(int{ctl::kDone}, std::string()));
}

/// Sends nothing until the connection is gone that it would be sent on.
class LinkThatLoses : public ctl::EndpointLink {
 public:
  using EndpointLink::EndpointLink;

  unsigned int sendMsg_i(const unsigned char* data, unsigned int length) override {
    EXPECT_TRUE(gone.at(sent_++).waitFor());
    return EndpointLink::sendMsg_i(data, length);
  }

  std::array<Latch, 2> gone;

 private:
  std::size_t sent_ = 0;
};

TEST_F(QovctlInside, SaysThatTheConnectionWasLostBeforeTheRequestWasSent) {
  LinkThatLoses* losing = nullptr;
  Latch made;
  const auto lose = [&](std::size_t which) {
    return [&, which](PeerConnection& link) {
      EXPECT_TRUE(made.waitFor());
      link.reset();
      // Closes the socket, which its number stands for no more.
      const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
      ::dup2(nothing, link.socket());
      ::close(nothing);
      losing->gone[which].count();
    };
  };
  ScriptedPeer peer({lose(0), lose(1), [](PeerConnection& link) { link.ignoreAll(); }});
  LinkThatLoses link(targetAt(peer));
  losing = &link;
  made.count();
  CT7QPackageV3 request = walkRequest();
  EXPECT_EQ(failureOf([&] { link.exchange(request); }),
            std::make_pair(int{ctl::kNoConnection}, "the connection to " + peer.address() +
                                                        " was lost before the request was sent"));
}

}  // namespace
}  // namespace qov::test
