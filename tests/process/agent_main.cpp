// The agent of the process tests. QOV_TEST_MAIN in its environment says how it ends:
//   (unset)     as an agent should
//   return      returns without having run the event loop
//   exit        calls exit() after init(), whatever that returned
//   reload      unloads its modules after init(), loads them again and calls exit()
//   meanwhile   unloads its modules after init(), while another thread, once there is the file
//               "lingering", calls exit(3)
//   before      before init() has another thread that calls exit(3) as above
//   fork        once there is the file "fork", has a child call exit(3) and ends by exit() with the
//               status of that
//   handles     has a handler of its own for SIGSEGV, which ends the process with status 5
//   leak        returns without destroying its frame
//   twice       runs the whole life of a frame two times
//   again       initialises its frame two times
//   loops       runs its event loop two times
//   unread      fills its standard error, a pipe that nobody reads, logs there from then on, and
//               makes the file "unread" before the event loop
//   loading     comes to its event loop when there is the file "loop", and once there is the file
//               "load" has a thread that opens the library "unwritten.so"
//   inner       a second frame comes and goes, then the file "inner_is_gone", before the event loop
//   threads     has two threads, a joinable and a detached one, which only the thread manager knows
//               and which wait for the file "go"
// With QOV_TEST_LAST_SIGNALS the process gets its signals once more at the very last, when the C
// library writes what its streams still hold.
// What it tells the system's log goes to the file "syslog".
// It begins with QOV_TEST_GREETING on standard output, with QOV_TEST_OWN_BUFFER by a std::cout that
// does not share the buffer of stdout.
#include <ace/Log_Msg.h>
#include <ace/Reactor.h>
#include <ace/Reactor_Impl.h>
#include <ace/Thread_Manager.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <qovpub/qov_app.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_module_loader.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include "tests/process/modules/agent_files.h"
#include "tests/support/sanitizers.h"

/// Stands in front of the C library's for the whole process.
extern "C" void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (std::FILE* const file = std::fopen(qov::test::agentFile("syslog").c_str(), "ae")) {
    std::fprintf(file, "<%d>", priority);
    std::vfprintf(file, format, args);
    std::fputs("\n", file);
    std::fclose(file);
  }
  va_end(args);
}

#if !QOV_TEST_TSAN
/// Stands in front of the C library's for the whole process, which ThreadSanitizer, calling it from
/// within its reports, does not bear.
extern "C" {
std::atomic<long> qov_test_closes{0};

int close(int descriptor) {
  ++qov_test_closes;
  return static_cast<int>(::syscall(SYS_close, descriptor));
}
}
#endif

namespace {

std::string mode() {
  const char* const text = std::getenv("QOV_TEST_MAIN");
  return text == nullptr ? "" : text;
}

ssize_t signalTheProcess(void*, const char*, size_t size) {
  for (const int signum : {SIGPIPE, SIGUSR1, SIGTERM, SIGINT}) {
    ::kill(::getpid(), signum);
  }
  return static_cast<ssize_t>(size);
}

/// Leaves something to write in a stream whose writing sends the signals.
void signalAtTheLast() {
  std::FILE* const last =
      ::fopencookie(nullptr, "w", {nullptr, &signalTheProcess, nullptr, nullptr});
  std::fputs("last", last);
}

void comeAndGo(int argc, char** argv) {
  {
    CQOVapp inner;
    inner.init(argc, argv);
  }
  qov::test::makeFile("inner_is_gone");
}

ACE_THR_FUNC_RETURN waitToGo(void* text) {
  if (qov::test::waitForFile("go")) {
    CQOVDebugKitGuard guard(0, "waitToGo");
    guard.info(1, __FUNCTION__, __LINE__, "%s", static_cast<const char*>(text));
  }
  return nullptr;
}

/// Leaves no room for a single byte in the pipe that is standard error.
void fillStandardError() {
  // A descriptor of its own: the log's shall block.
  const int end = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  while (::write(end, "x", 1) == 1) {
  }
  ::close(end);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::STDERR);
  qov::test::makeFile("unread");
}

