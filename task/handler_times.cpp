#include "task/handler_times.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

namespace qov {

std::size_t TimeHistogram::bucketOf(std::uint64_t nanoseconds) {
  const std::uint64_t units = nanoseconds >> kUnitBits;
  if (units < (1U << kBucketBits)) {
    return units;
  }
  const unsigned int bits = 63U - static_cast<unsigned int>(__builtin_clzll(units));
  const unsigned int shift = bits - kBucketBits;
  const std::uint64_t part = (units >> shift) - (1U << kBucketBits);
  return std::min<std::size_t>(((shift + 1) << kBucketBits) + part, kBuckets - 1);
}

std::uint64_t TimeHistogram::endOf(std::size_t bucket) {
  constexpr std::size_t kParts = std::size_t{1} << kBucketBits;
  const std::size_t next = bucket + 1;
  const std::uint64_t units =
      next < kParts ? next : (kParts + next % kParts) << (next / kParts - 1);
  return units << kUnitBits;
}

void TimeHistogram::add(std::uint64_t nanoseconds) {
  std::uint32_t& count = counts_[bucketOf(nanoseconds)];
  // What is full stays so: a quantile is wrong then, but not much.
  count += count < std::numeric_limits<std::uint32_t>::max() ? 1 : 0;
}

std::uint64_t TimeHistogram::quantile(double part) const {
  std::uint64_t all = 0;
  for (const std::uint32_t count : counts_) {
    all += count;
  }
  std::uint64_t left = static_cast<std::uint64_t>(std::ceil(part * static_cast<double>(all)));
  for (std::size_t i = 0; left > 0 && i < counts_.size(); ++i) {
    if (counts_[i] >= left) {
      return endOf(i);
    }
    left -= counts_[i];
  }
  return 0;
}

HandlerTimes::Code& HandlerTimes::find(std::uint64_t opc, bool isContinuation) noexcept {
  for (const std::unique_ptr<Code>& code : codes_) {
    if (code->opc == opc && code->isContinuation == isContinuation) {
      return *code;
    }
  }
  if (codes_.size() >= QOVActivity::kMostCodes) {
    return others_;
  }
  std::unique_ptr<Code> made(new (std::nothrow) Code);
  if (made == nullptr) {
    return others_;
  }
  made->opc = opc;
  made->isContinuation = isContinuation;
  // There is room for it.
  return *codes_.emplace_back(std::move(made));
}

void HandlerTimes::add(std::uint64_t opc, bool isContinuation, std::uint64_t nanoseconds) noexcept {
  const std::lock_guard<std::mutex> held(mutex_);
  Code& code = find(opc, isContinuation);
  ++code.count;
  code.sum += nanoseconds;
  code.longest = std::max(code.longest, nanoseconds);
  code.histogram.add(nanoseconds);
}

HandlerTimes::Code HandlerTimes::copyOf(std::size_t index) const {
  const std::lock_guard<std::mutex> held(mutex_);
  return index < codes_.size() ? *codes_[index] : others_;
}

void HandlerTimes::list(unsigned int moduleId, std::vector<QOVHandlerTimes>& times) const {
  using Duration = QOVHandlerTimes::Duration;
  std::size_t count = 0;
  {
    const std::lock_guard<std::mutex> held(mutex_);
    count = codes_.size();
  }
  // Each for itself, so that no handler waits for more than the copying of one. None goes.
  for (std::size_t i = 0; i <= count; ++i) {
    const bool isOthers = i == count;
    const Code code = isOthers ? copyOf(QOVActivity::kMostCodes) : copyOf(i);
    if (isOthers && code.count == 0) {
      return;
    }
    QOVHandlerTimes& told = times.emplace_back();
    told.moduleId_ = moduleId;
    told.opc_ = code.opc;
    told.continuation_ = code.isContinuation;
    told.others_ = isOthers;
    told.count_ = code.count;
    told.sum_ = Duration(code.sum);
    told.longest_ = Duration(code.longest);
    told.median_ = Duration(std::min(code.histogram.quantile(0.5), code.longest));
    told.percentile99_ = Duration(std::min(code.histogram.quantile(0.99), code.longest));
  }
}

}  // namespace qov
