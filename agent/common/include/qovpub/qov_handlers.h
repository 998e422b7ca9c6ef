#ifndef QOVPUB_QOV_HANDLERS_H
#define QOVPUB_QOV_HANDLERS_H

#include <qovpub/qov_export.h>
#include <qovpub/qov_task.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <list>
#include <memory>
#include <utility>
#include <vector>

/// Sends `answer` from `task` to whoever has sent the request with the header `request`, whichever
/// module that is: type 2, the addresses exchanged, the request's operation code, serial number and
/// CID. `result` goes into the MST, which the requester's send() returns: 0 to 255 as they are, all
/// else as 255. A null `answer` is one without records. Takes `answer` over. Returns 0, or -1 as
/// send() does. For a message that is no request it sends nothing and returns 0.
///
/// Thread: any. The request itself may be gone: an answer may come later than its handler returns.
/// Errors: throws std::bad_alloc for a null `answer`.
QOV_EXPORT int QOV_Answer(CQOV_Task& task, const QOVMsgHead& request,
                          std::unique_ptr<CQOV_MsgPackage> answer, int result = 0);

/// Answers `request` by its result alone, as QOV_Answer() with one record: the command code of the
/// request's first record (0 without records) and an unsigned cell of 4 bytes, tag 4095, that holds
/// `result`. Throws std::bad_alloc.
QOV_EXPORT int QOV_AnswerByResult(CQOV_Task& task, const CQOV_MsgPackage& request, int result);

/// Like CQOV_CommonTaskEx, but its answers reach requesters of every module, since they carry the
/// request's addresses exchanged.
///
/// Thread: as CQOV_CommonTask.
/// Errors: as CQOV_CommonTask. If handleRequest() throws, or ends its thread, the requester is told
///         255.
class QOV_EXPORT CQOV_AnsweringTask : public CQOV_CommonTask {
 public:
  /// `mgr` is the module that the task belongs to; it is borrowed and outlives the task.
  explicit CQOV_AnsweringTask(CQOV_TaskMgr* mgr);

  int handleMessage(CQOV_MsgPackage& pkg) override;

  /// Handles one message and may set `rsp` (null on entry) to a package that QOV_Answer() sends
  /// with the MST that it has. A request for which `rsp` stays null is answered by the result:
  /// QOV_AnswerByResult(). An `rsp` to a message that is no request is deleted.
  virtual int handleRequest(CQOV_MsgPackage& req, CQOV_MsgPackage*& rsp) = 0;
};

/// A worker that has one function for each operation code, declared in one place:
///
///     class Worker : public QOVHandlers<Worker> {
///      public:
///       explicit Worker(CQOV_TaskMgr* module)
///           : QOVHandlers(module, {{kReadHost, &Worker::readHost}, {kNote, &Worker::note}}) {}
///
///      private:
///       int readHost(CQOV_MsgPackage& request, CQOV_MsgPackage& answer);  // fills the answer
///       int note(CQOV_MsgPackage& message);  // sends no answer, or its own
///
/// A function with an answer is for requests. If it returns 0 the answer is sent to the requester,
/// whichever module that is. Else the requester is told the result, as QOV_AnswerByResult() does.
/// A function without an answer gets every message with its operation code. Requests are answered
/// by itself, by QOV_Answer(), or not at all.
///
/// A message for which there is no function has the result -1. The requester is told 255, as of
/// every negative result, and the log has a warning, as for every result other than 0.
///
/// `Base` is CQOV_CommonTask or derived from it and made from the manager alone.
///
/// Thread: the functions run on the task's own thread.
/// Errors: as CQOV_CommonTask. If a function with an answer throws, or ends its thread, the
///         requester is told 255.
template <class Self, class Base = CQOV_CommonTask>
class QOVHandlers : public Base {
 public:
  /// Calls the function for the operation code of `message` and sends its answer, as said above.
  /// Returns what the function returns, -1 when that is 0 and the answer could not be sent, and -1
  /// without a function.
  int handleMessage(CQOV_MsgPackage& message) override {
    constexpr int kUnknown = -1;
    constexpr int kFailed = -1;
    // A copy: the function may change the message.
    const QOVMsgHead head = message.head();
    const Handler* const handler = find(head.opc_);
    auto& self = static_cast<Self&>(*this);
    if (handler != nullptr && handler->taking_ != nullptr) {
      return (self.*handler->taking_)(message);
    }
    int result = kUnknown;
    if (handler != nullptr && head.type_ == QOVMsgHead::kRequest) {
      auto answer = std::make_unique<CQOV_MsgPackage>();
      try {
        result = (self.*handler->answering_)(message, *answer);
      } catch (...) {
        QOV_AnswerByResult(self, message, kFailed);
        throw;
      }
      if (result == 0) {
        return QOV_Answer(self, head, std::move(answer));
      }
    }
    QOV_AnswerByResult(self, message, result);
    return result;
  }

 protected:
  /// A function for requests: fills `answer` and returns 0, or returns a result that is not 0.
  using Answering = int (Self::*)(CQOV_MsgPackage& request, CQOV_MsgPackage& answer);
  /// A function for messages of every type, which returns 0 or a result that the log warns of.
  using Taking = int (Self::*)(CQOV_MsgPackage& message);

  /// What serves an operation code.
  struct Handler {
    /// @{
    /// `opc` is served by this function, which is not null.
    Handler(std::uint64_t opc, Answering answering) : opc_(opc), answering_(answering) {}
    Handler(std::uint64_t opc, Taking taking) : opc_(opc), taking_(taking) {}
    /// @}

    std::uint64_t opc_;              ///< the operation code
    Answering answering_ = nullptr;  ///< null if taking_ serves it
    Taking taking_ = nullptr;        ///< null if answering_ serves it
  };

  /// Of several functions for one operation code the first one counts.
  QOVHandlers(CQOV_TaskMgr* mgr, std::initializer_list<Handler> handlers)
      : Base(mgr), handlers_(handlers) {
    std::stable_sort(handlers_.begin(), handlers_.end(),
                     [](const Handler& a, const Handler& b) { return a.opc_ < b.opc_; });
  }

  /// All functions, by ascending operation codes. The reference holds as long as the task.
  const std::vector<Handler>& handlers() const { return handlers_; }

 private:
  const Handler* find(std::uint64_t opc) const {
    const auto found =
        std::lower_bound(handlers_.begin(), handlers_.end(), opc,
                         [](const Handler& handler, std::uint64_t o) { return handler.opc_ < o; });
    return found != handlers_.end() && found->opc_ == opc ? &*found : nullptr;
  }

  // Constant after construction, by operation code.
  std::vector<Handler> handlers_;
};

/// The same for a static scheduled task, such as a QOVPeriodicTask. It serves the operation codes
/// that it has functions for.
template <class Self, class Base = CQOV_StaticSchecheduledTask>
class QOVStaticHandlers : public QOVHandlers<Self, Base> {
 public:
  void getOpcList(std::list<unsigned long long>& opcs) override {
    for (const auto& handler : this->handlers()) {
      opcs.push_back(handler.opc_);
    }
  }

 protected:
  using QOVHandlers<Self, Base>::QOVHandlers;
};

#endif
