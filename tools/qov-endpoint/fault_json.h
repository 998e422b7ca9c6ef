#ifndef QOV_TOOLS_QOV_ENDPOINT_FAULT_JSON_H
#define QOV_TOOLS_QOV_ENDPOINT_FAULT_JSON_H

#include <json/forwards.h>

#include <string>

#include "tools/qov-endpoint/fault.h"

namespace qov::endpoint {

/// Reads the fault that stands at `place` of a scenario; throws BadJson.
Fault faultOf(const Json::Value& json, const std::string& place);

/// The action as scenarios name it.
const char* nameOf(Action action);

}  // namespace qov::endpoint

#endif
