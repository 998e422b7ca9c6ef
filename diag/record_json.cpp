#include <pthread.h>

#include <algorithm>
#include <cstring>

#include "diag/escapes.h"
#include "diag/record.h"

// What a record needs beyond the bracketed line. It stands apart: the bracketed line's pieces are
// inlined, which the compiler does only where there are few of them.

namespace qov {

void Record::beginLike(char* room, size_t size, std::string_view origin, unsigned long long logId,
                       LogForm form) {
  text_ = room;
  capacity_ = size;
  form_ = form;
  if (form.has(LogForm::kJson)) {
    appendJsonTime();
    add(",\"id\":");
  } else {
    addTime();
  }
  addNumber(logId);
  add(origin.substr(std::min(origin.find_first_not_of("0123456789"), origin.size())));
  appendThread();
  isComplete_ = true;
  messageAt_ = size_;
}

void Record::beginWithoutFields(char* room, size_t size, LogForm form) {
  text_ = room;
  capacity_ = size;
  form_ = form;
  if (form.has(LogForm::kJson)) {
    appendJsonTime();
    add(",\"message\":\"");
  }
  messageAt_ = size_;
  isComplete_ = true;
}

void Record::appendJsonFields(std::string_view kitName, unsigned long long logId, const char* tag,
                              const char* function, unsigned int line) {
  appendJsonTime();
  add(",\"id\":");
  originAt_ = size_;
  addNumber(logId);
  appendJsonText(",\"level\":", tag);
  appendJsonText(",\"kit\":", kitName);
  appendJsonText(",\"function\":", function);
  add(",\"line\":");
  addNumber(line);
  appendJsonProcess();
  add(",\"thread\":");
  appendThread();
}

/// The last field, and what is between it and the message.
void Record::appendThread() {
  threadAt_ = size_;
  addNumber(static_cast<unsigned long long>(pthread_self()));
  add(form_.has(LogForm::kJson) ? ",\"message\":\"" : "] ");
}

void Record::end() {
  if (isComplete_) {
    const std::string_view end = form_.has(LogForm::kJson) ? "\"}\n" : "\n";
    add(end);
    endSize_ = end.size();
    lineSize_ = size_;
  }
}

void Record::appendJsonText(std::string_view name, const char* text) {
  add(name);
  if (text == nullptr) {
    add("null");
  } else {
    appendJsonText({}, std::string_view(text));
  }
}

void Record::appendJsonText(std::string_view name, std::string_view text) {
  add(name);
  add("\"");
  const size_t at = size_;
  add(text);
  escapeFrom(at);
  add("\"");
}

void Record::escapeFrom(size_t at) {
  const Escapes way = form_.has(LogForm::kJson) ? Escapes::kJson : Escapes::kLine;
  const size_t before = size_ - at;
  const size_t after = escapedSize({text_ + at, before}, way);
  if (after != before) {
    makeRoomFor(after - before);
    char* const source = text_ + at + (after - before);
    std::memmove(source, text_ + at, before);
    escape({source, before}, way, text_ + at);
    size_ = at + after;
  }
}

}  // namespace qov
