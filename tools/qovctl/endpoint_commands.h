#ifndef QOV_TOOLS_QOVCTL_ENDPOINT_COMMANDS_H
#define QOV_TOOLS_QOVCTL_ENDPOINT_COMMANDS_H

#include <qovpub/qov_msg_head.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/qovctl/columns.h"
#include "tools/qovctl/endpoint_link.h"
#include "tools/qovctl/reply_output.h"
#include "tools/qovctl/request.h"

namespace qov::ctl {

/// What the head of a request says of who asks. What is not set stays as it is.
struct Identity {
  std::optional<std::uint32_t> ssk;
  std::optional<std::uint16_t> nid;
  std::optional<std::uint16_t> bid;

  void putInto(TLVMsgHeadV3& head) const;
};

struct EndpointOptions {
  Target target;
  Identity identity;
  Format format = Format::kRows;
};

// Each prints what came and throws Failure for what did not.

/// The rows with these keys. One that the endpoint refuses keeps it from none of the others.
void getRows(const EndpointOptions& options, std::uint32_t table,
             const std::vector<std::uint64_t>& keys, const Columns& columns);
/// What the endpoint has counted.
void getCounts(const EndpointOptions& options, const Columns& columns);
/// All rows of the table, or those behind `after`, each as it comes.
void walk(const EndpointOptions& options, std::uint32_t table, std::optional<std::uint64_t> after,
          const Columns& columns);
/// Sends the message in `file`, JSON, and prints the reply, whatever its RET, if it can be decoded.
void sendFile(const EndpointOptions& options, const Tables& tables, const std::string& file);
/// The same for the message that the parts make up.
void sendParts(const EndpointOptions& options, const Tables& tables,
               const std::vector<RequestPart>& parts);

}  // namespace qov::ctl

#endif
