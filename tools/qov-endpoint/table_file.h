#ifndef QOV_TOOLS_QOV_ENDPOINT_TABLE_FILE_H
#define QOV_TOOLS_QOV_ENDPOINT_TABLE_FILE_H

#include <string>

#include "tools/qov-endpoint/tables.h"

namespace qov::endpoint {

/// Makes the tables that a JSON file describes; docs/endpoint.md says how. A std::runtime_error
/// names the file and the place of what is wrong.
void loadTables(const std::string& path, Tables& tables);

}  // namespace qov::endpoint

#endif
