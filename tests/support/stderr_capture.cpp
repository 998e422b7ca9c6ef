#include "tests/support/stderr_capture.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "tests/support/counts.h"

namespace {

void writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd, data, size);
    if (written <= 0) {
      return;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
}

}  // namespace

StderrCapture::StderrCapture()
    : saved_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 10)), pipe_{-1, -1} {
  if (saved_ == -1 || ::pipe2(pipe_, O_CLOEXEC) != 0) {
    throw std::runtime_error("cannot capture standard error");
  }
  std::fflush(stderr);
  ::dup2(pipe_[1], STDERR_FILENO);
  reader_ = std::thread([this] { read(); });
}

StderrCapture::~StderrCapture() {
  std::fflush(stderr);
  ::dup2(saved_, STDERR_FILENO);
  ::close(pipe_[1]);
  reader_.join();
  ::close(pipe_[0]);
  ::close(saved_);
}

void StderrCapture::read() {
  char buffer[4096];
  for (;;) {
    const ssize_t size = ::read(pipe_[0], buffer, sizeof buffer);
    if (size <= 0) {
      return;
    }
    writeAll(saved_, buffer, static_cast<std::size_t>(size));
    const std::lock_guard<std::mutex> lock(mutex_);
    text_.append(buffer, static_cast<std::size_t>(size));
    changed_.notify_all();
  }
}

bool StderrCapture::waitFor(const std::string& text, int times) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, kPatience,
                           [&] { return qov::test::timesOf(text, text_) >= times; });
}

void StderrCapture::flush() {
  const std::string mark = "-- end of capture " + std::to_string(++marks_) + " --\n";
  std::fflush(stderr);
  writeAll(pipe_[1], mark.data(), mark.size());
  waitFor(mark);
}

std::string StderrCapture::text() {
  flush();
  const std::lock_guard<std::mutex> lock(mutex_);
  return text_;
}

int StderrCapture::count(const std::string& text) {
  flush();
  const std::lock_guard<std::mutex> lock(mutex_);
  return qov::test::timesOf(text, text_);
}
