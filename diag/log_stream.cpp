#include "diag/log_stream.h"

#include <atomic>
#include <cerrno>
#include <new>

#include "diag/destination_lock.h"
#include "diag/log_level.h"
#include "diag/record.h"
#include "diag/standard_error.h"
#include "diag/uncancelled.h"

namespace qov {

namespace {

constexpr unsigned long long kLostRecordsId = 65536;

std::atomic<LogStream*> processStream{nullptr};

}  // namespace

LogStream::LogStream() : std::ostream(nullptr), buffer_(*this) {
  rdbuf(&buffer_);
}

LogStream* LogStream::process() {
  return processStream.load(std::memory_order_acquire);
}

LogStream& LogStream::use(const std::string& path, std::optional<uid_t> owner) {
  const DestinationLock lock;
  LogStream* stream = process();
  if (stream == nullptr) {
    stream = new LogStream;  // never freed
    processStream.store(stream, std::memory_order_release);
  }
  stream->clear();
  if (owner) {
    stream->file_.setOwner(*owner, static_cast<gid_t>(*owner));
  }
  stream->openError_ = stream->file_.open(path) ? 0 : errno;
  return *stream;
}

bool LogStream::writeRecord(std::string_view record) {
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

/// Runs again before every record until the file takes it. Throws nothing: ACE's insertion would
/// take that for a bad stream.
void LogStream::reportLost() try {
  ShortRecord record("QOVPUBLIC", kLostRecordsId, kError.tag, __FUNCTION__, __LINE__);
  record.add("records missing here, since the log file could not be written: ");
  record.add(std::to_string(lost_));
  record.finish();
  if (file_.write(record.line())) {
    lost_ = 0;
  }
} catch (const std::bad_alloc&) {
}

void LogStream::checkFile(long long maxBytes, int predecessors) noexcept try {
  const DestinationLock lock;
  file_.check(maxBytes, predecessors);
} catch (const std::bad_alloc&) {
}

void LogStream::removeFilesFrom(int number) {
  const DestinationLock lock;
  file_.removeFrom(number);
}

std::streamsize LogStream::Buffer::xsputn(const char* from, std::streamsize size) {
  const Uncancelled uncancelled;
  stream_.writeRecord({from, static_cast<size_t>(size)});
  return size;
}

LogStream::Buffer::int_type LogStream::Buffer::overflow(int_type character) {
  if (!traits_type::eq_int_type(character, traits_type::eof())) {
    const char single = traits_type::to_char_type(character);
    xsputn(&single, 1);
  }
  return traits_type::not_eof(character);
}

}  // namespace qov
