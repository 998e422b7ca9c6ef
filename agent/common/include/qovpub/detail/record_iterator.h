#ifndef QOVPUB_DETAIL_RECORD_ITERATOR_H
#define QOVPUB_DETAIL_RECORD_ITERATOR_H

#include <cstddef>
#include <iterator>

class CTLVRecordV3;

namespace qov {

/// Forward iteration over the records of a package.
template <class Record>
class RecordIterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = CTLVRecordV3;
  using difference_type = std::ptrdiff_t;
  using pointer = Record*;
  using reference = Record&;

  RecordIterator() noexcept = default;
  explicit RecordIterator(CTLVRecordV3* const* at) noexcept : at_(at) {}
  Record& operator*() const noexcept { return **at_; }
  Record* operator->() const noexcept { return *at_; }
  RecordIterator& operator++() noexcept {
    ++at_;
    return *this;
  }
  RecordIterator operator++(int) noexcept { return RecordIterator(at_++); }
  bool operator==(const RecordIterator& other) const noexcept { return at_ == other.at_; }
  bool operator!=(const RecordIterator& other) const noexcept { return at_ != other.at_; }

 private:
  CTLVRecordV3* const* at_ = nullptr;
};

}  // namespace qov

#endif
