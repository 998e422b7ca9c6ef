#ifndef QOV_TOOLS_QOVCTL_REPLY_OUTPUT_H
#define QOV_TOOLS_QOVCTL_REPLY_OUTPUT_H

#include <qovpub/qov_message_package.h>

#include <functional>
#include <optional>
#include <string>

#include "tools/qovctl/json_document.h"

namespace qov::ctl {

enum class Format {
  kRows,  ///< names and values
  kDump,  ///< as in the logs
  kJson,
};

/// Prints replies, each as it comes: as text, as the logs have it, or as a message of one JSON
/// document.
///
/// Thread: one.
/// Owns:   the text's maker.
/// Errors: Failure when it cannot be written.
class ReplyOutput {
 public:
  using Text = std::function<std::string(const CT7QPackageV3& reply)>;

  /// `text` makes the text of format kRows.
  ReplyOutput(Format format, Text text) : format_(format), text_(std::move(text)) {}

  /// Prints a reply, without delay.
  void add(const CT7QPackageV3& reply);

  /// Lets `act` print all there is, and then what is behind it: of JSON the document's end. When
  /// `act` throws only if there was a reply.
  template <class Act>
  void print(Act act) {
    try {
      act();
    } catch (...) {
      endDocument();
      throw;
    }
    end();
  }

 private:
  JsonDocument& document();
  void endDocument();
  void end();

  const Format format_;
  const Text text_;
  std::optional<JsonDocument> document_;
};

}  // namespace qov::ctl

#endif
