#include "tests/module/process_log.h"

#include <pthread.h>

#include <chrono>
#include <sstream>

#include "tests/support/counts.h"

namespace qov::test {
namespace {

constexpr std::chrono::seconds kLimit{60};

ACE_Log_Msg& aceLog() {
  return *ACE_Log_Msg::instance();
}

}  // namespace

ProcessLog::ProcessLog(u_long mask)
    : flags_(aceLog().flags()),
      formerStream_(aceLog().msg_ostream()),
      formerMask_(aceLog().priority_mask(mask, ACE_Log_Msg::PROCESS)) {
  aceLog().clr_flags(flags_);
  aceLog().set_flags(ACE_Log_Msg::OSTREAM);
  aceLog().msg_ostream(&stream_);
}

ProcessLog::~ProcessLog() {
  aceLog().msg_ostream(formerStream_);
  aceLog().clr_flags(~0UL);
  aceLog().set_flags(flags_);
  aceLog().priority_mask(formerMask_, ACE_Log_Msg::PROCESS);
}

std::vector<std::string> ProcessLog::messages(const std::string& tag) const {
  const std::string tagField = "][" + tag + "][";
  const std::string threadField = ":" + std::to_string(::pthread_self()) + "] ";
  std::vector<std::string> found;
  std::istringstream lines(text());
  for (std::string line; std::getline(lines, line);) {
    const std::size_t thread = line.find(threadField);
    if (line.find(tagField) != std::string::npos && thread != std::string::npos) {
      found.push_back(line.substr(thread + threadField.size()));
    }
  }
  return found;
}

std::string ProcessLog::Buffer::text() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return text_;
}

void ProcessLog::Buffer::clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  text_.clear();
}

bool ProcessLog::Buffer::waitFor(const std::string& part, int count) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return grown_.wait_for(lock, kLimit, [&] { return timesOf(part, text_) >= count; });
}

ProcessLog::Buffer::int_type ProcessLog::Buffer::overflow(int_type c) {
  const std::lock_guard<std::mutex> lock(mutex_);
  text_.push_back(traits_type::to_char_type(c));
  grown_.notify_all();
  return c;
}

std::streamsize ProcessLog::Buffer::xsputn(const char* s, std::streamsize n) {
  const std::lock_guard<std::mutex> lock(mutex_);
  text_.append(s, static_cast<std::size_t>(n));
  grown_.notify_all();
  return n;
}

}  // namespace qov::test
