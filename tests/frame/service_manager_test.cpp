#include "frame/app/service_manager.h"

#include <ace/Log_Msg.h>
#include <ace/Reactor.h>
#include <ace/Thread.h>
#include <ace/Timer_Queue.h>
#include <ace/Timer_Queue_T.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_utility.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "frame/app/service_watchdog.h"
#include "tests/support/agent_root.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/files.h"

using qov::ServiceManager;
using qov::test::FailingAllocations;
using qov::test::TemporaryDirectory;

namespace {

/// The process's limit of open files, at 0 while it lives.
class NoFiles {
 public:
  NoFiles() {
    ::getrlimit(RLIMIT_NOFILE, &former_);
    const rlimit none{0, former_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoFiles() { ::setrlimit(RLIMIT_NOFILE, &former_); }
  NoFiles(const NoFiles&) = delete;
  NoFiles& operator=(const NoFiles&) = delete;

 private:
  rlimit former_{};
};

class EmptyModule : public CQOV_TaskMgr {
 public:
  EmptyModule() : CQOV_TaskMgr(20, 0, "a name that is longer than a string has room for") {}
  ~EmptyModule() override { stop(); }
  CQOV_Task* createTask() override { return nullptr; }
};

/// The manager of this very process, which has a socket to listen at.
class ServiceManagerInside : public ::testing::Test {
 protected:
  ServiceManagerInside() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name_.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(0, ::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    ::setenv("NOTIFY_SOCKET", name_.c_str(), 1);
    ::setenv("WATCHDOG_USEC", "4000", 1);
    CQOVDebugKitMgr::instance();
    ACE_Reactor::instance()->owner(ACE_Thread::self());
    manager().find();
  }
  ~ServiceManagerInside() override {
    ::unsetenv("NOTIFY_SOCKET");
    ::unsetenv("WATCHDOG_USEC");
    manager().find();
    ::close(socket_);
  }

  static ServiceManager& manager() { return ServiceManager::process(); }

  /// The next datagram; empty when none is there.
  std::string next() {
    std::array<char, 256> text{};
    const ssize_t size = ::recv(socket_, text.data(), text.size(), MSG_DONTWAIT);
    return {text.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
  }

  /// Has the process reactor turn until something comes.
  std::string nextOfTheLoop() {
    std::string text;
    while (text.empty()) {
      ACE_Time_Value limit(0, 10000);
      ACE_Reactor::instance()->handle_events(limit);
      text = next();
    }
    return text;
  }

  /// Has the manager's queue hold as much as it may.
  void fillQueue() {
    while (isRoom()) {
    }
  }

  const TemporaryDirectory directory_;
  const std::string name_ = (directory_.path() / "notify").string();
  const int socket_;

 private:
  bool isRoom() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name_.copy(address.sun_path, sizeof address.sun_path - 1);
    const int sender = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const ssize_t sent = ::sendto(sender, "x", 1, MSG_DONTWAIT,
                                  reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::close(sender);
    return sent == 1;
  }
};

long waitsOfThisThread() {
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

}  // namespace

TEST_F(ServiceManagerInside, IsNotToldWithoutMemoryAndNothingElseHappens) {
  for (void (ServiceManager::*tell)() : {&ServiceManager::tellReady, &ServiceManager::tellReloading,
                                         &ServiceManager::tellStopping}) {
    const FailingAllocations none(0);
    EXPECT_NO_THROW((manager().*tell)());
  }
  EXPECT_EQ("", next());
}

TEST_F(ServiceManagerInside, ThatIsNotThereTakesNoMemory) {
  ::unsetenv("NOTIFY_SOCKET");
  manager().find();
  const FailingAllocations none(0);
  manager().tellReady();
  manager().tellReloading();
  manager().tellStopping();
  EXPECT_FALSE(none.hasFailed());
}

TEST_F(ServiceManagerInside, IsToldWhyThereIsNoSocketToTellIt) {
  ::testing::internal::CaptureStderr();
  {
    const NoFiles none;
    manager().tellStopping();
  }
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::HasSubstr("STOPPING=1: Too many open files"));
}

TEST_F(ServiceManagerInside, ThatTakesNothingIsNotWaitedForWithASignOfLife) {
  fillQueue();
  manager().feedWatchdog();  // with a record
  const long before = waitsOfThisThread();
  manager().feedWatchdog();
  EXPECT_EQ(before, waitsOfThisThread());
}

TEST_F(ServiceManagerInside, GetsTheNextSignOfLifeWhenTheLastOneFoundNoMemory) {
  std::string process;
  CProcInfo::getProcName(process);
  const AgentRoot root(process);
  root.writeConfig();
  ::setenv("QOV_ROOT", root.path().c_str(), 1);
  ACE_Log_Msg::instance()->priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  EmptyModule module;
  ASSERT_TRUE(module.init());
  qov::ServiceWatchdog watchdog(manager());
  EXPECT_EQ("WATCHDOG=1", nextOfTheLoop());
  bool hasFailed = false;
  while (!hasFailed) {
    const auto failing = FailingAllocations::ofThoseThatThrow(0);
    ACE_Time_Value limit(0, 10000);
    EXPECT_NO_THROW(ACE_Reactor::instance()->handle_events(limit));
    hasFailed = failing.hasFailed();
  }
  EXPECT_EQ("WATCHDOG=1", nextOfTheLoop());
}

TEST_F(ServiceManagerInside, GetsSignsOfLifeAlsoWhenTheClockIsSetBack) {
  qov::ServiceWatchdog watchdog(manager());
  EXPECT_EQ("WATCHDOG=1", nextOfTheLoop());
  // A timer of the process reactor's goes by the time of day.
  EXPECT_TRUE(ACE_Reactor::instance()->timer_queue()->is_empty());
  EXPECT_EQ("WATCHDOG=1", nextOfTheLoop());
}
