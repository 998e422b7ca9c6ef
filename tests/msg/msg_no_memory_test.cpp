#include <ace/Log_Msg.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_om_message_package.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "tests/diag/log_capture.h"
#include "tests/msg/bytes.h"
#include "tests/support/failing_allocations.h"

namespace {

using qov::test::FailingAllocations;
using qov::tests::Bytes;

/// Keeps the failures out of the log, whose own allocations would fail with them.
class NoMemory : public testing::Test {
 protected:
  NoMemory() : mask_(ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS)) {
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::THREAD);
  }
  ~NoMemory() override { ACE_LOG_MSG->priority_mask(mask_, ACE_Log_Msg::PROCESS); }

 private:
  const u_long mask_;
};

// Every other value has room in a package's memory; the others are longer than its pieces.
constexpr unsigned int kLongRecord = 10 + 30 * (4 + 24) + 30 * (4 + 1000);
constexpr unsigned int kLongBody = 12 * kLongRecord;

Bytes& addLongBody(Bytes& message) {
  for (unsigned int r = 0; r < 12; ++r) {
    message.record(r, kLongRecord - 10);
    for (unsigned int i = 0; i < 60; ++i) {
      const unsigned short length = i % 2 == 0 ? 24 : 1000;
      message.cell(i, 1, length).fill(length, static_cast<unsigned char>(i));
    }
  }
  return message;
}

Bytes longMessage() {
  Bytes message;
  return addLongBody(message.head(kLongBody));
}

Bytes omMessage() {
  Bytes message;
  return message.head(28).set(11, QOVMsgHead::kFlagOm).headV3(0);
}

Bytes longOmMessage() {
  Bytes message;
  return addLongBody(message.head(28 + kLongBody).set(11, QOVMsgHead::kFlagOm).headV3(kLongBody));
}

TEST_F(NoMemory, MakesDecodingFailWhereverItMeetsIt) {
  Bytes message = longMessage();
  long failures = 0;
  for (bool failed = true; failed; ++failures) {
    CQOV_MsgPackage package;
    package.addRecord(99);
    errno = 0;
    unsigned int result = 0;
    int error = 0;
    {
      const FailingAllocations fail(failures);
      ASSERT_NO_THROW(result = package.decode(message.begin(), message.size())) << failures;
      error = errno;
      failed = fail.hasFailed();
    }
    ASSERT_EQ(result, failed ? CQOV_MsgPackage::kFailed : message.size() - 32) << failures;
    ASSERT_EQ(package.count(), failed ? 0U : 13U);
    ASSERT_EQ(error, failed ? ENOMEM : 0);
  }
  EXPECT_GT(failures, 100);
}

TEST(NoMemoryOnce, MakesDecodingFailWithALogLineOrDoes) {
  Bytes message = longMessage();
  unsigned int refusals = 0;
  bool failed = true;
  for (long count = 0; failed; ++count) {
    CQOV_MsgPackage package;
    const LogCapture log;
    unsigned int result = 0;
    {
      const FailingAllocations fail(count, 1);
      result = package.decode(message.begin(), message.size());
      failed = fail.hasFailed();
    }
    if (result == CQOV_MsgPackage::kFailed) {
      ++refusals;
      ASSERT_NE(log.text().find("no memory for the "), std::string::npos) << count;
    }
    ASSERT_EQ(package.count(), result == CQOV_MsgPackage::kFailed ? 0U : 12U) << count;
  }
  EXPECT_GT(refusals, 100U);
}

