#ifndef QOV_DIAG_RECORD_HEAD_H
#define QOV_DIAG_RECORD_HEAD_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qov {

/// What a record carries in front of its message: the seven bracketed fields and a blank.
/// Lives on the stack; only names that are longer than any sensible one make it allocate.
class RecordHead {
 public:
  RecordHead(const std::string& kitName, unsigned long long logId, const char* tag,
             const char* function, unsigned int line);
  RecordHead(const RecordHead&) = delete;
  RecordHead& operator=(const RecordHead&) = delete;

  /// False when a null tag or function ended the record early: no message follows then.
  bool complete() const { return complete_; }
  std::string_view text() const;

 private:
  void append(std::string_view piece);
  void append(unsigned long long number);
  void appendTime();

  static constexpr size_t kSmall = 512;
  char small_[kSmall];
  size_t size_ = 0;
  std::string large_;  ///< takes over from small_ once that is full
  bool complete_ = false;
};

}  // namespace qov

#endif
