#include "frame/check/library_check.h"

#include <fcntl.h>
#include <poll.h>
#include <qovpub/qov_task_mgr.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <system_error>

#include "frame/env/env_proc_name.h"
#include "frame/env/failure.h"
#include "module/dll_manager.h"
#include "module/module_entry.h"
#include "module/module_library.h"

namespace qov {
namespace {

using Clock = std::chrono::steady_clock;
using Names = std::list<std::string>;

/// Stands behind what is said of a library.
constexpr char kEnd = '\0';

struct Pipe {
  explicit Pipe(int flags) {
    if (::pipe2(ends.data(), flags) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
    }
  }
  std::array<int, 2> ends{};
};

/// Opens libraries and makes modules of them as the loader does, but starts none and lets none go.
class Trial {
 public:
  explicit Trial(bool creates) : creates_(creates) {}

  /// Empty for a library that is a module's.
  std::string whyNoModule(const std::string& name) {
    std::string whyNot;
    ACE_DLL_Handle* const library = openLibrary(name.c_str(), whyNot);
    if (library == nullptr) {
      return whyNot;
    }
    const auto create = reinterpret_cast<CreateModule>(library->symbol(kEntryFunction));
    const std::string why = create == nullptr ? kNoEntryFunction : whyNotCreated(name, create);
    return why.empty() ? "" : pathOf(*library) + ": " + why;
  }

 private:
  std::string whyNotCreated(const std::string& name, CreateModule create) {
    if (!creates_) {
      return {};
    }
    std::string whyNot;
    CQOV_TaskMgr* const manager = createManager(create, whyNot);
    if (manager == nullptr) {
      return whyNot;
    }
    const auto gid = static_cast<unsigned int>(manager->gid());
    const bool isTaken = !holders_.emplace(gid, name).second;
    return gid > kMaxGid || isTaken ? whyInvalidGid(gid, holders_[gid]) : "";
  }

  const bool creates_;
  std::map<unsigned int, std::string> holders_;  // by gid
};

/// What a library writes fills a pipe that nobody reads, and is dropped when that is full.
void silenceStandardStreams() {
  const Pipe nowhere(O_NONBLOCK | O_CLOEXEC);
  ::dup2(nowhere.ends[0], STDIN_FILENO);
  ::dup2(nowhere.ends[1], STDOUT_FILENO);
  ::dup2(nowhere.ends[1], STDERR_FILENO);
}

[[noreturn]] void openAll(const Names& names, const std::string& procName, bool creates, int report,
                          pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) {
    ::_exit(1);  // it has gone before that
  }
  ::setpgid(0, 0);
  silenceStandardStreams();
  assumeProcName(procName);
  Trial trial(creates);
  for (const std::string& name : names) {
    const std::string text = trial.whyNoModule(name) + kEnd;
    if (::write(report, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      ::_exit(1);
    }
  }
  ::_exit(0);
}

/// A child process that opens libraries.
///
/// Thread: one, in a process without others.
/// Owns:   the child, which ends with it, and what the libraries may have started in its group.
/// Errors: the constructor throws std::system_error.
class Opening {
 public:
  Opening(const Names& names, const std::string& procName, bool creates);
  ~Opening() {
    stop();
    ::close(report_);
  }
  Opening(const Opening&) = delete;
  Opening& operator=(const Opening&) = delete;

  /// Waits for what the child says of the next library. False when it has ended, or takes longer
  /// than `limit`; `said` is why, then.
  bool next(std::chrono::milliseconds limit, std::string& said);

 private:
  bool waitForNews(Clock::time_point deadline) const;
  /// False when there will be no more.
  bool read();
  /// Gives the status. One that has ended keeps its own.
  int stop();

  pid_t child_ = -1;
  int report_ = -1;
  std::string unread_;
};

Opening::Opening(const Names& names, const std::string& procName, bool creates) {
  const Pipe pipe(O_CLOEXEC);
  const pid_t parent = ::getpid();
  child_ = ::fork();
  const int error = errno;
  if (child_ == 0) {
    ::close(pipe.ends[0]);
    openAll(names, procName, creates, pipe.ends[1], parent);
  }
  ::close(pipe.ends[1]);
  report_ = pipe.ends[0];
  if (child_ < 0) {
    ::close(report_);
    throw std::system_error(error, std::generic_category(), "cannot make a child process");
  }
  ::setpgid(child_, child_);  // whoever of the two comes first
}

bool Opening::next(std::chrono::milliseconds limit, std::string& said) {
  const Clock::time_point deadline = Clock::now() + limit;
  std::size_t end = unread_.find(kEnd);
  for (; end == std::string::npos; end = unread_.find(kEnd)) {
    if (!waitForNews(deadline)) {
      said = "the process that opens it hangs, for " + std::to_string(limit.count()) + " ms now";
      return false;
    }
    if (!read()) {
      said = "the process that opened it " + wayOfEnd(stop());
      return false;
    }
  }
  said = unread_.substr(0, end);
  unread_.erase(0, end + 1);
  return true;
}

bool Opening::waitForNews(Clock::time_point deadline) const {
  pollfd news{report_, POLLIN, 0};
  int ready = -1;
  do {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    ready = ::poll(&news, 1, static_cast<int>(std::clamp<long long>(left, 0, INT_MAX)));
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

bool Opening::read() {
  std::array<char, 4096> part{};
  ssize_t size = -1;
  do {
    size = ::read(report_, part.data(), part.size());
  } while (size < 0 && errno == EINTR);
  unread_.append(part.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  return size > 0;
}

int Opening::stop() {
  int status = 0;
  if (child_ > 0) {
    ::kill(-child_, SIGKILL);
    while (::waitpid(child_, &status, 0) < 0 && errno == EINTR) {
    }
    child_ = -1;
  }
  return status;
}

}  // namespace

std::map<std::string, std::string> faultsOfLibraries(Names modules, const std::string& procName,
                                                     const QOVCheckOptions& how) {
  std::map<std::string, std::string> faults;
  auto next = modules.begin();
  while (next != modules.end()) {
    Opening opening(modules, procName, how.creates);
    std::string said;
    for (next = modules.begin(); next != modules.end() && opening.next(how.perLibrary, said);
         ++next) {
      if (!said.empty()) {
        faults[*next] = said;
      }
    }
    if (next != modules.end()) {
      faults[*next] = "the library of module " + *next + ": " + said;
      modules.erase(next);
      next = modules.begin();
    }
  }
  return faults;
}

}  // namespace qov
