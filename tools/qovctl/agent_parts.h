#ifndef QOV_TOOLS_QOVCTL_AGENT_PARTS_H
#define QOV_TOOLS_QOVCTL_AGENT_PARTS_H

#include <json/value.h>

#include <string>
#include <vector>

namespace qov::ctl {

// What the texts of agent_text.h are made of. Throw BadJson where `object` is none.

using Row = std::vector<std::string>;

/// Null if it is missing.
const Json::Value& member(const Json::Value& object, const char* key);
/// The member as a text, control characters in hexadecimal form; "-" for one that is missing.
std::string text(const Json::Value& object, const char* key);
/// The member object, empty if it is missing.
Json::Value part(const Json::Value& object, const char* key);
/// The member number; 0 if it is missing.
double seconds(const Json::Value& object, const char* key);

/// Columns with two blanks between them; the last has no blanks behind it. There is a row.
std::string lines(const std::vector<Row>& rows);

/// "2d 3h", "1h 05m", "12m 03s", "4.2s", "310ms", "4.2ms", "310us", "90ns"; "-" for none.
std::string spanText(double seconds);

}  // namespace qov::ctl

#endif
