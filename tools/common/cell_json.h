#ifndef QOV_TOOLS_COMMON_CELL_JSON_H
#define QOV_TOOLS_COMMON_CELL_JSON_H

#include <json/value.h>
#include <qovpub/qov_msg_cell.h>

#include <string>

namespace qov::tools {

// A cell as JSON: {"tag":n,"type":T,"length":n,"value":v}, where T is the type's name in dumps.
//
//   Invalid, Octet            v is the bytes in lower-case hexadecimal digits
//   String                    the text without its NUL
//   Uint, Bool, Enum, Time    the number, as the library reads the value's bytes
//   Int                       the same, signed
//   Array, Json               the value that the text stands for
//
// Bytes that cellFromJson() would not make of that (no UTF-8, no NUL, bytes behind the first one, JSON in
// another form than the library writes, ...) are shown as {"octets":"<hexadecimal digits>"}, so that
// cellFromJson(toJson(c)) is always equal to c.

Json::Value toJson(const CTLVCell& cell);

/// The cell that `json` describes; `place` is where `json` stands, for the text of BadJson.
///
/// Without "length" a number takes the fewest of 1, 2, 4 and 8 bytes. With it, a number takes so
/// many, and is refused if it would not be read back from them; of any other value it has to be the
/// length.
CTLVCell cellFromJson(const Json::Value& json, const std::string& place);

/// The type of that name; throws BadJson for another text.
CTLVCell::ETLVType typeFromName(const std::string& name, const std::string& place);

}  // namespace qov::tools

#endif
