#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_handlers.h>

#include <utility>

#include "diag/log_ids.h"
#include "task/default_response.h"

namespace {

/// Tag of the cell that carries a handler's result in an automatic answer.
constexpr unsigned short kResultTag = 4095;

/// Of a handler that throws.
constexpr int kFailed = -1;

std::uint8_t mstOf(int result) {
  constexpr int kHighest = 255;
  return static_cast<std::uint8_t>(result >= 0 && result < kHighest ? result : kHighest);
}

}  // namespace

namespace qov {

std::unique_ptr<CQOV_MsgPackage> makeDefaultResponse(const CQOV_MsgPackage& req, int result) {
  auto response = std::make_unique<CQOV_MsgPackage>();
  auto record = std::make_unique<CTLVRecordV3>(req.count() > 0 ? req[0].cmd() : 0);
  CTLVCell cell;
  cell.set_i(CTLVCell::TLV_UINT, kResultTag, &result, sizeof result);
  record->add(cell);
  response->append(record.release());
  return response;
}

}  // namespace qov

int QOV_Answer(CQOV_Task& task, const QOVMsgHead& request, std::unique_ptr<CQOV_MsgPackage> answer,
               int result) {
  if (request.type_ != QOVMsgHead::kRequest) {
    return 0;
  }
  if (answer == nullptr) {
    answer = std::make_unique<CQOV_MsgPackage>();
  }
  QOVMsgHead& head = answer->head();
  // Of the kind of package that the answer is, whatever the request was.
  const std::uint8_t kind = head.flags_ & QOVMsgHead::kFlagOm;
  head = request;
  head.flags_ = static_cast<std::uint8_t>((request.flags_ & ~QOVMsgHead::kFlagOm) | kind);
  head.len_ = 0;
  head.type_ = QOVMsgHead::kResponse;
  head.mst_ = mstOf(result);
  head.spid_ = request.rpid_;
  head.smid_ = request.rmid_;
  head.rpid_ = request.spid_;
  head.rmid_ = request.smid_;
  return task.send(answer.release(), nullptr, true);
}

int QOV_AnswerByResult(CQOV_Task& task, const CQOV_MsgPackage& request, int result) {
  return QOV_Answer(task, request.head(), qov::makeDefaultResponse(request, result), result);
}

CQOV_AnsweringTask::CQOV_AnsweringTask(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}

int CQOV_AnsweringTask::handleMessage(CQOV_MsgPackage& req) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_AnsweringTask::handleMessage(CQOV_MsgPackage&)");
  std::unique_ptr<CQOV_MsgPackage> answer;
  int result = kFailed;
  try {
    result = qov::handleRequest(*this, req, answer);
  } catch (...) {
    QOV_AnswerByResult(*this, req, kFailed);
    throw;
  }
  if (answer == nullptr) {
    QOV_AnswerByResult(*this, req, result);
  } else {
    const std::uint8_t mst = answer->head().mst_;
    QOV_Answer(*this, req.head(), std::move(answer), mst);
  }
  return result;
}
