#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_long_socket.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "link/dump_text.h"

namespace {

enum Status : std::uint64_t { kRow = 0, kEnd = 1 };

/// A request with the caller's records and those fields of its header that say who asks.
CT7QPackageV3 requestLike(const CT7QPackageV3& package) {
  CT7QPackageV3 request(package);
  const TLVMsgHeadV3& asked = package.head();
  TLVMsgHeadV3 head;
  head.ret_ = asked.ret_;
  head.ssk_ = asked.ssk_;
  head.nid_ = asked.nid_;
  head.reserved_ = asked.reserved_;
  head.bid_ = asked.bid_;
  head.ser_ = asked.ser_;
  request.head() = head;
  return request;
}

/// An answer without a status is a row. Throws when the status is no number.
std::uint64_t statusOf(const CTLVRecordV3& record) {
  const CTLVCell* const status = record.find(MAX_TAG_VALUE);
  if (status == nullptr) {
    return kRow;
  }
  status->checkNumerical();
  return status->number();
}

void appendCopy(CT7QPackageV3& package, const CTLVRecordV3& record) {
  auto copy = std::make_unique<CTLVRecordV3>(record);
  package.append(copy.get());
  static_cast<void>(copy.release());
}

std::string dumpIfError(const CTLVRecordV3& record) {
  return CQOVDebugKit::isOn(LM_ERROR) ? qov::dumpOf(record) : std::string();
}

}  // namespace

unsigned int CQOVLongSocket::sendGetNextMsgV3(CT7QPackageV3* package) {
  CQOVDebugKitGuard guard(0, "unsigned int CQOVLongSocket::sendGetNextMsgV3(CT7QPackageV3*)");
  constexpr int kMostRows = 10000;
  CT7QPackageV3 working = requestLike(*package);
  package->clear();
  for (int rows = 0; rows < kMostRows; ++rows) {
    const unsigned int result = sendMsg(&working);
    if (result != 0) {
      return result;
    }
    if (working.count() != 1) {
      guard.debug(65621, __FUNCTION__, __LINE__, "Error:received many getnext messages!");
      return kBadReply;
    }
    const CTLVRecordV3& record = std::as_const(working)[0];
    const std::uint64_t status = statusOf(record);
    if (status == kEnd) {
      break;
    }
    appendCopy(*package, record);
    if (status != kRow) {
      guard.error(65622, __FUNCTION__, __LINE__,
                  "Return message error, error code is %d, message is : \n%s",
                  static_cast<int>(status), dumpIfError(record).c_str());
      return 0;
    }
    if (rows + 1 == kMostRows) {
      guard.error(65623, __FUNCTION__, __LINE__,
                  "Detect abnormal getnext command, rsp record is : \n%s.",
                  dumpIfError(record).c_str());
    }
  }
  // An empty record closes the list: whoever reads it so knows that the walk has come to its end.
  package->addRecord(working[0].cmd());
  return 0;
}
