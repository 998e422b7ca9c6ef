#include <qovpub/qov_exception.h>
#include <unistd.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "tests/link/link_fixture.h"
#include "tests/support/sleeping_thread.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

using tests::Bytes;

constexpr unsigned int kUint = 3;
constexpr unsigned int kEnum = 6;

/// A row: command code 7, `key` under tag 1 and status 0.
Bytes rowBytes(unsigned int key) {
  Bytes bytes;
  bytes.record(7, 13).cell(1, kUint, 4).u32(key).cell(4095, kEnum, 1).u8(0);
  return bytes;
}

ScriptedPeer::Script answersWith(std::vector<Bytes> answers) {
  return [answers = std::move(answers)](PeerConnection& connection) {
    for (const Bytes& answer : answers) {
      connection.answer(answer);
    }
    connection.ignoreAll();
  };
}

Message bodyOf(const Message& message) {
  return {message.begin() + sizeof(TLVMsgHeadV3), message.end()};
}

class Walk : public LinkTest {
 protected:
  /// The command codes of what was gathered.
  std::vector<std::uint64_t> commands() const {
    std::vector<std::uint64_t> found;
    for (unsigned long i = 0; i < package.count(); ++i) {
      found.push_back(package[i].cmd());
    }
    return found;
  }
  /// The debug records but for those of the traffic.
  Strings remarks() const {
    Strings found;
    for (const std::string& record : records("DBG")) {
      if (record.find("DBG 65535 ") != 0) {
        found.push_back(record);
      }
    }
    return found;
  }
  static std::string dumpOf(const CTLVRecordV3& record) {
    std::ostringstream out;
    record.dump(out);
    return out.str();
  }
};

TEST_F(Walk, LeavesTheEmptyRecordOnlyOfATableThatIsEmpty) {
  plays({answersWith({recordBytes(8, 1)})});
  connects();
  EXPECT_EQ(walks(), 0U);
  ASSERT_THAT(commands(), ElementsAre(8));
  EXPECT_EQ(package[0].count(), 0U);
  EXPECT_THAT(records("ERR"), IsEmpty());
}

TEST_F(Walk, GathersTheRowsAndClosesTheList) {
  plays({answersWith({rowBytes(11), rowBytes(22), recordBytes(8, 1)})});
  connects();
  EXPECT_EQ(walks(), 0U);
  ASSERT_THAT(commands(), ElementsAre(7, 7, 8));
  EXPECT_EQ(package[0].getUnsigned(1), 11U);
  EXPECT_EQ(package[0].getUnsigned(MAX_TAG_VALUE), 0U);
  EXPECT_EQ(package[1].getUnsigned(1), 22U);
  EXPECT_EQ(package[2].count(), 0U);
}

TEST_F(Walk, SendsEachRowBackAsTheNextRequest) {
  plays({answersWith({rowBytes(11), rowBytes(22), recordBytes(8, 1)})});
  connects();
  package.addRecord(2);
  ASSERT_EQ(walks(), 0U);
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(bodyOf(requests[0]), Bytes().record(1, 0).record(2, 0).data());
  EXPECT_EQ(bodyOf(requests[1]), rowBytes(11).data());
  EXPECT_EQ(bodyOf(requests[2]), rowBytes(22).data());
  EXPECT_EQ(serialOf(requests[1]), serialOf(requests[0]) + 1);
}

TEST_F(Walk, AsksWithTheFieldsOfTheCallersHeader) {
  plays({answersWith({recordBytes(8, 1)})});
  connects();
  TLVMsgHeadV3& head = package.head();
  head.magic_ = 1;
  head.version_ = 2;
  head.ret_ = 3;
  head.ssk_ = 4;
  head.nid_ = 5;
  head.reserved_ = 6;
  head.bid_ = 7;
  head.ser_ = 8;
  ASSERT_EQ(walks(), 0U);
  Bytes expected;
  expected.u32(0x55555555).u32(3).u32(3).u32(4).u16(5).u16(6).u16(7);
  const Message request = peer.requests().front();
  EXPECT_EQ(Message(request.begin(), request.begin() + 22), expected.data());
  EXPECT_EQ(head.magic_, 1U);
  EXPECT_EQ(head.ser_, 8U);
}

TEST_F(Walk, TakesAnyNumberForAStatus) {
  for (unsigned int type = 3; type <= 9; ++type) {
    Bytes end;
    end.record(8, 8).cell(4095, type, 4).u32(1);
    ScriptedPeer other;
    other.open({answersWith({end})});
    TestLink toIt(other.port());
    CT7QPackageV3 asked;
    EXPECT_EQ(toIt.sendGetNextMsgV3(&asked), 0U) << type;
    EXPECT_EQ(asked.count(), 1U) << type;
  }
}

TEST_F(Walk, RefusesAStatusThatIsNoNumberAndKeepsTheRows) {
  for (unsigned int type = 0; type <= 2; ++type) {
    Bytes text;
    text.record(8, 5).cell(4095, type, 1).u8('1');
    ScriptedPeer other;
    other.open({answersWith({rowBytes(11), text, recordBytes(8)})});
    TestLink toIt(other.port());
    CT7QPackageV3 asked;
    try {
      toIt.sendGetNextMsgV3(&asked);
      ADD_FAILURE() << "nothing thrown for type " << type;
    } catch (const CQOV_Exception& e) {
      EXPECT_STREQ(e.what(), "CQOV_Exception: CTLVCell isn't numerical type! tag equal to 4095");
    }
    EXPECT_EQ(asked.count(), 1U);
    EXPECT_EQ(toIt.sendMsg(&asked), 0U);
  }
}

