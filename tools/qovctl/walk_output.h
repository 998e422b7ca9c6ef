#ifndef QOV_TOOLS_QOVCTL_WALK_OUTPUT_H
#define QOV_TOOLS_QOVCTL_WALK_OUTPUT_H

#include <qovpub/qov_message_package.h>

#include <cstdint>
#include <optional>

#include "tools/qovctl/endpoint_commands.h"
#include "tools/qovctl/json_document.h"
#include "tools/qovctl/rows_text.h"

namespace qov::ctl {

/// Prints what a walk reads, each reply as it comes: as a line of a table, as the logs have it, or
/// as a message of one JSON document.
///
/// Thread: one.
/// Owns:   the table's columns.
/// Errors: Failure when it cannot be written.
class WalkOutput {
 public:
  WalkOutput(Format format, std::uint32_t table);

  /// Prints a reply, without delay. Of one that is no row only a dump shows anything.
  void add(const CT7QPackageV3& reply, bool isRow);
  /// Prints what is behind the rows of a walk that has come to its end.
  void end();
  /// The same of one that has failed: nothing, unless there were rows.
  void endEarly();

 private:
  void addJson(const CT7QPackageV3& reply);

  const Format format_;
  RowTable rows_;
  std::optional<JsonDocument> document_;
};

}  // namespace qov::ctl

#endif
