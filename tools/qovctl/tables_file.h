#ifndef QOV_TOOLS_QOVCTL_TABLES_FILE_H
#define QOV_TOOLS_QOVCTL_TABLES_FILE_H

#include <string>

#include "tools/qovctl/tables.h"

namespace qov::ctl {

/// The tables that the JSON file describes; docs/qovctl.md says how. Throws Failure: kFailed for a
/// file that cannot be read, kBadData with file and line or place for one that is wrong.
Tables readTablesFile(const std::string& file);

/// The tables of the first of these files: `file`, unless empty; the one that QOVCTL_TABLES names;
/// qovpub/tables.json in the user's folder for configuration, if it is there. Those of the endpoint
/// for development when there is none. Throws as readTablesFile() does.
Tables tablesInForce(const std::string& file);

}  // namespace qov::ctl

#endif
