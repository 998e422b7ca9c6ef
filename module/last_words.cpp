#include "module/last_words.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string_view>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>

#include "diag/log_ids.h"
#include "diag/log_level.h"
#include "diag/record.h"
#include "module/thread_states.h"

namespace qov {

namespace {

using Lines = std::vector<std::string>;

std::atomic<bool> told{false};

void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written <= 0) {
      return;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void log(unsigned long long logId, const Lines& lines) {
  if (const CQOVDebugKit* const kit = CQOVDebugKitMgr::instance()->find(kPublicKit)) {
    for (const std::string& line : lines) {
      kit->error(logId, __FUNCTION__, __LINE__, line);
    }
  }
}

/// Without any lock of the log; false when there is no such file. Appending keeps whole what other
/// threads write.
bool appendToLogFile(unsigned long long logId, const Lines& lines) {
  const int file = ::open(QOV_Utility::getProcessLogFileName().c_str(),
                          O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  struct stat status {};
  if (file < 0 || ::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  for (const std::string& line : lines) {
    ShortRecord record("QOVPUBLIC", logId, kError.tag, __FUNCTION__, __LINE__, LogForm::now());
    record.add(line);
    record.finish();
    writeAll(file, record.line());
  }
  ::close(file);
  return true;
}

}  // namespace

void tellOnStandardError(const Lines& lines) {
  constexpr int kReaderMs = 500;
  pollfd wanted{STDERR_FILENO, POLLOUT, 0};
  for (const std::string& line : lines) {
    if (::poll(&wanted, 1, kReaderMs) != 1 || (wanted.revents & POLLOUT) == 0) {
      return;
    }
    writeAll(STDERR_FILENO, line + "\n");
  }
}

void tellLastWords(unsigned long long logId, const Lines& lines) {
  tellOnStandardError(lines);
  try {
    if (!appendToLogFile(logId, lines)) {
      log(logId, lines);
    }
  } catch (const CQOV_Exception&) {
    // A process without a configuration, which has no log.
  }
  told = true;
}

bool lastWordsAreTold() {
  return told;
}

Lines withThreads(const std::string& reason) {
  Lines lines{reason};
  for (std::string& thread : threadStates()) {
    lines.push_back(std::move(thread));
  }
  return lines;
}

}  // namespace qov
