#include "task/response_slot.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/task/task_fixture.h"

namespace {

class ResponseSlotTest : public TaskTest {
 protected:
  qov::ResponseSlot slot_;
};

}  // namespace

TEST_F(ResponseSlotTest, HandsABlockOver) {
  ACE_Message_Block* const block = makeBlock(makeMessage(2, 1));
  slot_.put(block);
  EXPECT_EQ(block, slot_.take());
  qov::releaseWithPackage(block);
}

TEST_F(ResponseSlotTest, AWakeUpBeforeTheWaitEndsTheWait) {
  slot_.wake();
  EXPECT_EQ(nullptr, slot_.take());
}

TEST_F(ResponseSlotTest, AWakeUpEmptiesTheSlot) {
  slot_.put(makeBlock(makeMessage(2, 1)));
  slot_.wake();
  EXPECT_EQ(nullptr, slot_.take());
}

TEST_F(ResponseSlotTest, AForgottenWakeUpEndsNoWait) {
  slot_.wake();
  slot_.reset();
  ACE_Message_Block* const block = makeBlock(makeMessage(2, 1));
  std::thread responder([&] { slot_.put(block); });
  EXPECT_EQ(block, slot_.take());
  responder.join();
  qov::releaseWithPackage(block);
}

TEST_F(ResponseSlotTest, AStopEndsEveryWait) {
  slot_.stop();
  EXPECT_EQ(nullptr, slot_.take());
  slot_.reset();
  EXPECT_EQ(nullptr, slot_.take());
}

TEST_F(ResponseSlotTest, AResponseThatNobodyTookIsFreed) {
  const int before = CountedPackage::alive();
  slot_.put(makeBlock(makeMessage(2, 1)));
  slot_.put(makeBlock(makeMessage(2, 2)));
  EXPECT_EQ(before + 1, CountedPackage::alive());
  slot_.reset();
  EXPECT_EQ(before, CountedPackage::alive());
}

TEST_F(ResponseSlotTest, ANullBlockDoesNotEmptyTheSlot) {
  ACE_Message_Block* const block = makeBlock(makeMessage(2, 1));
  slot_.put(block);
  slot_.put(nullptr);
  EXPECT_EQ(block, slot_.take());
  qov::releaseWithPackage(block);
}
