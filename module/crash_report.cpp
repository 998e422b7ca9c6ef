#include "module/crash_report.h"

#include <ace/Thread_Hook.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>

#include <qovpub/qov_utility.h>

#include "diag/log_ids.h"
#include "diag/log_level.h"
#include "diag/record.h"
#include "diag/record_time.h"
#include "module/last_words.h"

// What runs in the handler takes no lock and no memory: the thread may hold the one and have
// damaged the other.

namespace qov {
namespace {

struct Fault {
  int signum;
  std::string_view name;
};
constexpr std::array<Fault, 6> kFaults{{{SIGSEGV, "SIGSEGV"},
                                        {SIGBUS, "SIGBUS"},
                                        {SIGILL, "SIGILL"},
                                        {SIGFPE, "SIGFPE"},
                                        {SIGSYS, "SIGSYS"},
                                        {SIGABRT, "SIGABRT"}}};

// What the handler needs.
std::array<char, PATH_MAX> logFile;
pid_t agent = 0;
/// The thread that tells; the others that crash meanwhile wait for it.
std::atomic<pid_t> teller{0};

/// A text on the stack; what finds no room is left out.
class Text {
 public:
  Text& operator<<(std::string_view piece) {
    size_ += piece.copy(text_.data() + size_, text_.size() - size_);
    return *this;
  }
  Text& add(std::uintptr_t number, int base) {
    std::array<char, 24> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base);
    return *this << std::string_view(digits.data(), static_cast<size_t>(end.ptr - digits.data()));
  }
  std::string_view view() const { return {text_.data(), size_}; }

 private:
  std::array<char, 1024> text_;  ///< not zeroed
  size_t size_ = 0;
};

/// 0 on processors that are not known here.
struct Registers {
  std::uintptr_t code = 0;
  std::uintptr_t stack = 0;
  std::uintptr_t link = 0;  ///< where the processor has the address to return to
};

Registers registersOf(const ucontext_t& context) {
#if defined(__x86_64__)
  return {static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]),
          static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP]), 0};
#elif defined(__aarch64__)
  return {context.uc_mcontext.pc, context.uc_mcontext.sp, context.uc_mcontext.regs[30]};
#elif defined(__arm__)
  return {context.uc_mcontext.arm_pc, context.uc_mcontext.arm_sp, context.uc_mcontext.arm_lr};
#else
  static_cast<void>(context);
  return {};
#endif
}

/// Not to be followed: it may lead nowhere.
void* pointerTo(std::uintptr_t address) {
  void* pointer = nullptr;
  std::memcpy(&pointer, &address, sizeof pointer);
  return pointer;
}

/// The address that the code at `registers` returns to, where that is no code: a call through a
/// bad pointer. 0: unknown.
std::uintptr_t callerOf(const Registers& registers) {
  std::uintptr_t caller = 0;
#if defined(__x86_64__)
  const iovec here{&caller, sizeof caller};
  const iovec top{pointerTo(registers.stack), sizeof caller};
  if (::process_vm_readv(::getpid(), &here, 1, &top, 1, 0) != sizeof caller) {
    caller = 0;
  }
#elif defined(__aarch64__) || defined(__arm__)
  caller = registers.link;
#endif
  return caller;
}

/// The library or program that has the code at `address`; false: none has.
bool addFile(Text& text, std::string_view word, std::uintptr_t address) {
  dl_find_object object;
  if (::_dl_find_object(pointerTo(address), &object) != 0) {
    return false;
  }
  const link_map& library = *object.dlfo_link_map;
  text << word;
  if (*library.l_name != '\0') {
    text << library.l_name;
  } else {
    std::array<char, 512> program;
    const ssize_t size = ::readlink("/proc/self/exe", program.data(), program.size());
    text << (size < 0 ? "the program"
                      : std::string_view(program.data(), static_cast<size_t>(size)));
  }
  (text << "+0x").add(address - library.l_addr, 16);
  return true;
}

void addPlace(Text& text, const Registers& registers) {
  if (registers.code == 0 || !addFile(text, ", in ", registers.code)) {
    (text << ", in no code: 0x").add(registers.code, 16);
    addFile(text, ", called from ", callerOf(registers));
  }
}

void addThread(Text& text) {
  std::array<char, 16> name{};
  ::pthread_getname_np(::pthread_self(), name.data(), name.size());
  text << name.data();
  if (::getpid() != agent) {
    (text << " of the child process ").add(static_cast<std::uintptr_t>(::getpid()), 10);
  }
}

/// By kill(), abort() and the like.
bool isSent(const siginfo_t& info) {
  return info.si_code <= 0;
}

void addCause(Text& text, const siginfo_t& info, const Registers& registers) {
  const auto fault = std::find_if(kFaults.begin(), kFaults.end(), [&](const Fault& known) {
    return known.signum == info.si_signo;
  });
  text << fault->name;
  if (isSent(info)) {
    if (info.si_pid != ::getpid()) {
      (text << " from process ").add(static_cast<std::uintptr_t>(info.si_pid), 10);
    }
    return;
  }
  if (info.si_signo == SIGSYS) {
    (text << " at system call ").add(static_cast<std::uintptr_t>(info.si_syscall), 10);
    return;
  }
  if (info.si_code == SI_KERNEL) {
    text << " at an address that no pointer may have";
    return;
  }
  constexpr std::uintptr_t kNear = 65536;
  const auto address = reinterpret_cast<std::uintptr_t>(info.si_addr);
  (text << " at address 0x").add(address, 16);
  if (info.si_signo == SIGSEGV && registers.stack != 0 && address + kNear > registers.stack &&
      address < registers.stack + kNear) {
    text << ", an overflow of the stack";
  }
}

