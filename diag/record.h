#ifndef QOV_DIAG_RECORD_H
#define QOV_DIAG_RECORD_H

#include <array>
#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

#include "diag/log_form.h"

namespace qov {

/// One record of the log as one text in one buffer: the seven bracketed fields, a blank, the
/// message and a newline. As JSON it is one object on one line, its members in this order:
///
///     {"time":"2026-11-13T19:50:30+01:00","id":65556,"level":"ERR","kit":"QOVPUBLIC",
///     "function":"svc","line":377,"process":"agent","thread":140093214717696,"message":"text"}
///
/// Needs memory only for what is longer than the room that it is made with.
class Record {
 public:
  /// At most this many characters of a printed message are kept.
  static constexpr size_t kLongestPrinted = 65535;

  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  /// Puts one more piece of the message behind the others.
  void add(std::string_view piece);
  /// Puts `format` with `args` behind it, up to its first NUL. A failure cuts the text where
  /// printing stopped; "%n" counts as a failure.
  void print(const char* format, va_list args) __attribute__((format(printf, 2, 0)));
  /// Ends the line, once the message is whole; escapes it first if the form asks for that.
  void finish();

  /// The line with its newline. It ends in front of a tag or function that is null.
  std::string_view line() const { return {text_, lineSize_}; }
  /// As it stands in the line, once that is finished.
  std::string_view message() const { return {text_ + messageAt_, size_ - messageAt_ - endSize_}; }
  /// The fields from the log id up to the process name, as they stand in the line.
  std::string_view origin() const { return {text_ + originAt_, threadAt_ - originAt_}; }
  /// False when a null tag or function has ended the line. JSON has null for one.
  bool isComplete() const { return isComplete_; }
  LogForm form() const { return form_; }

 protected:
  Record() = default;
  ~Record() = default;
  /// Writes the fields into `room`. A null `tag` or `function` ends the line there.
  void begin(char* room, size_t size, std::string_view kitName, unsigned long long logId,
             const char* tag, const char* function, unsigned int line, LogForm form);
  /// Takes them from the origin() of another record of that form, all but the id.
  void beginLike(char* room, size_t size, std::string_view origin, unsigned long long logId,
                 LogForm form);
  /// A line that is not of a kit: its time, in JSON, is all that is known of it.
  void beginWithoutFields(char* room, size_t size, LogForm form);
  /// Ends the line without a look at the message.
  void end();

 private:
  void addNumber(unsigned long long number);
  /// In its brackets, and the one that follows.
  void addTime();
  bool appendFields(std::string_view kitName, unsigned long long logId, const char* tag,
                    const char* function, unsigned int line);
  void appendJsonFields(std::string_view kitName, unsigned long long logId, const char* tag,
                        const char* function, unsigned int line);
  void appendJsonTime();
  void appendJsonProcess();
  /// Behind `name`, which has its quotes and colon; a null text becomes null.
  void appendJsonText(std::string_view name, const char* text);
  void appendJsonText(std::string_view name, std::string_view text);
  void appendThread();
  void escapeFrom(size_t at);
  void append(std::string_view piece);
  void append(unsigned long long number);
  void printBounded(const char* format, va_list args) __attribute__((format(printf, 2, 0)));
  void makeRoomFor(size_t more) {
    if (more > capacity_ - size_) {
      enlarge(more);
    }
  }
  void enlarge(size_t more);

  char* text_ = nullptr;
  size_t capacity_ = 0;
  size_t size_ = 0;
  size_t originAt_ = 0;
  size_t threadAt_ = 0;
  size_t messageAt_ = 0;
  size_t endSize_ = 0;
  size_t lineSize_ = 0;
  bool isComplete_ = false;
  LogForm form_;
  std::string large_;  ///< in place of the room, once that is full
};

/// A record with room on the stack.
template <size_t kRoom>
class RecordOf : public Record {
 public:
  RecordOf(std::string_view kitName, unsigned long long logId, const char* tag,
           const char* function, unsigned int line, LogForm form) {
    begin(room_.data(), kRoom, kitName, logId, tag, function, line, form);
  }

 private:
  std::array<char, kRoom> room_;  ///< not zeroed: nobody sees more of it than was written
};

/// For a message that exists already.
using ShortRecord = RecordOf<2048>;
/// For one that is printed. A thread has 1 MiB of stack, so there is one of these at a time.
using PrintedRecord = RecordOf<1024 + Record::kLongestPrinted + 1>;

/// A line of code that writes into the log without a kit. In JSON it is an object of time and
/// message.
class LineWithoutFields : public Record {
 public:
  LineWithoutFields(std::string_view text, LogForm form) {
    beginWithoutFields(room_.data(), room_.size(), form);
    add(text);
    finish();
  }

 private:
  std::array<char, 8192> room_;  ///< not zeroed
};

}  // namespace qov

#endif
