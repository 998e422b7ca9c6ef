#ifndef QOV_DIAG_MESSAGE_TEXT_H
#define QOV_DIAG_MESSAGE_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <string_view>

namespace qov {

/// The text of one formatted message, at most 65,535 characters. 64 KiB on the stack: a thread has
/// 1 MiB, so there is one of these at a time.
class MessageText {
 public:
  /// Prints `format` with `args`. A failure cuts the text where printing stopped; "%n" counts as
  /// a failure.
  MessageText(const char* format, va_list args) __attribute__((format(printf, 2, 0)));
  MessageText(const MessageText&) = delete;
  MessageText& operator=(const MessageText&) = delete;

  /// The text up to its first NUL.
  std::string_view text() const { return text_; }

  static constexpr size_t kSize = 65536;

 private:
  void print(const char* format, va_list args) __attribute__((format(printf, 2, 0)));

  std::string_view text_;
  char buffer_[kSize];  ///< not zeroed: nobody sees more of it than was printed
};

}  // namespace qov

#endif
