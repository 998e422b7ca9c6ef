#include <gtest/gtest.h>
#include <qovpub/qov_message_package.h>

namespace {

CQOV_MsgPackage request() {
  CQOV_MsgPackage package;
  QOVMsgHead& head = package.head();
  head.type_ = 1;
  head.mst_ = 9;
  head.spid_ = 1;
  head.smid_ = 2;
  head.rpid_ = 3;
  head.rmid_ = 4;
  head.flags_ = 0x81;
  head.cid_ = 5;
  head.opc_ = 6;
  head.len_ = 7;
  package.addRecord(8).addUnsigned(1, 1);
  return package;
}

TEST(Response, ExchangesSenderAndReceiver) {
  const auto response = CreateQovRspPackage(request());
  EXPECT_EQ(response->head().spid_, 3);
  EXPECT_EQ(response->head().smid_, 4);
  EXPECT_EQ(response->head().rpid_, 1);
  EXPECT_EQ(response->head().rmid_, 2);
}

TEST(Response, IsOfTypeTwoAndCarriesTheResult) {
  EXPECT_EQ(CreateQovRspPackage(request())->head().type_, 2);
  EXPECT_EQ(CreateQovRspPackage(request())->head().mst_, 0);
  EXPECT_EQ(CreateQovRspPackage(request(), 5)->head().mst_, 5);
}

TEST(Response, CarriesWhatTheRequesterMatchesItBy) {
  const CQOV_MsgPackage asked = request();
  const auto response = CreateQovRspPackage(asked);
  EXPECT_EQ(response->head().sn_, asked.head().sn_);
  EXPECT_EQ(response->head().opc_, 6U);
  EXPECT_EQ(response->head().cid_, 5);
}

TEST(Response, IsAPlainPackageWithoutRecords) {
  const auto response = CreateQovRspPackage(request());
  EXPECT_EQ(response->count(), 0U);
  EXPECT_EQ(response->head().len_, 0U);
  EXPECT_EQ(response->head().flags_, 0x80);
}

TEST(Response, TakesNoSerialOfItsOwn) {
  const CQOV_MsgPackage asked = request();
  CreateQovRspPackage(asked);
  EXPECT_EQ(QOVMsgHead().sn_, asked.head().sn_ + 1);
}

}  // namespace
