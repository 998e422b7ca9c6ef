// One of two modules that work together. The thread "asker" of the first one asks the second one
// again and again: for kAnswered, which the second one answers when it has asked the first one for
// kNested and sent a message to nobody; and for kSilent, which gets no answer in time. Or the
// thread asks for kNested as fast as it gets answers.
//   QOV_TEST_GID    its gid
//   QOV_TEST_OTHER  the gid of the other one, or its own
//   QOV_TEST_ASKS   whether it has the thread
//   QOV_TEST_RUSHES whether the thread asks for kNested alone
#include <pthread.h>
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

constexpr std::uint64_t kAnswered = 700;
constexpr std::uint64_t kNested = 701;
constexpr std::uint64_t kLost = 702;
constexpr std::uint64_t kSilent = 703;
constexpr std::uint8_t kNobody = 99;

class Worker : public QOVHandlers<Worker> {
 public:
  explicit Worker(CQOV_TaskMgr* module)
      : QOVHandlers(module, {{kAnswered, &Worker::answered},
                             {kNested, &Worker::nested},
                             {kSilent, &Worker::silent}}) {}

 private:
  int answered(CQOV_MsgPackage&, CQOV_MsgPackage&) {
    static_cast<void>(QOVRequest(*this, kNobody, kLost).tell());
    return QOVRequest(*this, QOV_TEST_OTHER, kNested).ask(std::chrono::minutes(1)) ? 0 : 1;
  }
  int nested(CQOV_MsgPackage&, CQOV_MsgPackage&) { return 0; }
  int silent(CQOV_MsgPackage&) { return 0; }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(QOV_TEST_GID, 2, "tracing"), asker_(this) {}
  ~Module() override {
    stop_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  CQOV_Task* createTask() override { return new Worker(this); }

  bool initEnv() override {
    if (QOV_TEST_ASKS) {
      thread_ = std::thread([this] { askOn(); });
    }
    return true;
  }

 private:
  void askOn() {
    ::pthread_setname_np(::pthread_self(), "asker");
    while (!stop_) {
      if (QOV_TEST_RUSHES) {
        static_cast<void>(QOVRequest(asker_, QOV_TEST_OTHER, kNested).ask(std::chrono::minutes(1)));
        continue;
      }
      static_cast<void>(QOVRequest(asker_, QOV_TEST_OTHER, kAnswered).ask(std::chrono::minutes(1)));
      static_cast<void>(
          QOVRequest(asker_, QOV_TEST_OTHER, kSilent).ask(std::chrono::milliseconds(5)));
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  std::atomic<bool> stop_{false};
  CQOV_Task asker_;
  std::thread thread_;
};

}  // namespace

QOV_MODULE(Module)
