#include "diag/log_stream.h"

#include <array>
#include <atomic>
#include <cstring>

#include "diag/log_level.h"
#include "diag/record_head.h"
#include "diag/standard_error.h"

namespace qov {

namespace {

constexpr unsigned long long kLostRecordsId = 65536;
constexpr size_t kShortRecord = 1024;

std::atomic<LogStream*> processStream{nullptr};

iovec piece(std::string_view text) {
  return {const_cast<char*>(text.data()), text.size()};
}

}  // namespace

LogStream::LogStream() : std::ostream(nullptr), buffer_(*this) {
  rdbuf(&buffer_);
}

LogStream* LogStream::process() {
  return processStream.load(std::memory_order_acquire);
}

LogStream& LogStream::use(const std::string& path) {
  LogStream* stream = process();
  if (stream == nullptr) {
    stream = new LogStream;  // never freed
    processStream.store(stream, std::memory_order_release);
  }
  stream->clear();
  stream->file_.open(path);
  return *stream;
}

void LogStream::writeRecord(std::string_view head, std::string_view message) {
  std::array<char, kShortRecord> shortRecord;
  const size_t size = head.size() + message.size() + 1;
  if (size <= shortRecord.size()) {  // the kernel takes one piece faster than three
    std::memcpy(shortRecord.data(), head.data(), head.size());
    std::memcpy(shortRecord.data() + head.size(), message.data(), message.size());
    shortRecord[size - 1] = '\n';
    const iovec whole = {shortRecord.data(), size};
    write(&whole, 1);
    return;
  }
  const std::array<iovec, 3> pieces = {piece(head), piece(message), piece("\n")};
  write(pieces.data(), static_cast<int>(pieces.size()));
}

void LogStream::write(const iovec* pieces, int count) {
  if (lost_ != 0) {
    reportLost();
  }
  if (lost_ == 0 && file_.write(pieces, count)) {
    return;
  }
  ++lost_;
  for (int i = 0; i < count; ++i) {
    writeStandardError({static_cast<const char*>(pieces[i].iov_base), pieces[i].iov_len});
  }
}

/// Runs again before every record until the file takes it.
void LogStream::reportLost() {
  const RecordHead head("QOVPUBLIC", kLostRecordsId, kError.tag, __FUNCTION__, __LINE__);
  const std::string message =
      std::to_string(lost_) + " records are missing here: the log file could not be written.";
  const std::array<iovec, 3> pieces = {piece(head.text()), piece(message), piece("\n")};
  if (file_.write(pieces.data(), static_cast<int>(pieces.size()))) {
    lost_ = 0;
  }
}

std::streamsize LogStream::Buffer::xsputn(const char* from, std::streamsize size) {
  const iovec text = piece({from, static_cast<size_t>(size)});
  stream_.write(&text, 1);
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
