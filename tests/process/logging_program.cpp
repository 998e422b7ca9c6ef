// Logs from several threads into the file of its first argument. The second says what it does then:
//   return    closes the registry of kits, as a frame does, and returns from main while detached
//             threads go on
//   backend   has children while a thread logs to a backend of ACE's that looks for a kit
//   start     returns from main while threads start, and log or open a guard
//   slow      returns from main while each thread has a record under way, which goes on when there
//             is a byte of standard input for it
//   a number  has so many children, one after the other, that log a line each; status 1 when one
//             of them does not come to its end
#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Msg_Callback.h>
#include <pthread.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 12;
constexpr int kRecordsForAChild = 20;
constexpr unsigned int kChildLimit = 60;  // seconds
constexpr unsigned int kRareKit = 4000;   // one that is looked up under a lock

std::atomic<int> threadsThatLog{0};
std::atomic<bool> enough{false};
std::atomic<int> children{0};

void log(unsigned int kit, const char* text, int number) {
  CQOVDebugKitGuard guard(static_cast<int>(kit), "void log(unsigned int, const char*, int)");
  guard.error(1, __FUNCTION__, __LINE__, "%s %d", text, number);
}

void waitForAll() {
  while (threadsThatLog < kThreads) {
    std::this_thread::yield();
  }
}

/// Leaves the lock to the others until each has logged once.
[[noreturn]] void logForever(int thread) {
  log(0, "thread", thread);
  ++threadsThatLog;
  waitForAll();
  while (true) {
    log(0, "thread", thread);
  }
}

/// Runs `work` until there are enough children: so often for each that the process never comes to
/// rest, and no more, which would make the log large.
template <class Work>
void keepBusy(const Work& work) {
  for (int done = 0; !enough; ++done) {
    while (done > kRecordsForAChild * (children + 1) && !enough) {
      std::this_thread::yield();
    }
    work();
  }
}

/// Holds the C library's lock around the time zone most of the time, as a log with "%D" also does.
void askForTheTime() {
  while (!enough) {
    const time_t now = ::time(nullptr);
    struct tm local {};
    ::localtime_r(&now, &local);
  }
}

void changeKits() {
  static CQOVDebugKit own("OWN", kRareKit + 1);
  if (CQOVDebugKitMgr::instance()->add(&own) == 1) {
    CQOVDebugKitMgr::instance()->remove(own.id());
  }
}

int returnWhileThreadsLog() {
  for (int thread = 0; thread < kThreads; ++thread) {
    std::thread(logForever, thread).detach();
  }
  waitForAll();
  CQOVDebugKitMgr::close();
  return 0;
}

void* logOnce(void*) {
  log(0, "thread", 0);
  for (;;) {
    ::pause();
  }
}

void* openGuard(void*) {
  { const CQOVDebugKitGuard guard(0, "void* openGuard(void*)"); }
  for (;;) {
    ::pause();
  }
}

/// Goes on until main has returned, as long as there is room.
void startThreads() {
  constexpr int kMost = 300;
  constexpr size_t kStack = 128 * 1024;
  pthread_attr_t detached;
  pthread_attr_init(&detached);
  pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&detached, kStack);
  for (int number = 0; number < kMost; ++number) {
    pthread_t thread = 0;
    pthread_create(&thread, &detached, number % 2 == 0 ? logOnce : openGuard, nullptr);
    ++threadsThatLog;
  }
}

int returnWhileThreadsStart() {
  for (int starter = 0; starter < 3; ++starter) {
    std::thread(startThreads).detach();
  }
  waitForAll();
  return 0;
}

/// Is called in the middle of a record, without a lock.
class SlowListener : public ACE_Log_Msg_Callback {
 public:
  void log(ACE_Log_Record&) override {
    ++threadsThatLog;
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) != 1) {
    }
  }
};

void logSlowly(int thread) {
  static SlowListener listener;
  ACE_Log_Msg::instance()->msg_callback(&listener);
  log(0, "thread", thread);
  for (;;) {
    ::pause();
  }
}

int returnWhileRecordsAreSlow() {
  ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::MSG_CALLBACK);
  for (int thread = 0; thread < kThreads; ++thread) {
    std::thread(logSlowly, thread).detach();
  }
  waitForAll();
  log(0, "main returns", 0);
  return 0;
}

bool childLogs(int number) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(kChildLimit);
    log(kRareKit, "child", number);
    ACE_ERROR((LM_ERROR, "child straight to ACE %d\n", number));
    ::_exit(0);
  }
  int status = -1;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

int forkWhileThreadsLog(int count) {
  std::vector<std::thread> threads;
  threads.emplace_back([] { keepBusy([] { log(0, "thread", 0); }); });
  threads.emplace_back([] { keepBusy([] { log(kRareKit, "thread", 0); }); });
  threads.emplace_back([] { keepBusy([] { ACE_ERROR((LM_ERROR, "straight to ACE\n")); }); });
  threads.emplace_back(askForTheTime);
  threads.emplace_back([] { keepBusy(changeKits); });
  bool all = true;
  for (; all && children < count; ++children) {
    all = childLogs(children);
  }
  enough = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  log(0, "parent", 0);
  return all ? 0 : 1;
}

/// ACE holds its log lock while it calls this.
class LookingBackend : public ACE_Log_Msg_Backend {
 public:
  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record&) override {
    CQOVDebugKitMgr::instance()->find(kRareKit);
    return 0;
  }
};

int forkWhileABackendLooksForKits() {
  static LookingBackend backend;
  ACE_Log_Msg::msg_backend(&backend);
  ACE_Log_Msg::instance()->open("", ACE_Log_Msg::CUSTOM, nullptr);
  std::thread thread([] { keepBusy([] { log(0, "thread", 0); }); });
  bool all = true;
  for (; all && children < 200; ++children) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::_exit(0);
    }
    all = child > 0 && ::waitpid(child, nullptr, 0) == child;
  }
  enough = true;
  thread.join();
  ACE_Log_Msg::msg_backend(nullptr);
  return all ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  CLogging_Cfg_Param param;
  std::snprintf(param.logFile_, sizeof(param.logFile_), "%s", argv[1]);
  param.chkInterval_ = 0;
  param.logFileMaxSize_ = 0;
  CQOV_Logging_Strategy strategy;
  strategy.initLogStrategy(param);
  const std::string mode = argv[2];
  if (mode == "return") {
    return returnWhileThreadsLog();
  }
  if (mode == "slow") {
    return returnWhileRecordsAreSlow();
  }
  if (mode == "backend") {
    return forkWhileABackendLooksForKits();
  }
  return mode == "start" ? returnWhileThreadsStart() : forkWhileThreadsLog(std::stoi(mode));
}
