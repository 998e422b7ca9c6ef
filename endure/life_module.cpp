// A module of campaign "life". Its workers and a thread of its own ask and tell the other modules
// all the time, whether those are there or not.
//   QOV_ENDURE_GID     its gid
//   QOV_ENDURE_POOL    how many workers it has
//   QOV_ENDURE_INIT    what initEnv() does when all of that works: a statement
//   QOV_ENDURE_POLICY  if defined, what ACE does with the library when it is closed
#include <ace/DLL_Manager.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "endure/life_module.h"

namespace {

using namespace qov::endure;

constexpr std::chrono::milliseconds kPatience{20};
const std::string kLongText(100, 'n');

/// In turn, so that nothing is random but the instants.
std::uint8_t nextGid() {
  static std::atomic<unsigned> turn{0};
  return static_cast<std::uint8_t>(kFirstGid + turn++ % kGids);
}

void fill(QOVRequest& request) {
  request.addRecord(1).addString(1, kLongText);
}

void talk(CQOV_Task& task) {
  QOVRequest note(task, nextGid(), kStatic);
  fill(note);
  note.tell(kPatience);
  QOVRequest later(task, nextGid(), kQuestion);
  fill(later);
  static_cast<void>(later.askLater(kPatience, [](const QOVAnswer&) {}));
}

class Worker : public QOVHandlers<Worker> {
 public:
  explicit Worker(CQOV_TaskMgr* module)
      : QOVHandlers(module, {{kTalk, &Worker::talkOn}, {kQuestion, &Worker::answer}}) {}

 private:
  int talkOn(CQOV_MsgPackage&) {
    talk(*this);
    QOVRequest question(*this, nextGid(), kQuestion);
    fill(question);
    static_cast<void>(question.ask(kPatience));
    return 0;
  }
  int answer(CQOV_MsgPackage&, CQOV_MsgPackage& answer) {
    answer.addRecord(1).addString(1, kLongText);
    return 0;
  }
};

class Static : public QOVStaticHandlers<Static> {
 public:
  explicit Static(CQOV_TaskMgr* module) : QOVStaticHandlers(module, {{kStatic, &Static::take}}) {}

 private:
  int take(CQOV_MsgPackage&) { return 0; }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(QOV_ENDURE_GID, QOV_ENDURE_POOL, "life"), own_(this), static_(this) {}
  ~Module() override {
    stop_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  CQOV_Task* createTask() override { return new Worker(this); }

  bool initEnv() override {
    if (insertStaticScheduledTask(&static_) != 0) {
      return false;
    }
    thread_ = std::thread([this] {
      while (!stop_) {
        talk(own_);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    });
    QOV_ENDURE_INIT;
  }

 private:
  std::atomic<bool> stop_{false};
  CQOV_Task own_;
  Static static_;
  std::thread thread_;
};

}  // namespace

#ifdef QOV_ENDURE_POLICY
extern "C" QOV_EXPORT int _get_dll_unload_policy();
extern "C" QOV_EXPORT int _get_dll_unload_policy() {
  return QOV_ENDURE_POLICY;
}
#endif

QOV_MODULE(Module)
