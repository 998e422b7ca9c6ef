#ifndef QOV_TOOLS_QOVCTL_AGENT_TEXT_H
#define QOV_TOOLS_QOVCTL_AGENT_TEXT_H

#include <json/value.h>

#include <string>

namespace qov::ctl {

// What an agent's status socket answers, as lines for a reader; control characters in hexadecimal
// form. What the agent's version does not tell is left out or shown as "-". Throw BadJson for what
// is of another type.

std::string statusText(const Json::Value& status);
std::string pendingText(const Json::Value& pending);
std::string slowText(const Json::Value& slow);
std::string modulesText(const Json::Value& list);

}  // namespace qov::ctl

#endif
