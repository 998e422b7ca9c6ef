#include "diag/log_sink.h"

#include <cassert>
#include <cerrno>
#include <new>

#include "diag/log_ids.h"
#include "diag/log_level.h"
#include "diag/log_output.h"
#include "diag/record.h"
#include "diag/standard_error.h"
#include "diag/uncancelled.h"

namespace qov {

namespace {

/// Made while the library is loaded, so that no fork comes upon a half-made one.
[[gnu::used]] const LogSink& made = LogSink::process();

}  // namespace

LogSink& LogSink::process() {
  static auto* const sink = new LogSink;
  return *sink;
}

void LogSink::use(ACE_Log_Msg& log, const std::string& path, std::optional<uid_t> owner) {
  const Lock lock(log);
  if (owner) {
    file_.setOwner(*owner, static_cast<gid_t>(*owner));
  }
  openError_ = file_.open(path) ? 0 : errno;
  isInUse_ = true;
  stream_.clear();
  log.msg_ostream(&stream_, false);
}

std::string LogSink::place() const {
  const Lock lock;
  return openError_ == 0 ? file_.path() : file_.otherPlace();
}

void LogSink::beBackend(ACE_Log_Msg& log) {
  if (!hasForeignBackend()) {
    ACE_Log_Msg::msg_backend(this);
    log.set_flags(ACE_Log_Msg::CUSTOM);
  }
}

bool LogSink::hasForeignBackend() const {
  const ACE_Log_Msg_Backend* const backend = ACE_Log_Msg::msg_backend();
  return backend != nullptr && backend != this;
}

void LogSink::adopt(ACE_Log_Msg& log) {
  if (isInUse_ && log.msg_ostream() == nullptr) {
    log.msg_ostream(&stream_, false);
  }
}

/// ACE calls this on the thread that logs, before it looks for that thread's stream, and under the
/// lock. A stream that has failed would take nothing more; what the sink does with a record shows
/// in the file, so the state of its stream says nothing.
ssize_t LogSink::log(ACE_Log_Record&) {
  adopt(*ACE_Log_Msg::instance());
  stream_.clear();
  return 0;
}

bool LogSink::write(std::string_view record) {
  if (lost_ != 0) {
    reportLost();
  }
  if (lost_ == 0 && file_.write(record)) {
    return true;
  }
  ++lost_;
  writeStandardError(record);
  return false;
}

/// Runs again before every record until the file takes it. All of it has room where it is made.
void LogSink::reportLost() {
  ShortRecord record("QOVPUBLIC", log_id::kLostRecords, kError.tag, __FUNCTION__, __LINE__,
                     LogForm::now());
  record.add("records missing here, since the log file could not be written: ");
  record.add(std::to_string(lost_));
  record.finish();
  assert(record.isComplete());
  if (file_.write(record.line())) {
    lost_ = 0;
  }
}

Failure LogSink::checkFile(long long maxBytes, int predecessors) {
  const Lock lock;
  if (file_.check(maxBytes, predecessors)) {
    return {};
  }
  return {"rotate the log", file_.path(), 0, {}, errnoText(errno)};
}

void LogSink::removeFilesFrom(int number) {
  const Lock lock;
  file_.removeFrom(number);
}

std::streamsize LogSink::xsputn(const char* from, std::streamsize size) {
  const Uncancelled uncancelled;
  const std::string_view text(from, static_cast<size_t>(size));
  const LogForm form = LogForm::now();
  if (form.rewrites() && !isOfKit(text)) {
    try {
      writeOthers(text, form);
    } catch (const std::bad_alloc&) {
      // Told of with the next record, as what the file does not take.
      ++lost_;
      writeStandardError(text);
    }
  } else {
    write(text);
  }
  return size;
}

/// `text` is a line, mostly. In JSON a part of one is an object, too.
void LogSink::writeOthers(std::string_view text, LogForm form) {
  const bool isWhole = !text.empty() && text.back() == '\n';
  const LineWithoutFields line(text.substr(0, text.size() - (isWhole ? 1 : 0)), form);
  if (form.has(LogForm::kJson)) {
    if (!line.message().empty()) {
      write(line.line());
    }
  } else {
    write(isWhole ? line.line() : line.message());
  }
}

LogSink::int_type LogSink::overflow(int_type character) {
  if (!traits_type::eq_int_type(character, traits_type::eof())) {
    const char single = traits_type::to_char_type(character);
    xsputn(&single, 1);
  }
  return traits_type::not_eof(character);
}

}  // namespace qov
