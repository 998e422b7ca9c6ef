#include "tools/qov-endpoint/scenario.h"

#include <stdexcept>

#include "tools/qov-endpoint/fault_json.h"
#include "tools/qov-endpoint/input_file.h"

namespace qov::endpoint {
namespace {

/// A value is written as in JSON.
Json::Value valueOf(const std::string& text) {
  Json::Value value = qov::common::parseJson(text);
  if (!value.isNumeric() && !value.isBool()) {
    throw std::runtime_error(text + " is neither a number nor true nor false");
  }
  return value;
}

Json::Value objectOf(const std::string& text) {
  const std::size_t colon = text.find(':');
  Json::Value object;
  object["action"] = text.substr(0, colon);
  for (std::size_t at = colon; at != std::string::npos;) {
    const std::size_t start = at + 1;
    at = text.find(',', start);
    const std::string pair = text.substr(start, at == std::string::npos ? at : at - start);
    const std::size_t sign = pair.find('=');
    if (sign == std::string::npos || sign == 0) {
      throw std::runtime_error("\"" + pair + "\" is not key=value");
    }
    if (object.isMember(pair.substr(0, sign))) {
      throw std::runtime_error("\"" + pair.substr(0, sign) + "\" is given twice");
    }
    object[pair.substr(0, sign)] = valueOf(pair.substr(sign + 1));
  }
  return object;
}

bool meets(const std::optional<std::uint64_t>& wanted, std::uint64_t ordinal) {
  return !wanted || *wanted == ordinal;
}

/// A fault of no particular request is one of a request, not of the moment of accepting.
bool meets(const Fault& fault, std::uint64_t connection, std::uint64_t request) {
  return meets(fault.connection, connection) &&
         (fault.request ? *fault.request == request : request != 0) && fault.left != 0U;
}

}  // namespace

void Scenario::load(const std::string& path) {
  readInputFile(path, [&](const Json::Value& json) {
    const qov::common::JsonObject root(json, "", {"faults"});
    const Json::Value& faults = root.array("faults");
    for (Json::ArrayIndex i = 0; i < faults.size(); ++i) {
      faults_.push_back(faultOf(faults[i], qov::common::elementPlace("faults", i)));
    }
  });
}

void Scenario::addOption(const std::string& text) {
  try {
    faults_.push_back(faultOf(objectOf(text), ""));
  } catch (const std::exception& wrong) {
    throw std::runtime_error("--fault " + text + ": " + wrong.what());
  }
}

const Fault* Scenario::take(std::uint64_t connection, std::uint64_t request) {
  for (Fault& fault : faults_) {
    if (meets(fault, connection, request)) {
      if (fault.left) {
        --*fault.left;
      }
      return &fault;
    }
  }
  return nullptr;
}

}  // namespace qov::endpoint
