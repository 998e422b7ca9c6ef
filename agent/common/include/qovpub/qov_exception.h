#ifndef QOVPUB_QOV_EXCEPTION_H
#define QOVPUB_QOV_EXCEPTION_H

#include <exception>
#include <string>

/// The one exception type of the library: misuse of the message model and missing required
/// configuration.
class CQOV_Exception : public std::exception {
 public:
  /// `message` is what went wrong; what() puts "CQOV_Exception: " in front of it.
  explicit CQOV_Exception(const std::string& message);
  ~CQOV_Exception() override;

  const char* what() const noexcept override;

 private:
  std::string text_;
};

#endif
