#include <ace/Log_Msg.h>
#include <gtest/gtest.h>
#include <qovpub/qov_message_package.h>

#include <cerrno>
#include <new>
#include <string>
#include <vector>

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

Bytes longMessage() {
  Bytes message;
  constexpr unsigned int kRecord = 10 + 60 * (4 + 24);
  message.head(12 * kRecord);
  for (unsigned int r = 0; r < 12; ++r) {
    message.record(r, kRecord - 10);
    for (unsigned int i = 0; i < 60; ++i) {
      message.cell(i, 1, 24).fill(24, static_cast<unsigned char>(i));
    }
  }
  return message;
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
    try {
      const FailingAllocations fail(failures);
      result = package.decode(message.begin(), message.size());
      error = errno;
      failed = fail.hasFailed();
    } catch (const std::bad_alloc&) {
      // The text for the log found no memory either.
      ASSERT_TRUE(failed);
      continue;
    }
    ASSERT_EQ(result, failed ? CQOV_MsgPackage::kFailed : message.size() - 32) << failures;
    ASSERT_EQ(package.count(), failed ? 0U : 13U);
    ASSERT_EQ(error, failed ? ENOMEM : 0);
  }
  EXPECT_GT(failures, 100);
}

TEST_F(NoMemory, MakesTheAllocatingEncodeFail) {
  CT7QPackageV3 package;
  package.addRecord(1).addUnsigned(1, 1);
  unsigned char* bytes = nullptr;
  const FailingAllocations fail(0);
  EXPECT_EQ(package.encode(bytes), CT7QPackageV3::kFailed);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(errno, ENOMEM);
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

TEST_F(NoMemory, GivesNoResponse) {
  const CQOV_MsgPackage request;
  const FailingAllocations fail(0);
  errno = 0;
  EXPECT_EQ(CreateQovRspPackage(request), nullptr);
  EXPECT_EQ(errno, ENOMEM);
}

}  // namespace
