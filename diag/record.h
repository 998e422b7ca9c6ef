#ifndef QOV_DIAG_RECORD_H
#define QOV_DIAG_RECORD_H

#include <array>
#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

namespace qov {

/// One record of the log as one text in one buffer: the seven bracketed fields, a blank, the
/// message and a newline. Needs memory only for what is longer than the room that it is made with.
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
  /// Ends the line, once the message is whole.
  void finish();

  /// The line with its newline. It ends in front of a tag or function that is null.
  std::string_view line() const { return {text_, lineSize_}; }
  std::string_view message() const { return {text_ + messageAt_, messageSize_}; }
  /// False when a null tag or function has ended the line.
  bool isComplete() const { return isComplete_; }

 protected:
  Record() = default;
  ~Record() = default;
  /// Writes the fields into `room`. A null `tag` or `function` ends the line there.
  void begin(char* room, size_t size, std::string_view kitName, unsigned long long logId,
             const char* tag, const char* function, unsigned int line);

 private:
  bool appendFields(std::string_view kitName, unsigned long long logId, const char* tag,
                    const char* function, unsigned int line);
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
  size_t messageAt_ = 0;
  size_t messageSize_ = 0;
  size_t lineSize_ = 0;
  bool isComplete_ = false;
  std::string large_;  ///< in place of the room, once that is full
};

/// A record with room on the stack.
template <size_t kRoom>
class RecordOf : public Record {
 public:
  RecordOf(std::string_view kitName, unsigned long long logId, const char* tag,
           const char* function, unsigned int line) {
    begin(room_.data(), kRoom, kitName, logId, tag, function, line);
  }

 private:
  std::array<char, kRoom> room_;  ///< not zeroed: nobody sees more of it than was written
};

/// For a message that exists already.
using ShortRecord = RecordOf<2048>;
/// For one that is printed. A thread has 1 MiB of stack, so there is one of these at a time.
using PrintedRecord = RecordOf<1024 + Record::kLongestPrinted + 1>;

}  // namespace qov

#endif
