#ifndef QOV_TOOLS_QOVCTL_ENDPOINT_COMMANDS_H
#define QOV_TOOLS_QOVCTL_ENDPOINT_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/qovctl/endpoint_link.h"
#include "tools/qovctl/request.h"

namespace qov::ctl {

enum class Format {
  kRows,  ///< names and values
  kDump,  ///< as in the logs
  kJson,
};

struct EndpointOptions {
  Target target;
  Format format = Format::kRows;
};

// Each prints what came and throws Failure for what did not.

/// The row with that key.
void getRow(const EndpointOptions& options, std::uint32_t table, std::uint64_t key);
/// What the endpoint has counted.
void getCounts(const EndpointOptions& options);
/// All rows of the table, or those behind `after`, each as it comes.
void walk(const EndpointOptions& options, std::uint32_t table, std::optional<std::uint64_t> after);
/// Sends the message in `file`, JSON, and prints the reply, whatever its RET, if it can be
/// decoded: as JSON, or as logs have it.
void sendFile(const EndpointOptions& options, const std::string& file);
/// The same for the message that the parts make up.
void sendParts(const EndpointOptions& options, const std::vector<RequestPart>& parts);

}  // namespace qov::ctl

#endif
