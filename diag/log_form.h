#ifndef QOV_DIAG_LOG_FORM_H
#define QOV_DIAG_LOG_FORM_H

#include <atomic>

namespace qov {

/// How records are written: the optional keys of section "LOG_CFG". Without them, which is how a
/// process begins, a record is the bracketed line with its message as it is.
///
/// Thread: any.
class LogForm {
 public:
  enum Part : unsigned char {
    kJson = 1,    ///< "LogJson": each record is a JSON object on a line of its own
    kEscape = 2,  ///< "LogEscape": line breaks and the like are escaped; JSON does that anyway
    kFold = 4     ///< "LogFold": repeated records are counted, see diag/folding.h
  };

  constexpr LogForm() = default;

  /// The process's. It changes under the lock of LogSink, so a record that was begun before that
  /// still has the form of before.
  static LogForm now() { return LogForm(inForce_.load(std::memory_order_relaxed)); }
  static void use(LogForm form) { inForce_.store(form.parts_, std::memory_order_relaxed); }

  constexpr bool has(Part part) const { return (parts_ & part) != 0; }
  /// Whether a message may need other characters than its own.
  constexpr bool rewrites() const { return (parts_ & (kJson | kEscape)) != 0; }
  constexpr LogForm with(Part part) const {
    return LogForm(static_cast<unsigned char>(parts_ | part));
  }

 private:
  explicit constexpr LogForm(unsigned char parts) : parts_(parts) {}

  static std::atomic<unsigned char> inForce_;

  unsigned char parts_ = 0;
};

}  // namespace qov

#endif