TEST_F(Walk, EndsWithTheRecordOfAnotherStatus) {
  Bytes odd;
  odd.record(9, 6).cell(4095, kUint, 2).u16(0x0101);
  plays({answersWith({rowBytes(11), odd})});
  connects();
  EXPECT_EQ(walks(), 0U);
  ASSERT_THAT(commands(), ElementsAre(7, 9));
  EXPECT_EQ(package[1].getUnsigned(MAX_TAG_VALUE), 0x0101U);
  EXPECT_THAT(records("ERR"),
              ElementsAre("ERR 65622 Return message error, error code is 257, message is : \n" +
                          dumpOf(package[1])));
  EXPECT_THAT(operations(), Contains("65622 sendGetNextMsgV3"));
}

TEST_F(Walk, RefusesAnswersOfOtherThanOneRecordAndKeepsTheRows) {
  for (const Bytes& wrong : {Bytes(), Bytes().record(8, 0).record(8, 0)}) {
    ScriptedPeer other;
    other.open({answersWith({rowBytes(11), wrong})});
    TestLink toIt(other.port());
    CT7QPackageV3 asked;
    log.clear();
    EXPECT_EQ(toIt.sendGetNextMsgV3(&asked), kBadReply);
    ASSERT_EQ(asked.count(), 1U);
    EXPECT_EQ(asked[0].getUnsigned(1), 11U);
    EXPECT_THAT(remarks(), ElementsAre("DBG 65621 Error:received many getnext messages!"));
    EXPECT_THAT(operations(), Contains("65621 sendGetNextMsgV3"));
    EXPECT_THAT(records("ERR"), IsEmpty());
  }
}

TEST_F(Walk, EndsWithTheResultOfAFailedExchangeAndKeepsTheRows) {
  plays({[](auto& connection) {
    connection.answer(rowBytes(11));
    connection.answer(rowBytes(22), 99);
  }});
  connects();
  EXPECT_EQ(walks(), 99U);
  EXPECT_THAT(commands(), ElementsAre(7));
}

TEST_F(Walk, GoesOnWhenTheConnectionIsLostOnTheWay) {
  plays({[](auto& connection) {
           connection.answer(rowBytes(11));
           connection.request();
         },
         answersWith({rowBytes(22), recordBytes(8, 1)})});
  connects();
  EXPECT_EQ(walks(), 0U);
  EXPECT_THAT(commands(), ElementsAre(7, 7, 8));
}

TEST_F(Walk, StopsBehindTenThousandRecordsWithoutAStatus) {
  constexpr unsigned int kMost = 10000;
  plays({[](PeerConnection& connection) {
    for (unsigned int i = 0; i <= kMost; ++i) {
      connection.answer(Bytes().record(7, 8).cell(1, kUint, 4).u32(i));
    }
  }});
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  connects();
  EXPECT_EQ(walks(), 0U);
  ASSERT_EQ(package.count(), kMost + 1);
  for (unsigned int i = 0; i < kMost; ++i) {
    ASSERT_EQ(package[i].getUnsigned(1), i);
  }
  EXPECT_EQ(package[kMost].cmd(), 7U);
  EXPECT_EQ(package[kMost].count(), 0U);
  EXPECT_EQ(peer.requests().size(), kMost);
  EXPECT_THAT(records(),
              ElementsAre("ERR 65623 Detect abnormal getnext command, rsp record is : \n" +
                          dumpOf(package[kMost - 1]) + "."));
  EXPECT_THAT(operations(), Contains("65623 sendGetNextMsgV3"));
}

TEST_F(Walk, ReadsATableOfTenThousandRowsLessOne) {
  constexpr unsigned int kRows = 9999;
  plays({[](PeerConnection& connection) {
    for (unsigned int i = 0; i < kRows; ++i) {
      connection.answer(rowBytes(i));
    }
    connection.answer(recordBytes(8, 1));
  }});
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  connects();
  EXPECT_EQ(walks(), 0U);
  EXPECT_EQ(package.count(), kRows + 1);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(Walk, LetsAnotherExchangeThatWaitsInBeforeItsNextStep) {
  unsigned int other = 1;
  plays({[&](PeerConnection& connection) {
    const Message first = connection.request();
    std::atomic<pid_t> id{0};
    std::thread asking([&] {
      CT7QPackageV3 asked;
      asked.addRecord(99);
      id = ::gettid();
      other = link->sendMsg(&asked);
    });
    waitForThread([&id] { return id != 0 && sleeps(id); }, "waits for its turn");
    connection.send(answerTo(first, rowBytes(0)));
    const Message next = connection.request();
    EXPECT_EQ(next[28], 99);
    connection.send(answerTo(next, rowBytes(1)));
    connection.answer(recordBytes(8, 1));
    asking.join();
  }});
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  connects();
  EXPECT_EQ(walks(), 0U);
  peer.join();
  EXPECT_EQ(other, 0U);
  EXPECT_THAT(commands(), ElementsAre(7, 8));
}

TEST_F(Walk, TracesItself) {
  plays({answersWith({recordBytes(8, 1), Bytes(), recordBytes(8, 2)})});
  connects();
  const std::string walk = "unsigned int CQOVLongSocket::sendGetNextMsgV3(CT7QPackageV3*)";
  for (const char* end : {": OK", ": OK", ": NOK"}) {
    log.log().priority_mask(LM_TRACE, ACE_Log_Msg::PROCESS);
    log.clear();
    walks();
    ASSERT_THAT(messages("TRACE"), ::testing::Not(IsEmpty()));
    EXPECT_EQ(messages("TRACE").front(), "enter " + walk + "...");
    EXPECT_EQ(messages("TRACE").back(), "leave " + walk + end);
  }
}

}  // namespace
}  // namespace qov::test
