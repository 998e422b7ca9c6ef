#include <qovpub/qov_exception.h>

#include <utility>

#include "frame/env/env_failure.h"

// NOLINTNEXTLINE(bugprone-throw-keyword-missing): a member that holds the text
CQOV_Exception::CQOV_Exception(const std::string& message) : text_("CQOV_Exception: " + message) {}

CQOV_Exception::~CQOV_Exception() = default;

const char* CQOV_Exception::what() const noexcept {
  return text_.what();
}

namespace qov {

EnvFailure::EnvFailure(const std::string& message, Failure failure)
    : CQOV_Exception(message), failure_(std::make_shared<const Failure>(std::move(failure))) {}

}  // namespace qov
