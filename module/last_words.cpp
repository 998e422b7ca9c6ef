#include "module/last_words.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string_view>
#include <system_error>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_utility.h>

#include "diag/log_level.h"
#include "diag/record_head.h"
#include "frame/expendable_thread.h"
#include "frame/thread_states.h"

namespace qov {

namespace {

constexpr std::chrono::milliseconds kPatience{1000};
constexpr unsigned int kPublicKit = 0;

using Lines = std::vector<std::string>;

void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written <= 0) {
      return;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void writeToStandardError(const Lines& lines) {
  constexpr int kReaderMs = 500;
  pollfd wanted{STDERR_FILENO, POLLOUT, 0};
  for (const std::string& line : lines) {
    // Nobody may read it, or a terminal may be stopped.
    if (::poll(&wanted, 1, kReaderMs) != 1 || (wanted.revents & POLLOUT) == 0) {
      return;
    }
    writeAll(STDERR_FILENO, line + "\n");
  }
}

void log(unsigned long long logId, const Lines& lines) {
  if (const CQOVDebugKit* const kit = CQOVDebugKitMgr::instance()->find(kPublicKit)) {
    for (const std::string& line : lines) {
      kit->error(logId, __FUNCTION__, __LINE__, line);
    }
  }
}

/// Without any lock of the log. Appending keeps whole what other threads write.
void appendToLogFile(unsigned long long logId, const Lines& lines) {
  const int file = ::open(QOV_Utility::getProcessLogFileName().c_str(),
                          O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  struct stat status {};
  if (file < 0 || ::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
    return;
  }
  for (const std::string& line : lines) {
    const RecordHead head("QOVPUBLIC", logId, kError.tag, __FUNCTION__, __LINE__);
    writeAll(file, std::string(head.text()) + line + "\n");
  }
  ::close(file);
}

void appendWithoutAThread(unsigned long long logId, const Lines& lines) {
  try {
    appendToLogFile(logId, lines);
  } catch (...) {
    // A process without a configuration has no log file.
  }
}

}  // namespace

void tellLastWords(unsigned long long logId, const Lines& lines) {
  // On this thread, and first: it waits for nothing but a reader, and a thread may not begin.
  writeToStandardError(lines);
  try {
    if (!endsWithin(kPatience, [logId, lines] { log(logId, lines); })) {
      endsWithin(kPatience, [logId, lines] { appendToLogFile(logId, lines); });
    }
  } catch (const std::system_error&) {
    appendWithoutAThread(logId, lines);
  }
}

Lines withThreads(const std::string& reason) {
  Lines lines{reason};
  for (std::string& thread : threadStates()) {
    lines.push_back(std::move(thread));
  }
  return lines;
}

}  // namespace qov
