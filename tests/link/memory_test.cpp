#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <new>

#include "tests/diag/process_root.h"
#include "tests/link/link_fixture.h"
#include "tests/support/failing_allocations.h"

using ::testing::IsEmpty;

namespace qov::test {
namespace {

using tests::Bytes;

constexpr unsigned int kBufferSize = 2097152;
constexpr unsigned int kUint = 3;

/// A table of three rows, each asked for with the one before it.
void answersTable(PeerConnection& connection) {
  constexpr std::size_t kKey = 28 + 10 + 4;
  for (;;) {
    const Message request = connection.request();
    const unsigned int row = request.size() > kKey ? request[kKey] : 0U;
    connection.send(answerTo(request, row == 3
                                          ? recordBytes(7, 1)
                                          : Bytes().record(7, 5).cell(1, kUint, 1).u8(row + 1)));
  }
}

class NoMemory : public LinkTest {
 protected:
  static constexpr std::size_t kConnections = 500;

  NoMemory() {
    plays(std::vector<ScriptedPeer::Script>(kConnections, answersTable));
    log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  }
};

TEST_F(NoMemory, ToReceiveInComesThrough) {
  const auto failing = FailingAllocations::ofSize(kBufferSize);
  EXPECT_THROW(connects(), std::bad_alloc);
}

TEST_F(NoMemory, AnywhereInConnectingAnewLeavesTheLinkUsable) {
  connects();
  bool failed = true;
  for (long count = 0; failed; ++count) {
    {
      const auto failing = FailingAllocations::ofThoseThatThrow(count);
      try {
        EXPECT_EQ(link->setupConnection(), 0);
      } catch (const std::bad_alloc&) {
      }
      failed = failing.hasFailed();
    }
    EXPECT_EQ(sends(), 0U) << count;
  }
}

/// Listens at an address whose text is too long for a string without memory of its own.
class LongAddress {
 public:
  LongAddress() {
    const ACE_INET_Addr any(u_short{0}, "127.100.100.100");
    const auto* name = static_cast<const sockaddr*>(any.get_addr());
    socklen_t size = sizeof name_;
    EXPECT_EQ(::bind(listener_, name, static_cast<socklen_t>(any.get_size())), 0);
    EXPECT_EQ(::listen(listener_, 100), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&name_), &size), 0);
  }
  ~LongAddress() { ::close(listener_); }
  LongAddress(const LongAddress&) = delete;
  LongAddress& operator=(const LongAddress&) = delete;

  ACE_INET_Addr get() const { return ACE_INET_Addr(&name_, sizeof name_); }

 private:
  const int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in name_{};
};

class LongNamedLink : public CQOVLongSocket {
 public:
  explicit LongNamedLink(const ACE_INET_Addr& address) : CQOVLongSocket(address, Limits()) {}
};

TEST_F(NoMemory, AnywhereInTheMakingOfALinkLeavesNoConnectionBehind) {
  const LongAddress address;
  bool failed = true;
  for (long count = 0; failed; ++count) {
    const auto failing = FailingAllocations::ofThoseThatThrow(count);
    try {
      const LongNamedLink made(address.get());
    } catch (const std::bad_alloc&) {
    }
    failed = failing.hasFailed();
  }
  EXPECT_THAT(socketsTo(address.get().get_port_number()), IsEmpty());
}

TEST_F(NoMemory, ToEncodeIsReported) {
  connects();
  {
    const auto failing = FailingAllocations::ofArraysThatGiveNull(38);
    EXPECT_EQ(sends(), kNotEncoded);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(sends(), 0U);
}

/// A table of `rows` rows.
ScriptedPeer::Script answersRows(unsigned int rows) {
  return [rows](PeerConnection& connection) {
    for (unsigned int i = 0; i < rows; ++i) {
      connection.answer(Bytes().record(7, 8).cell(1, kUint, 4).u32(i));
    }
    connection.answer(recordBytes(7, 1));
  };
}

/// Says how much memory is held while it sends its last request.
class Weighed : public TestLink {
 public:
  using TestLink::TestLink;
  unsigned int sendMsg_i(const unsigned char* data, unsigned int length) override {
    held = heldBytes();
    return TestLink::sendMsg_i(data, length);
  }
  long held = 0;
};

class WalkMemory : public LinkTest {
 protected:
  WalkMemory() { log.log().priority_mask(0, ACE_Log_Msg::PROCESS); }
};

TEST_F(WalkMemory, IsThatOfTheRecordsOnly) {
  plays({answersRows(2000)});
  Weighed weighed(peer.port());
  const long before = heldBytes();
  EXPECT_EQ(weighed.sendGetNextMsgV3(&package), 0U);
  EXPECT_EQ(package.count(), 2001U);
  // The last request and the answer before it are small.
  EXPECT_LT(weighed.held - heldBytes(), 4000);
  package.clear();
  EXPECT_LT(heldBytes() - before, 4000);
}

TEST_F(WalkMemory, IsTakenAsOftenForEachRow) {
  const auto allocationsFor = [](unsigned int rows) {
    ScriptedPeer table({answersRows(rows)});
    TestLink toIt(table.port());
    CT7QPackageV3 asked;
    asked.addRecord(7);
    const long before = allocations();
    EXPECT_EQ(toIt.sendGetNextMsgV3(&asked), 0U);
    return allocations() - before;
  };
  const long few = allocationsFor(200);
  EXPECT_GT(few, 200);
  EXPECT_LE(allocationsFor(400), 2 * few);
}

TEST_F(NoMemory, AnywhereInAWalkLeavesTheLinkUsable) {
  connects();
  bool failed = true;
  for (long count = 0; failed; ++count) {
    CT7QPackageV3 asked;
    asked.addRecord(1);
    unsigned int result = 0;
    bool thrown = false;
    {
      const FailingAllocations failing(count);
      try {
        result = link->sendGetNextMsgV3(&asked);
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
      failed = failing.hasFailed();
    }
    EXPECT_EQ(result == 0 && !thrown, !failed) << count;
    EXPECT_EQ(asked.count() == 4, !failed) << count;
    CT7QPackageV3 other;
    EXPECT_EQ(link->sendMsg(&other), 0U);
  }
}

}  // namespace
}  // namespace qov::test