void runAgain(CQOVapp& app) {
  ACE_Reactor::instance()->implementation()->deactivate(0);
  app.event_loop_done();
}

void startThreads() {
  static char joinable[] = "a joinable thread ends";
  static char detached[] = "a detached thread ends";
  ACE_Thread_Manager& threads = *ACE_Thread_Manager::instance();
  threads.spawn(&waitToGo, joinable, THR_NEW_LWP | THR_JOINABLE);
  threads.spawn(&waitToGo, detached, THR_NEW_LWP | THR_DETACHED);
}

void openALibraryOnAnotherThread() {
  std::thread([] {
    if (qov::test::waitForFile("load")) {
      ::dlopen(qov::test::agentFile("unwritten.so").c_str(), RTLD_NOW);
    }
  }).detach();
}

CQOV_Module_Loader& loader() {
  return *ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance();
}

void exitOnAnotherThread() {
  std::thread([] { std::exit(qov::test::waitForFile("lingering") ? 3 : 1); }).detach();
}

/// The end of the process comes from the other thread.
[[noreturn]] void unloadWhileAnotherThreadExits() {
  exitOnAnotherThread();
  loader().unload();
  for (;;) {
    ::pause();
  }
}

int statusOfAChild() {
  const pid_t child = ::fork();
  if (child == 0) {
    constexpr unsigned int kHangs = 60;
    ::alarm(kHangs);
    std::exit(3);
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

void greet(const char* greeting) {
  if (std::getenv("QOV_TEST_OWN_BUFFER") == nullptr) {
    std::fputs(greeting, stdout);
    return;
  }
  std::ios_base::sync_with_stdio(false);
  std::cout << greeting;
}

void handleSegv() {
  std::signal(SIGSEGV, [](int) { ::_exit(5); });
}

int live(CQOVapp& app, int argc, char** argv) {
  if (mode() == "before") {
    exitOnAnotherThread();
  } else if (mode() == "handles") {
    handleSegv();
  }
  const int result = app.init(argc, argv);
  if (mode() == "again") {
    app.init(argc, argv);
  } else if (mode() == "inner") {
    comeAndGo(argc, argv);
  } else if (mode() == "threads") {
    startThreads();
  } else if (mode() == "unread") {
    fillStandardError();
  } else if (mode() == "loading") {
    openALibraryOnAnotherThread();
    qov::test::waitForFile("loop");
  }
  if (mode() == "reload") {
    loader().unload();
    std::exit(loader().load() ? 0 : 1);
  }
  if (mode() == "meanwhile") {
    unloadWhileAnotherThreadExits();
  }
  if (mode() == "fork") {
    std::exit(qov::test::waitForFile("fork") ? statusOfAChild() : 1);
  }
  if (mode() == "exit") {
    std::exit(result == 0 ? 0 : 1);
  }
  if (result != 0) {
    std::cerr << "the agent did not start\n";
    return 1;
  }
  if (mode() != "return" && mode() != "leak") {
    app.event_loop_done();
  }
  if (mode() == "loops") {
    runAgain(app);
  }
  return 0;
}

int run(int argc, char** argv) {
  if (mode() == "leak") {
    static CQOVapp& app = *new CQOVapp;
    return live(app, argc, argv);
  }
  CQOVapp app;
  return live(app, argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
  if (const char* const greeting = std::getenv("QOV_TEST_GREETING")) {
    greet(greeting);
  }
  if (std::getenv("QOV_TEST_LAST_SIGNALS") != nullptr) {
    signalAtTheLast();
  }
  try {
    const int result = run(argc, argv);
    return mode() == "twice" && result == 0 ? run(argc, argv) : result;
  } catch (const CQOV_Exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
  }
}
