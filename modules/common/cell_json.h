#ifndef QOV_MODULES_COMMON_CELL_JSON_H
#define QOV_MODULES_COMMON_CELL_JSON_H

#include <json/value.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg_cell.h>

#include <string>

namespace qov::common {

// A cell as JSON: {"tag":n,"type":T,"length":n,"value":v}, where T is the type's name in dumps.
//
//   Invalid, Octet            v is the bytes in lower-case hexadecimal digits
//   String                    the text without its NUL
//   Uint, Bool, Enum, Time    the number, as the library reads the value's bytes
//   Int                       the same, signed
//   Array, Json               the value that the text stands for
//
// What is read may have true and false for the Bool values 1 and 0.
//
// Bytes that are not that are shown as {"octets":"<hexadecimal digits>"}: text that is not UTF-8,
// has no NUL or more behind its first one, or is not JSON of its type; and JSON with a number in
// fewer characters than it would be written with, such as 1e5. A value that is an object
// with just the key "octets" is shown so, too.

Json::Value toJson(const CTLVCell& cell);

/// The cell that `json` describes; `place` is where `json` stands, for the text of BadJson.
///
/// Without "length" a number takes the fewest of 1, 2, 4 and 8 bytes and JSON is written without
/// blanks. With it, a number takes so many, and is refused if it would not be read back from them;
/// JSON is filled up with blanks. Of any other value it has to be the length.
///
/// Gives the bytes back of which toJson() was made, with two exceptions: of a number of more than 8
/// bytes only the first 8 are shown, the others become zeros, and JSON may be written otherwise
/// than it was.
CTLVCell cellFromJson(const Json::Value& json, const std::string& place);

/// What the message model refuses, without the name of the exception.
std::string reasonOf(const CQOV_Exception& refusal);

/// The type of that name; throws BadJson for another text.
CTLVCell::ETLVType typeFromName(const std::string& name, const std::string& place);

}  // namespace qov::common

#endif
