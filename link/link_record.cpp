#include "link/link_record.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace qov {
namespace {

struct AllRecords {
  std::mutex mutex;
  std::vector<LinkRecord*> records;  ///< guarded by mutex
};

AllRecords& all() {
  // Never destroyed: links may go after every static object.
  static AllRecords& only = *new AllRecords;
  return only;
}

}  // namespace

LinkRecord::LinkRecord(const std::string& endpoint) : changed_(Clock::now()) {
  stats_.endpoint_ = endpoint;
  const std::lock_guard<std::mutex> held(all().mutex);
  all().records.push_back(this);
}

LinkRecord::~LinkRecord() {
  const std::lock_guard<std::mutex> held(all().mutex);
  auto& records = all().records;
  records.erase(std::find(records.begin(), records.end(), this));
}

void LinkRecord::connected() {
  const std::lock_guard<std::mutex> held(all().mutex);
  stats_.connected_ = true;
  ++stats_.connections_;
  changed_ = Clock::now();
}

void LinkRecord::disconnected() noexcept {
  const std::lock_guard<std::mutex> held(all().mutex);
  if (stats_.connected_) {
    stats_.connected_ = false;
    changed_ = Clock::now();
  }
}

void LinkRecord::failed(std::string cause) {
  const std::lock_guard<std::mutex> held(all().mutex);
  stats_.lastError_.swap(cause);
}

void LinkRecord::lost(std::string cause) {
  const std::lock_guard<std::mutex> held(all().mutex);
  if (stats_.connected_) {
    stats_.connected_ = false;
    changed_ = Clock::now();
    stats_.lastError_.swap(cause);
  }
}

}  // namespace qov

std::vector<QOVLinkStats> getLinkStats() {
  std::vector<QOVLinkStats> stats;
  const std::lock_guard<std::mutex> held(qov::all().mutex);
  const auto now = qov::LinkRecord::Clock::now();
  for (const qov::LinkRecord* const record : qov::all().records) {
    stats.push_back(record->stats_);
    stats.back().since_ = now - record->changed_;
  }
  return stats;
}
