#ifndef QOV_TOOLS_QOVCTL_TABLES_TEXT_H
#define QOV_TOOLS_QOVCTL_TABLES_TEXT_H

#include <string>

#include "tools/qovctl/tables.h"

namespace qov::ctl {

/// A line for each column of each table, and one above them that says what they show.
std::string linesOf(const Tables& tables);

}  // namespace qov::ctl

#endif