TEST(NoMemoryOnce, MakesTheAllocatingEncodeFailWithALogLine) {
  CT7QPackageV3 package;
  package.addRecord(1).addUnsigned(1, 1);
  unsigned char own = 0;
  unsigned char* bytes = &own;
  const LogCapture log;
  errno = 0;
  {
    const FailingAllocations fail = FailingAllocations::ofSize(43);
    EXPECT_EQ(package.encode(bytes), CT7QPackageV3::kFailed);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_NE(log.text().find("no memory for the message! data size=43!\n"), std::string::npos);
}

TEST_F(NoMemory, IsNotTakenForTextThatIsNotJson) {
  Json::Value v("kept");
  const std::string text = "{\"name\":[1,2,\"a text of more than fifteen bytes\"]}";
  const CTLVCell cell(CTLVCell::TLV_JSON, 1, text.data(), text.size());
  bool failed = true;
  for (long count = 0; failed; ++count) {
    bool parsed = false;
    bool thrown = false;
    const FailingAllocations fail(count);
    try {
      parsed = cell.getJson(v);
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
    failed = fail.hasFailed();
    ASSERT_EQ(thrown, failed) << count;
    ASSERT_EQ(parsed, !failed) << count;
    ASSERT_EQ(v.isString(), failed) << count;
  }
}

TEST_F(NoMemory, LeavesACellAsItWas) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 7, "abc", 3);
  const std::string longText(100, 'x');
  const FailingAllocations fail(0);
  errno = 0;
  EXPECT_THROW(cell.setString(1, longText), std::bad_alloc);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(cell.tag(), 7);
  EXPECT_EQ(cell.getOctets(), "abc");
}

TEST_F(NoMemory, LeavesARecordAsItWas) {
  const std::string longText(100, 'x');
  CTLVRecordV3 record;
  for (unsigned short tag = 0; tag < 4; ++tag) {
    record.addUnsigned(tag, tag);
  }
  const FailingAllocations fail(0);
  EXPECT_THROW(record.addUnsigned(4, 4), std::bad_alloc);
  EXPECT_THROW(record.addString(4, longText), std::bad_alloc);
  EXPECT_EQ(record.count(), 4U);
}

TEST_F(NoMemory, LetsALargeRecordBeReadWithoutItsIndex) {
  CTLVRecordV3 record;
  for (unsigned short tag = 0; tag < 500; ++tag) {
    record.addUnsigned(tag, tag);
  }
  const CTLVRecordV3& same = record;
  for (long count = 0; count < 12; ++count) {
    const FailingAllocations fail(count);
    EXPECT_EQ(same.getUnsigned(499), 499U);
    EXPECT_EQ(same.find(500), nullptr);
  }
}

TEST_F(NoMemory, LetsALargeRecordGrowWithoutItsIndex) {
  unsigned int grown = 0;
  for (long count = 0; count < 4; ++count) {
    CTLVRecordV3 record;
    for (unsigned short tag = 0; tag < 150; ++tag) {
      record.addUnsigned(tag, tag);
    }
    const CTLVRecordV3& same = record;
    ASSERT_EQ(same.getUnsigned(149), 149U);
    bool added = true;
    {
      const FailingAllocations fail(count);
      try {
        record.addUnsigned(4000, 7);
      } catch (const std::bad_alloc&) {
        added = false;
      }
      grown += added && fail.hasFailed() ? 1 : 0;
    }
    EXPECT_EQ(same.find(4000) != nullptr, added) << count;
    EXPECT_EQ(same.getUnsigned(149), 149U);
  }
  EXPECT_GE(grown, 1U);
}

TEST_F(NoMemory, GivesNoResponse) {
  const CQOV_MsgPackage request;
  const FailingAllocations fail(0);
  errno = 0;
  EXPECT_EQ(CreateQovRspPackage(request), nullptr);
  EXPECT_EQ(errno, ENOMEM);
}

