#include "diag/record_pieces.h"

#include <algorithm>

namespace qov {

namespace {

/// Writing does not change the text, though its type cannot say so.
iovec piece(std::string_view text) {
  return {const_cast<char*>(text.data()), text.size()};
}

}  // namespace

RecordPieces::RecordPieces(std::string_view head, std::string_view message) {
  const size_t size = head.size() + message.size() + 1;
  if (size > short_.size()) {
    pieces_ = {piece(head), piece(message), piece("\n")};
    count_ = 3;
    return;
  }
  char* const end =
      std::copy(message.begin(), message.end(), std::copy(head.begin(), head.end(), short_.data()));
  *end = '\n';
  pieces_[0] = {short_.data(), size};
  count_ = 1;
}

}  // namespace qov
