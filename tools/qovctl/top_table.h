#ifndef QOV_TOOLS_QOVCTL_TOP_TABLE_H
#define QOV_TOOLS_QOVCTL_TOP_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

#include "tools/qovctl/agent_parts.h"

namespace qov::ctl {

/// `text`, or the start of it and ">" if it is longer than `length`.
std::string cut(const std::string& text, std::size_t length);

/// A table's lines of at most `columns` characters, the headings first. Columns that matter less
/// are left out where not all fit.
std::vector<std::string> fittingLines(std::vector<Row> table, std::size_t columns);

/// The first `count` of these lines, the last of which tells how many are missing.
std::vector<std::string> firstLines(std::vector<std::string> lines, std::size_t count);

/// How many lines of tables with so many rows have room among `room` lines, headings and an empty
/// line before each included: at least one row of each, the first tables first; then more of each,
/// of the first table twice as many. 0 for a table without rows.
std::vector<std::size_t> rowsThatFit(const std::vector<std::size_t>& rows, std::size_t room);

}  // namespace qov::ctl

#endif
