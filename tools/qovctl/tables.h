#ifndef QOV_TOOLS_QOVCTL_TABLES_H
#define QOV_TOOLS_QOVCTL_TABLES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qov::ctl {

/// The number that all of `text` is, in decimal or, with "0x", hexadecimal digits; nothing when it
/// is none or above `max`.
std::optional<std::uint64_t> numberOf(std::string_view text, std::uint64_t max);

/// The table of that name or number; nothing for another text.
std::optional<std::uint32_t> tableOfText(std::string_view text);

/// The command code that `text` means: a number, or an operation (get-next, get, store, counts), a
/// slash and a table; nothing for another text.
std::optional<std::uint64_t> commandOfText(std::string_view text);

/// What the endpoint calls the cells with `tag` in the rows of `table`; "tag 7" when they have no
/// name.
std::string columnName(std::uint32_t table, unsigned short tag);

/// The tags of the cells that have a name in the rows of `table`, and the key's; none of a table
/// without names.
std::vector<unsigned short> namedColumns(std::uint32_t table);

/// The same as columnName() for its counts.
std::string countName(unsigned short tag);

/// "RET 3 (no such row)".
std::string resultText(std::uint32_t result);

}  // namespace qov::ctl

#endif