void writeWhole(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written <= 0) {
      return;
    }
    text.remove_prefix(static_cast<size_t>(written));
  }
}

int openLogFile() {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int file = ::open(logFile.data(), kFlags);
  if (file >= 0 || errno != EMFILE) {
    return file;
  }
  // Nobody reads from it any more.
  ::close(STDIN_FILENO);
  return ::open(logFile.data(), kFlags);
}

void tell(const siginfo_t& info, const ucontext_t& context) {
  const Registers registers = registersOf(context);
  Text text;
  text << "Failed to go on in thread ";
  addThread(text);
  text << ": ";
  addCause(text, info, registers);
  addPlace(text, registers);

  ShortRecord record("QOVPUBLIC", log_id::kCrashed, kError.tag, __FUNCTION__, __LINE__,
                     LogForm::now());
  record.add(text.view());
  record.finish();
  writeWhole(openLogFile(), record.line());
  text << "\n";
  // A pipe takes the line whole, or nobody reads it.
  constexpr int kReaderMs = 500;
  pollfd reader{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&reader, 1, kReaderMs) == 1 && (reader.revents & POLLOUT) != 0) {
    writeWhole(STDERR_FILENO, text.view());
  }
}

/// False if another thread tells; then it has had its time.
bool mayTell() {
  pid_t nobody = 0;
  if (teller.compare_exchange_strong(nobody, ::gettid())) {
    return true;
  }
  if (nobody != ::gettid()) {  // else telling has crashed
    constexpr timespec kItsTime{2, 0};
    ::nanosleep(&kItsTime, nullptr);
  }
  return false;
}

/// Whether what the thread goes on with does not bring the signal again.
bool isOver(const siginfo_t& info) {
  return isSent(info) || info.si_signo == SIGSYS ||
         (info.si_signo == SIGBUS && info.si_code == BUS_MCEERR_AO);
}

void onFault(int signum, siginfo_t* info, void* context) {
  ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  const int reason = errno;
  if (!lastWordsAreTold() && mayTell()) {
    keepUtcOffset();
    tell(*info, *static_cast<const ucontext_t*>(context));
  }
  ::signal(signum, SIG_DFL);
  if (isOver(*info)) {
    ::raise(signum);  // comes once this returns
  }
  errno = reason;
}

/// A stack for signals of the calling thread, whose own one may be full. One that it has stays.
class SignalStack {
 public:
  SignalStack() {
    stack_t before{};
    ::sigaltstack(nullptr, &before);
    if ((before.ss_flags & SS_DISABLE) == 0) {
      return;
    }
    memory_ = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory_ != MAP_FAILED) {
      const stack_t stack{memory_, 0, kSize};
      ::sigaltstack(&stack, nullptr);
    }
  }
  ~SignalStack() {
    if (memory_ != MAP_FAILED) {
      const stack_t none{nullptr, SS_DISABLE, 0};
      ::sigaltstack(&none, nullptr);
      ::munmap(memory_, kSize);
    }
  }
  SignalStack(const SignalStack&) = delete;
  SignalStack& operator=(const SignalStack&) = delete;

 private:
  /// The handler's texts, and what the processor's registers take.
  static constexpr size_t kSize = 65536;
  void* memory_ = MAP_FAILED;
};

class ThreadsWithSignalStack : public ACE_Thread_Hook {
 public:
  ACE_THR_FUNC_RETURN start(ACE_THR_FUNC function, void* argument) override {
    const SignalStack stack;
    return function(argument);
  }
};

}  // namespace

void tellCrashes() {
  logFile[QOV_Utility::getProcessLogFileName().copy(logFile.data(), logFile.size() - 1)] = '\0';
  agent = ::getpid();
  // The first record of a process takes memory for its name, and notes the offset from UTC.
  const ShortRecord first("QOVPUBLIC", log_id::kCrashed, kError.tag, __FUNCTION__, __LINE__,
                          LogForm::now());
  bool installed = false;
  for (const Fault& fault : kFaults) {
    struct sigaction action {};
    ::sigaction(fault.signum, nullptr, &action);
    if ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL) {
      action.sa_sigaction = &onFault;
      action.sa_flags = SA_SIGINFO | SA_ONSTACK;
      sigfillset(&action.sa_mask);
      ::sigaction(fault.signum, &action, nullptr);
      installed = true;
    }
  }
  if (installed && ACE_Thread_Hook::thread_hook() == nullptr) {
    static const SignalStack ofThisThread;
    // For good: threads begin until the very end.
    alignas(ThreadsWithSignalStack) static std::byte room[sizeof(ThreadsWithSignalStack)];
    ACE_Thread_Hook::thread_hook(new (room) ThreadsWithSignalStack);
  }
}

}  // namespace qov
