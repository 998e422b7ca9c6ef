#ifndef QOVPUB_QOV_EXCEPTION_H
#define QOVPUB_QOV_EXCEPTION_H

#include <qovpub/qov_export.h>

#include <exception>
#include <stdexcept>
#include <string>

/// The one exception type of the library: misuse of the message model and missing required
/// configuration.
///
/// Thread: an exception belongs to the thread that handles it; copies may go to other threads.
/// Owns:   its text, which copies share, so that copying never throws.
/// Errors: the constructor throws std::bad_alloc when there is no memory for the text.
class QOV_EXPORT CQOV_Exception : public std::exception {
 public:
  /// `message` is what went wrong; what() puts "CQOV_Exception: " in front of it.
  explicit CQOV_Exception(const std::string& message);
  /// @{
  /// A copy that shares the text.
  CQOV_Exception(const CQOV_Exception&) noexcept = default;
  CQOV_Exception& operator=(const CQOV_Exception&) noexcept = default;
  /// @}
  ~CQOV_Exception() override;

  /// The text; it lives as long as this exception.
  const char* what() const noexcept override;

 private:
  std::runtime_error text_;  // holds the text in the shape that can be copied without throwing
};

#endif
