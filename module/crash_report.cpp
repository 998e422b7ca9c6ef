#include "module/crash_report.h"

#include <ace/Thread_Hook.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
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

/// The log file's path, for the handler.
std::array<char, PATH_MAX> logFile;

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

struct Registers {
  std::uintptr_t code = 0;  ///< 0 on processors that are not known here
  std::uintptr_t stack = 0;
};

Registers registersOf(const ucontext_t& context) {
#if defined(__x86_64__)
  return {static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]),
          static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP])};
#elif defined(__aarch64__)
  return {context.uc_mcontext.pc, context.uc_mcontext.sp};
#elif defined(__arm__)
  return {context.uc_mcontext.arm_pc, context.uc_mcontext.arm_sp};
#else
  static_cast<void>(context);
  return {};
#endif
}

/// Reads the lines of a file, each up to the room for it.
class Lines {
 public:
  explicit Lines(const char* file) : file_(::open(file, O_RDONLY | O_CLOEXEC)) {}
  ~Lines() {
    if (file_ >= 0) {
      ::close(file_);
    }
  }
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  bool next() {
    size_ = 0;
    for (char c = 0; take(c);) {
      if (c == '\n') {
        return true;
      }
      if (size_ < line_.size()) {
        line_[size_++] = c;
      }
    }
    return false;
  }
  std::string_view line() const { return {line_.data(), size_}; }

 private:
  bool take(char& c) {
    if (at_ == end_) {
      const ssize_t got = file_ < 0 ? -1 : ::read(file_, buffer_.data(), buffer_.size());
      if (got <= 0) {
        return false;
      }
      at_ = 0;
      end_ = static_cast<size_t>(got);
    }
    c = buffer_[at_++];
    return true;
  }

  const int file_;
  std::array<char, 1024> buffer_;
  size_t at_ = 0;
  size_t end_ = 0;
  std::array<char, 512> line_;
  size_t size_ = 0;
};

/// A line of /proc/self/maps: "7f00-7f08 r-xp 00001000 08:01 1234    /usr/lib/x.so".
struct Mapping {
  explicit Mapping(std::string_view line) {
    const char* const last = line.data() + line.size();
    const auto from = std::from_chars(line.data(), last, begin, 16);
    if (from.ptr != last) {
      std::from_chars(from.ptr + 1, last, end, 16);
    }
    const size_t path = line.find('/');
    if (path != std::string_view::npos) {
      file = line.substr(path);
    }
  }

  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  std::string_view file;  ///< empty: of none
};

/// The file that `address` is mapped from, and how far from the file's first mapping.
void addPlace(Text& text, std::uintptr_t address) {
  Lines maps("/proc/self/maps");
  Text file;
  std::uintptr_t base = 0;
  while (maps.next()) {
    const Mapping mapping(maps.line());
    if (mapping.file != file.view()) {
      file = Text();
      file << mapping.file;
      base = mapping.begin;
    }
    if (address >= mapping.begin && address < mapping.end && !mapping.file.empty()) {
      (text << ", in " << mapping.file << "+0x").add(address - base, 16);
      return;
    }
  }
}

void addThread(Text& text) {
  std::array<char, 16> name{};
  ::pthread_getname_np(::pthread_self(), name.data(), name.size());
  text << name.data();
}

void addCause(Text& text, const siginfo_t& info, const Registers& registers) {
  const auto fault = std::find_if(kFaults.begin(), kFaults.end(), [&](const Fault& known) {
    return known.signum == info.si_signo;
  });
  text << fault->name;
  if (info.si_code <= 0) {  // sent, not met
    if (info.si_pid != ::getpid()) {
      (text << " from process ").add(static_cast<std::uintptr_t>(info.si_pid), 10);
    }
    return;
  }
  constexpr std::uintptr_t kNear = 65536;
  const auto address = reinterpret_cast<std::uintptr_t>(info.si_addr);
  (text << " at address 0x").add(address, 16);
  if (info.si_signo == SIGSEGV && address + kNear > registers.stack &&
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
  addPlace(text, registers.code);

  ShortRecord record("QOVPUBLIC", log_id::kCrashed, kError.tag, __FUNCTION__, __LINE__,
                     LogForm::now());
  record.add(text.view());
  record.finish();
  writeWhole(openLogFile(), record.line());
  // Last: a reader of it who does not read holds the process up.
  text << "\n";
  writeWhole(STDERR_FILENO, text.view());
}

void onFault(int signum, siginfo_t* info, void* context) {
  const int reason = errno;
  if (!lastWordsAreTold()) {
    keepUtcOffset();
    tell(*info, *static_cast<const ucontext_t*>(context));
  }
  if (info->si_code <= 0) {
    ::raise(signum);  // once this returns; a fault is met again by itself
  }
  errno = reason;
}

/// A stack for signals of the calling thread, whose own one may be full.
class SignalStack {
 public:
  SignalStack()
      : memory_(::mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0)) {
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
  void* const memory_;
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
  bool installed = false;
  for (const Fault& fault : kFaults) {
    struct sigaction action {};
    ::sigaction(fault.signum, nullptr, &action);
    if ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL) {
      action.sa_sigaction = &onFault;
      action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND;
      ::sigaction(fault.signum, &action, nullptr);
      installed = true;
    }
  }
  if (installed && ACE_Thread_Hook::thread_hook() == nullptr) {
    static ThreadsWithSignalStack hook;
    ACE_Thread_Hook::thread_hook(&hook);
  }
}

}  // namespace qov
