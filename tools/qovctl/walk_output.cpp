#include "tools/qovctl/walk_output.h"

#include <sstream>

#include "tools/common/message_json.h"
#include "tools/qovctl/streams.h"
#include "tools/qovctl/tables.h"

namespace qov::ctl {

WalkOutput::WalkOutput(Format format, std::uint32_t table)
    : format_(format),
      rows_(namedColumns(table), [table](unsigned short tag) { return columnName(table, tag); }) {}

void WalkOutput::add(const CT7QPackageV3& reply, bool isRow) {
  if (format_ == Format::kDump) {
    print(dumpOf(reply));
  } else if (isRow) {
    format_ == Format::kJson ? addJson(reply) : print(rows_.lines(reply[0]));
  }
  // Whoever waits for the next row sees this one.
  finishOutput();
}

void WalkOutput::addJson(const CT7QPackageV3& reply) {
  if (!document_) {
    document_.emplace(Kind::kV3);
  }
  document_->add(tools::toJson(reply));
}

void WalkOutput::end() {
  if (format_ == Format::kJson && !document_) {
    document_.emplace(Kind::kV3);
  }
  endEarly();
}

void WalkOutput::endEarly() {
  if (document_) {
    document_->end();
  }
}

}  // namespace qov::ctl
