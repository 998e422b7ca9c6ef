#include "tools/qovctl/reply_output.h"

#include "modules/common/message_json.h"
#include "tools/qovctl/message.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {

void ReplyOutput::add(const CT7QPackageV3& reply) {
  switch (format_) {
    case Format::kRows:
      ctl::print(text_(reply));
      break;
    case Format::kDump:
      ctl::print(dumpOf(reply));
      break;
    case Format::kJson:
      document().add(common::toJson(reply));
      break;
  }
  // Whoever waits for the next one sees this one.
  finishOutput();
}

JsonDocument& ReplyOutput::document() {
  return document_ ? *document_ : document_.emplace(Kind::kV3);
}

void ReplyOutput::end() {
  if (format_ == Format::kJson) {
    document();
  }
  endDocument();
}

void ReplyOutput::endDocument() {
  if (document_) {
    document_->end();
  }
}

}  // namespace qov::ctl
