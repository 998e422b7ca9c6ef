#include <gtest/gtest.h>
#include <qovpub/qov_testkit.h>

#include <stdexcept>

namespace {

constexpr std::uint64_t kRead = 0x1001;
constexpr std::uint16_t kName = 1;
constexpr std::uint16_t kStatus = 4095;

class FakeLink : public ::testing::Test {
 protected:
  unsigned int send(std::uint64_t command) {
    message_.clear();
    message_.addRecord(command).addString(kName, "eth0");
    return link_.sendMsg(&message_);
  }

  QOVTestProcess process_;
  QOVFakeLink link_;
  CT7QPackageV3 message_;
};

TEST_F(FakeLink, AnswersWithWhatTheTableFillsIn) {
  link_.answer(kRead, [](const CT7QPackageV3& request, CT7QPackageV3& answer) {
    answer.addRecord(kRead).addString(kName, std::string(request[0].getString(kName)) + "!");
  });

  ASSERT_EQ(send(kRead), 0U);
  EXPECT_EQ(message_[0].getString(kName), "eth0!");
  ASSERT_EQ(link_.sent().size(), 1U);
  EXPECT_EQ((*link_.sent()[0])[0].getString(kName), "eth0");
}

TEST_F(FakeLink, GivesTheResultOfTheEndpoint) {
  link_.answer(kRead, [](const CT7QPackageV3&, CT7QPackageV3& answer) { answer.head().ret_ = 77; });

  EXPECT_EQ(send(kRead), 77U);
}

TEST_F(FakeLink, FailsForWhatIsNotInTheTable) {
  link_.answer(kRead);

  EXPECT_EQ(send(kRead + 1), CQOVLongSocket::kSocketFailed);
  EXPECT_EQ(link_.sent().size(), 1U);
  EXPECT_EQ(send(kRead), 0U);
  EXPECT_EQ(message_.count(), 0U);
}

TEST_F(FakeLink, FailsWhenItIsTold) {
  link_.answer(kRead);
  EXPECT_EQ(send(kRead), 0U);
  link_.fail(kRead);
  EXPECT_EQ(send(kRead), CQOVLongSocket::kSocketFailed);
}

TEST_F(FakeLink, RefusesAReplyWithAnotherSerialNumberAsTheLinkDoes) {
  link_.answer(kRead, [](const CT7QPackageV3&, CT7QPackageV3& answer) { ++answer.head().ser_; });

  EXPECT_EQ(send(kRead), CQOVLongSocket::kBadReply);
}

TEST_F(FakeLink, IsWalked) {
  link_.answer(kRead, [row = 0](const CT7QPackageV3&, CT7QPackageV3& answer) mutable {
    CTLVRecordV3& record = answer.addRecord(kRead);
    record.addUnsigned(kStatus, ++row > 3 ? 1 : 0);
  });
  message_.addRecord(kRead);

  EXPECT_EQ(link_.sendGetNextMsgV3(&message_), 0U);
  ASSERT_EQ(message_.count(), 4U);
  EXPECT_EQ(message_[3].count(), 0U);
}

TEST_F(FakeLink, ThrowsWhatTheTableThrows) {
  link_.answer(kRead, [](const CT7QPackageV3&, CT7QPackageV3&) {
    throw std::runtime_error("not this time");
  });

  EXPECT_THROW(send(kRead), std::runtime_error);
  link_.answer(kRead);
  EXPECT_EQ(send(kRead), 0U);
}

}  // namespace