TEST(NoMemoryOnce, LeavesAnOmPackageWithoutAnInnerOneAsItWas) {
  Bytes message = omMessage();
  CQOV_OM_MsgPackage package(nullptr);
  const std::uint32_t serial = package.head().sn_;
  const LogCapture log;
  errno = 0;
  {
    const FailingAllocations fail = FailingAllocations::ofSize(sizeof(CT7QPackageV3));
    EXPECT_EQ(package.decode(message.begin(), message.size()), CQOV_MsgPackage::kFailed);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_NE(log.text().find("no memory for the message!"), std::string::npos);
  EXPECT_EQ(package.get(), nullptr);
  EXPECT_EQ(package.head().sn_, serial);
  EXPECT_EQ(package.decode(message.begin(), message.size()), 0U);
}

/// Decodes the long message into `package` with each allocation failing from one on, which is
/// another in each round.
template <class Make>
void expectNoDecodingWithoutMemory(const Make& make) {
  Bytes message = longOmMessage();
  long failures = 0;
  for (bool failed = true; failed; ++failures) {
    const std::unique_ptr<CQOV_OM_MsgPackage> package = make();
    const CT7QPackageV3* const inner = package->get();
    unsigned int result = 0;
    int error = 0;
    {
      const FailingAllocations fail(failures);
      errno = 0;
      ASSERT_NO_THROW(result = package->decode(message.begin(), message.size())) << failures;
      error = errno;
      failed = fail.hasFailed();
    }
    ASSERT_EQ(result, failed ? CQOV_MsgPackage::kFailed : kLongBody) << failures;
    ASSERT_EQ(error, failed ? ENOMEM : 0) << failures;
    ASSERT_TRUE(inner == nullptr || inner == package->get()) << failures;
    ASSERT_EQ(package->get() != nullptr ? package->get()->count() : 0U, failed ? 0U : 12U);
  }
  EXPECT_GT(failures, 100);
}

TEST_F(NoMemory, MakesDecodingAnOmPackageFailWhereverItMeetsIt) {
  expectNoDecodingWithoutMemory([] { return std::make_unique<CQOV_OM_MsgPackage>(nullptr); });
  expectNoDecodingWithoutMemory([] {
    auto package = std::make_unique<CQOV_OM_MsgPackage>(new CT7QPackageV3);
    package->get()->addRecord(99);
    return package;
  });
}

TEST_F(NoMemory, MakesCopyingAnOmPackageThrowWhereverItMeetsIt) {
  Bytes message = longOmMessage();
  CQOV_OM_MsgPackage package(nullptr);
  ASSERT_EQ(package.decode(message.begin(), message.size()), kLongBody);
  package.addRecord(5).addString(1, std::string(100, 'x'));
  long failures = 0;
  for (bool failed = true; failed; ++failures) {
    bool thrown = false;
    const FailingAllocations fail(failures);
    try {
      const CQOV_OM_MsgPackage copy(package);
      ASSERT_EQ(copy.count(), 1U);
      ASSERT_EQ(copy.get()->count(), 12U);
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
    failed = fail.hasFailed();
    ASSERT_EQ(thrown, failed) << failures;
  }
  EXPECT_GT(failures, 100);
}

TEST(NoMemoryOnce, MakesTheAllocatingEncodeOfAnOmPackageFailWithALogLine) {
  CQOV_OM_MsgPackage package(new CT7QPackageV3);
  package.head().len_ = 99;
  unsigned char own = 0;
  unsigned char* bytes = &own;
  const LogCapture log;
  errno = 0;
  {
    const FailingAllocations fail = FailingAllocations::ofSize(64);
    EXPECT_EQ(package.encode(bytes), CQOV_MsgPackage::kFailed);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_NE(log.text().find("no memory for the message! data size=64!\n"), std::string::npos);
  EXPECT_EQ(package.head().len_, 99U);
}

TEST_F(NoMemory, LeavesAnOmPackageWithItsInnerOneWhenItIsAssigned) {
  auto* const inner = new CT7QPackageV3;
  CQOV_OM_MsgPackage package(inner);
  const CQOV_OM_MsgPackage other(new CT7QPackageV3);
  const FailingAllocations fail(0);
  EXPECT_THROW(package = other, std::bad_alloc);
  EXPECT_EQ(package.get(), inner);
}

TEST_F(NoMemory, GivesNoPackageForAHeader) {
  QOVMsgHead head;
  for (const std::uint8_t flags : {std::uint8_t{0}, QOVMsgHead::kFlagOm}) {
    head.flags_ = flags;
    const FailingAllocations fail(0);
    errno = 0;
    EXPECT_EQ(CreateQovMsgPackage(head), nullptr);
    EXPECT_EQ(errno, ENOMEM);
  }
}

}  // namespace
