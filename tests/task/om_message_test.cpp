#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "tests/task/task_fixture.h"

namespace {

constexpr std::uint64_t kHandled = 1;
constexpr std::uint64_t kThrown = 2;

/// OM packages on their way through a module; every one is dropped with its inner package.
class OmMessageTest : public TaskTest {
 protected:
  OmMessageTest()
      : module_([this](CQOV_Task&, CQOV_MsgPackage& pkg) {
          const auto* const om = dynamic_cast<CQOV_OM_MsgPackage*>(&pkg);
          text_ = om != nullptr ? std::string((*om->get())[0].getString(1)) : "no OM package";
          if (pkg.head().opc_ == kThrown) {
            throw std::runtime_error("no");
          }
          return 0;
        }) {}

  void SetUp() override { ASSERT_TRUE(module_.init()); }

  /// An OM message whose inner package tells when it is deleted.
  std::unique_ptr<CQOV_MsgPackage> makeOm(int type, std::uint64_t opc = kHandled,
                                          std::uint8_t receiver = kModule) {
    class Inner : public CT7QPackageV3 {
     public:
      explicit Inner(Latch& deleted) : deleted_(deleted) {}
      ~Inner() override { deleted_.count(); }

     private:
      Latch& deleted_;
    };
    auto message = std::make_unique<CQOV_OM_MsgPackage>(new Inner(deleted_));
    message->head() = makeMessage(type, opc, receiver)->head();
    message->head().flags_ |= QOVMsgHead::kFlagOm;
    message->get()->addRecord(1).addString(1, "a text of more than nineteen bytes");
    return message;
  }

  void put(std::unique_ptr<CQOV_MsgPackage> message) {
    ASSERT_LT(0, module_.putq(makeBlock(std::move(message)), nullptr));
  }

  // Read when the package is gone.
  std::string text_;
  Latch deleted_;
  TestModule module_;
};

}  // namespace

TEST_F(OmMessageTest, ReachesItsHandlerAndIsDeletedBehindIt) {
  put(makeOm(3));
  ASSERT_TRUE(deleted_.waitFor());
  EXPECT_EQ("a text of more than nineteen bytes", text_);
}

TEST_F(OmMessageTest, IsDeletedWhenItsHandlerThrows) {
  put(makeOm(3, kThrown));
  ASSERT_TRUE(deleted_.waitFor());
  EXPECT_EQ("a text of more than nineteen bytes", text_);
}

TEST_F(OmMessageTest, IsDumpedWithItsInnerPackageWhenItsHandlerThrows) {
  put(makeOm(3, kThrown));
  EXPECT_TRUE(log_.waitFor("LEN=0\n}\n{\nRET=0\n"));
}

TEST_F(OmMessageTest, IsDeletedWhenItsTypeIsUnknown) {
  put(makeOm(9));
  EXPECT_TRUE(deleted_.waitFor());
}

TEST_F(OmMessageTest, IsDeletedWhenItsReceiverDoesNotExist) {
  put(makeOm(3, kHandled, kModule + 1));
  EXPECT_TRUE(deleted_.waitFor());
}

TEST_F(OmMessageTest, IsDeletedWhenNobodyWaitsForTheResponseThatItIs) {
  put(makeOm(2));
  EXPECT_TRUE(deleted_.waitFor());
}

TEST_F(OmMessageTest, IsDeletedOnRequestWhenItCannotBeSent) {
  CQOV_Task task(&module_);
  CQOV_MsgPackage present;
  CQOV_MsgPackage* response = &present;
  EXPECT_EQ(-1, task.send(makeOm(1).release(), response, nullptr, true));
  EXPECT_EQ(1, deleted_.counted());
}

TEST_F(OmMessageTest, IsDeletedWhenItStillWaitsAtTheEndOfTheModule) {
  endWhileMessagesWait(log_, 10, [this] { return makeOm(3, kHandled, kModule + 1); });
  EXPECT_EQ(10, deleted_.counted());
}
