#include <map>
#include <string>
#include <vector>

#include "tools/common/controls.h"
#include "tools/common/json_object.h"
#include "tools/qovctl/agent_parts.h"
#include "tools/qovctl/agent_text.h"

namespace qov::ctl {
namespace {

/// The names of the agent's modules.
class ModuleNames {
 public:
  explicit ModuleNames(const Json::Value& document) {
    for (const Json::Value& module : tools::arrayAt(member(document, "modules"), "modules")) {
      names_[text(module, "id")] = text(module, "name");
    }
  }

  /// "20 inventory"; the number alone of a module that the agent does not have.
  std::string whole(const std::string& id) const {
    const auto found = names_.find(id);
    return found != names_.end() ? id + " " + found->second : id;
  }
  /// The same of a member.
  std::string of(const Json::Value& object, const char* key) const {
    return whole(text(object, key));
  }

 private:
  std::map<std::string, std::string> names_;
};

std::string threadOf(const Json::Value& object, const char* key) {
  return text(part(object, key), "name");
}

std::string requestsText(const Json::Value& requests, const ModuleNames& names) {
  std::vector<Row> rows{{"request", "from", "thread", "to", "for", "time-out", "handled by"}};
  for (const Json::Value& request : requests) {
    rows.push_back({text(request, "operation"), names.of(request, "module"),
                    threadOf(request, "thread"), names.of(part(request, "receiver"), "module"),
                    spanText(seconds(request, "waiting")), spanText(seconds(request, "timeout")),
                    threadOf(request, "handler")});
  }
  return requests.empty() ? "no request waits\n" : lines(rows);
}

std::string waitText(const Json::Value& handler, const ModuleNames& names) {
  const Json::Value wait = part(handler, "waitsFor");
  return wait.empty() ? "-"
                      : names.of(part(wait, "receiver"), "module") + ", request " +
                            text(wait, "operation") + " for " + spanText(seconds(wait, "waiting"));
}

/// The operation code of a handler, and whether it is a continuation.
std::string operationText(const Json::Value& handler) {
  return text(handler, "operation") + (text(handler, "continuation") == "true" ? " later" : "");
}

std::string handlersText(const Json::Value& handlers, const ModuleNames& names) {
  std::vector<Row> rows{{"handler", "in", "thread", "from", "for", "waits for"}};
  for (const Json::Value& handler : handlers) {
    rows.push_back({operationText(handler), names.of(handler, "module"),
                    threadOf(handler, "thread"), names.of(part(handler, "sender"), "module"),
                    spanText(seconds(handler, "running")), waitText(handler, names)});
  }
  return handlers.empty() ? "no handler runs\n" : lines(rows);
}

std::string circleText(const Json::Value& circle, const ModuleNames& names) {
  std::string way;
  for (const Json::Value& module : tools::arrayAt(circle, "circles")) {
    way += (way.empty() ? "" : " -> ") + names.whole(tools::withoutControls(module.asString()));
  }
  return "\nmodules wait for each other: " + way + "\n";
}

}  // namespace

std::string pendingText(const Json::Value& pending) {
  const ModuleNames names(pending);
  std::string all = requestsText(tools::arrayAt(member(pending, "requests"), "requests"), names) +
                    "\n" +
                    handlersText(tools::arrayAt(member(pending, "handlers"), "handlers"), names);
  for (const Json::Value& circle : tools::arrayAt(member(pending, "circles"), "circles")) {
    all += circleText(circle, names);
  }
  return all;
}

std::string slowText(const Json::Value& slow) {
  const ModuleNames names(slow);
  const Json::Value& handlers = tools::arrayAt(member(slow, "handlers"), "handlers");
  std::vector<Row> rows{{"handler", "in", "count", "mean", "half within", "99% within", "longest"}};
  for (const Json::Value& handler : handlers) {
    const bool isOthers = member(handler, "operation").isNull();
    rows.push_back({isOthers ? "others" : operationText(handler), names.of(handler, "module"),
                    text(handler, "count"), spanText(seconds(handler, "mean")),
                    spanText(seconds(handler, "median")),
                    spanText(seconds(handler, "percentile99")),
                    spanText(seconds(handler, "longest"))});
  }
  return handlers.empty() ? "no handler has run\n" : lines(rows);
}

}  // namespace qov::ctl
