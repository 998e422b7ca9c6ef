#ifndef QOV_TOOLS_QOVCTL_REFUSAL_H
#define QOV_TOOLS_QOVCTL_REFUSAL_H

#include <cstddef>
#include <string>
#include <string_view>

#include "tools/qovctl/message.h"

namespace qov::ctl {

/// Why bytes are no message.
struct Refusal {
  /// One of head-short, magic, version, type, length, record-short, record-length, cell-short,
  /// cell-type, cell-length.
  std::string word;
  /// Of the field that is wrong, from the message's start.
  std::size_t offset = 0;
  std::string detail;
};

/// What is wrong with the message at the start of `bytes`, which the library refuses to decode as
/// one of that kind. The checks are made in the library's order; the first that fails counts.
/// Throws std::bad_alloc when nothing is wrong but memory.
Refusal findRefusal(std::string_view bytes, Kind kind);

/// What is wrong with bytes whose kind cannot be told.
Refusal unknownKind(std::string_view bytes);

/// The line that tells it; `start` is where in the input the message begins.
std::string textOf(const Refusal& refusal, std::size_t start);

}  // namespace qov::ctl

#endif
