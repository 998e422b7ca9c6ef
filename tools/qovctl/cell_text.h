#ifndef QOV_TOOLS_QOVCTL_CELL_TEXT_H
#define QOV_TOOLS_QOVCTL_CELL_TEXT_H

#include <qovpub/qov_msg_cell.h>

#include <string>

#include "tools/qovctl/tables.h"

namespace qov::ctl {

/// The cell that TAG:TYPE:VALUE stands for, or COLUMN:VALUE with a column of `table`, which may be
/// null. VALUE is read as the type has it: hexadecimal digits, text, a number or JSON. Throws
/// BadJson with what is wrong.
CTLVCell cellOfText(const std::string& text, const Table* table);

}  // namespace qov::ctl

#endif
