#ifndef QOV_TOOLS_QOVCTL_ROWS_TEXT_H
#define QOV_TOOLS_QOVCTL_ROWS_TEXT_H

#include <qovpub/qov_message_package.h>

#include <functional>
#include <string>

namespace qov::ctl {

/// Names the cells with a tag.
using Naming = std::function<std::string(unsigned short tag)>;

/// The value for a reader: text as it is, with control characters in hexadecimal form, octets in
/// hexadecimal digits, numbers in decimal ones.
std::string valueText(const CTLVCell& cell);

/// A line of name and value for each cell but the status.
std::string rowLines(const CTLVRecordV3& row, const Naming& naming);

/// A line of column names, the key first, and one of values for each record; the values of cells
/// with one tag behind one another. No line for no record.
std::string rowTable(const CT7QPackageV3& rows, const Naming& naming);

}  // namespace qov::ctl

#endif
