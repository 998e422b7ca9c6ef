#ifndef QOV_TOOLS_QOVCTL_AGENT_TEXT_H
#define QOV_TOOLS_QOVCTL_AGENT_TEXT_H

#include <json/value.h>

#include <string>
#include <vector>

#include "tools/qovctl/agent_parts.h"

namespace qov::ctl {

// What an agent's status socket answers, as lines for a reader; control characters in hexadecimal
// form. What the agent's version does not tell is left out or shown as "-". Throw BadJson for what
// is of another type.

std::string statusText(const Json::Value& status);
std::string pendingText(const Json::Value& pending);
std::string slowText(const Json::Value& slow);
std::string modulesText(const Json::Value& list);
std::string metricsText(const Json::Value& answer);

// The tables of these texts; the first row has the headings.

std::vector<Row> moduleTable(const Json::Value& status);
std::vector<Row> linkTable(const Json::Value& status);
std::vector<Row> requestTable(const Json::Value& pending);
std::vector<Row> handlerTable(const Json::Value& pending);
std::vector<Row> slowTable(const Json::Value& slow);
/// "and 12 more of 20 inventory" for each module with some that the agent has left out; `key` is
/// "moreRequests" or "moreHandlers", which an older agent does not have.
std::vector<std::string> leftOut(const Json::Value& pending, const char* key);
/// "20 inventory -> 21 collector -> 20 inventory" for each circle of modules.
std::vector<std::string> circles(const Json::Value& pending);

}  // namespace qov::ctl

#endif
