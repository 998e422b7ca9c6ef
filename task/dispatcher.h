#ifndef QOV_TASK_DISPATCHER_H
#define QOV_TASK_DISPATCHER_H

#include <ace/Reactor.h>
#include <ace/Thread_Mutex.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_task_scheduler.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "task/ended_modules.h"
#include "task/handler_watch.h"
#include "task/leader_queue.h"
#include "task/leader_turn.h"
#include "task/module_counters.h"
#include "task/pending_requests.h"
#include "task/wait_reactor.h"

class CQOVDebugKitGuard;

/// What a leader dispatches with: where the messages of one module go, and who waits for which
/// response. Operations with a name of the leader's are the leader's, and traced as such.
///
/// Thread, errors: as the leader.
/// Owns:   the scheduler and the pending requests; with the leader, what it takes out of the queue.
///
/// Hidden: a nested class would be shown to the library's users as the one around it is.
class __attribute__((visibility("hidden"))) CQOV_Leader_Task::Dispatcher final
    : public qov::LeaderWork {
 public:
  Dispatcher(CQOV_Leader_Task& leader, unsigned int poolSize);
  ~Dispatcher();
  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  bool run();
  /// Dispatches until the leader is told to end.
  void serve();
  int handle_output();
  int handle_timeout(const void* act);
  int handle_close();

  void handleDataMsg(ACE_Message_Block* mb);
  void handleReqMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg);
  void handleRspMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg);
  void handleAsyncMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg);
  void handleUnknownMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg);
  void handle_mb_hangup();
  int forwordMessage(const QOVMsgHead* head, ACE_Message_Block* mb);

  void insertStaticScheduledTask(unsigned long threadId, CQOV_StaticSchecheduledTask* task);
  CQOV_TaskScheduler& scheduler() { return *scheduler_; }
  const qov::Admission& admission() const { return *queue_.admission(); }
  void end();

  /// Thread: any.
  qov::LeaderProgress progress();

  /// Another module, `id`, has ended and answers nobody any more. From any thread; needs no memory.
  void noteEnded(std::uint8_t id);

  // For a sender's thread that does the leader's work.
  std::size_t dispatchSome(std::size_t most) override;
  void wakeOwnThread() override;

 private:
  using OpcMap =
      std::unordered_map<unsigned long long, CQOV_StaticSchecheduledTask*, LLHashFunctor>;
  using Handler = void (Dispatcher::*)(ACE_Message_Block*, CQOV_MsgPackage*);

  /// Whether the process reactor's loop has ended, and the leader with it.
  static bool processLoopHasEnded();
  /// For who has the turn.
  void shutDown();

  /// Dispatches the blocks of the list `mb`; returns -1 when an MB_STOP is among them.
  int dispatchAll(CQOVDebugKitGuard& log, ACE_Message_Block* mb);
  int dispatch(CQOVDebugKitGuard& log, ACE_Message_Block* mb);
  int passOn(std::uint8_t moduleId, ACE_Message_Block* mb);
  void deliver(CQOVDebugKitGuard& log, const QOVMsgHead& head, ACE_Message_Block* mb);
  CQOV_StaticSchecheduledTask* findStaticTask(std::uint64_t opc);

  /// True for a request of a worker of this module that waits for the response.
  bool isWaitedFor(const QOVMsgHead& head) const;
  /// Remembers who waits for the response to `pkg`. False when that is not possible: `mb` has been
  /// dropped then.
  bool beginWait(CQOVDebugKitGuard& log, const MsgKey& key, ACE_Message_Block* mb,
                 CQOV_MsgPackage* pkg);
  /// Counts `mb` as dropped and frees it with its package.
  void drop(QOVDropReason reason, ACE_Message_Block* mb);

  static const Handler kHandlers[5];

  // Constant after construction.
  CQOV_Leader_Task& leader_;
  const std::unique_ptr<CQOV_TaskScheduler> scheduler_;
  const unsigned int moduleId_;
  qov::LeaderQueue& queue_;
  qov::ModuleCounters& counters_;

  // The own reactor; its implementation comes first since the reactor uses it to its end.
  qov::WaitReactor reactorImpl_;
  ACE_Reactor reactor_;

  const std::shared_ptr<qov::LeaderTurn> turn_;
  qov::LeaderNotification notification_;

  qov::EndedModules endedModules_;

  // For who has the turn.
  qov::PendingRequests pending_;
  qov::HandlerWatch handlerWatch_;
  bool closed_ = false;

  // Which static task serves which operation code, guarded by staticLock_.
  ACE_Thread_Mutex staticLock_;
  OpcMap opcTasks_;
  // Set under staticLock_; spares modules without static tasks the lock.
  std::atomic<bool> hasStaticTasks_{false};
};

#endif
