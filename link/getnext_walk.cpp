#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_long_socket.h>

#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "diag/log_ids.h"
#include "link/dump_text.h"

namespace {

enum Status : std::uint64_t { kRow = 0, kEnd = 1 };

/// Gives the cells of a record that was decoded memory of their own, with which they can move
/// without any more.
void detach(CTLVRecordV3& record) {
  CTLVRecordV3 detached(std::move(record));
  // NOLINTNEXTLINE(bugprone-use-after-move): without memory the cells stay where they are
  if (record.count() > 0) {
    throw std::bad_alloc();
  }
  record = std::move(detached);
}

/// What a walk asks with. An answer's record is the next request; it moves into the result when
/// that was sent, which the link says by clear(), or at the end.
class Request : public CT7QPackageV3 {
 public:
  /// Takes the caller's records over, and those fields of its header that say who asks.
  explicit Request(CT7QPackageV3&& package) : CT7QPackageV3(std::move(package)) {
    const TLVMsgHeadV3 asked = head();
    head() = TLVMsgHeadV3();
    head().ret_ = asked.ret_;
    head().ssk_ = asked.ssk_;
    head().nid_ = asked.nid_;
    head().reserved_ = asked.reserved_;
    head().bid_ = asked.bid_;
    head().ser_ = asked.ser_;
  }
  ~Request() override { settle(); }

  /// The only record is to be the last one of `result`, in its place from now on.
  void keepIn(CT7QPackageV3& result) {
    detach((*this)[0]);
    place_ = &result.addRecord(0);
  }
  void clear() override {
    settle();
    CT7QPackageV3::clear();
  }

 private:
  void settle() noexcept {
    if (place_ != nullptr) {
      *std::exchange(place_, nullptr) = std::move((*this)[0]);
    }
  }

  CTLVRecordV3* place_ = nullptr;
};

/// An answer without a status is a row. Throws when the status is no number.
std::uint64_t statusOf(const CTLVRecordV3& record) {
  const CTLVCell* const status = record.find(MAX_TAG_VALUE);
  if (status == nullptr) {
    return kRow;
  }
  status->checkNumerical();
  return status->number();
}

std::string dumpIfError(const CTLVRecordV3& record) {
  return CQOVDebugKit::isOn(LM_ERROR) ? qov::dumpOf(record) : std::string();
}

}  // namespace

unsigned int CQOVLongSocket::sendGetNextMsgV3(CT7QPackageV3* package) {
  CQOVDebugKitGuard guard(0, "unsigned int CQOVLongSocket::sendGetNextMsgV3(CT7QPackageV3*)");
  constexpr int kMostRows = 10000;
  Request working(std::move(*package));
  package->clear();
  for (int rows = 0; rows < kMostRows; ++rows) {
    const unsigned int result = sendMsg(&working);
    if (result != 0) {
      return result;
    }
    if (working.count() != 1) {
      guard.debug(qov::log_id::kWalkManyRecords, __FUNCTION__, __LINE__,
                  "Error:received many getnext messages!");
      return kBadReply;
    }
    const CTLVRecordV3& record = std::as_const(working)[0];
    const std::uint64_t status = statusOf(record);
    if (status == kEnd) {
      break;
    }
    working.keepIn(*package);
    if (status != kRow) {
      guard.error(qov::log_id::kWalkStatus, __FUNCTION__, __LINE__,
                  "Return message error, error code is %d, message is : \n%s",
                  static_cast<int>(status), dumpIfError(record).c_str());
      return 0;
    }
    if (rows + 1 == kMostRows) {
      guard.error(qov::log_id::kWalkEndless, __FUNCTION__, __LINE__,
                  "Detect abnormal getnext command, rsp record is : \n%s.",
                  dumpIfError(record).c_str());
    }
  }
  // An empty record closes the list: whoever reads it so knows that the walk has come to its end.
  package->addRecord(working[0].cmd());
  return 0;
}
