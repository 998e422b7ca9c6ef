#include "module/thread_states.h"

#include <sys/syscall.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace qov {

namespace {

std::string firstLineOf(const std::filesystem::path& file) {
  std::string line;
  std::getline(std::ifstream(file), line);
  return line;
}

/// The state's letter stands behind the name, which may hold brackets of its own.
std::string stateOf(const std::string& stat) {
  const std::size_t end = stat.rfind(") ");
  switch (end == std::string::npos ? '?' : stat[end + 2]) {
    case 'R':
      return "running";
    case 'S':
      return "sleeping";
    case 'D':
      return "waiting without interruption";
    case 'T':
    case 't':
      return "stopped";
    case 'Z':
    case 'X':
      return "ended";
    default:
      return "in an unknown state";
  }
}

/// The calls in which threads of an agent usually hang.
std::string nameOfCall(long number) {
  switch (number) {
    case SYS_futex:
      return "futex";
    case SYS_read:
      return "read";
    case SYS_write:
      return "write";
    case SYS_writev:
      return "writev";
    case SYS_fsync:
      return "fsync";
    case SYS_openat:
      return "openat";
    case SYS_connect:
      return "connect";
    case SYS_accept:
      return "accept";
    case SYS_sendto:
      return "sendto";
    case SYS_recvfrom:
      return "recvfrom";
    case SYS_ppoll:
      return "ppoll";
    case SYS_pselect6:
      return "pselect6";
    case SYS_wait4:
      return "wait4";
    case SYS_flock:
      return "flock";
    case SYS_clock_nanosleep:
      return "clock_nanosleep";
    case SYS_rt_sigtimedwait:
      return "rt_sigtimedwait";
#ifdef SYS_poll
    case SYS_poll:
      return "poll";
    case SYS_select:
      return "select";
    case SYS_pause:
      return "pause";
#endif
    default:
      return std::to_string(number);
  }
}

/// From "<number> <arguments in hexadecimal>", or "running".
std::string callOf(const std::string& syscall) {
  char* end = nullptr;
  const long number = std::strtol(syscall.c_str(), &end, 10);
  if (end == syscall.c_str() || number < 0) {
    return {};
  }
  const std::string arguments(end);
  const std::size_t first = arguments.find_first_not_of(' ');
  const std::string argument = first == std::string::npos
                                   ? std::string()
                                   : arguments.substr(first, arguments.find(' ', first) - first);
  return ", system call " + nameOfCall(number) + "(" + argument + ")";
}

std::string lineOf(const std::filesystem::path& thread, const std::string& stat) {
  const std::string place = firstLineOf(thread / "wchan");
  return "thread " + thread.filename().string() + " (" + firstLineOf(thread / "comm") +
         "): " + stateOf(stat) + (place.empty() || place == "0" ? "" : ", in " + place) +
         callOf(firstLineOf(thread / "syscall"));
}

}  // namespace

std::vector<std::string> threadStates() {
  std::vector<std::string> lines;
  std::error_code error;
  for (std::filesystem::directory_iterator task("/proc/self/task", error), end;
       !error && task != end; task.increment(error)) {
    const std::string stat = firstLineOf(task->path() / "stat");
    if (!stat.empty()) {
      lines.push_back(lineOf(task->path(), stat));
    }
  }
  return lines;
}

}  // namespace qov
