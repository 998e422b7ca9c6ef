#include <map>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"
#include "tools/qovctl/agent_text.h"

namespace qov::ctl {
namespace {

/// The names of the agent's modules.
class ModuleNames {
 public:
  explicit ModuleNames(const Json::Value& document) {
    for (const Json::Value& module : common::arrayAt(member(document, "modules"), "modules")) {
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

/// `otherwise` for a table without rows.
std::string linesOr(const char* otherwise, const std::vector<Row>& table) {
  return table.size() > 1 ? lines(table) : otherwise;
}

std::string moreText(const Json::Value& pending, const char* key) {
  std::string all;
  for (const std::string& rest : leftOut(pending, key)) {
    all += rest + "\n";
  }
  return all;
}

}  // namespace

std::vector<Row> requestTable(const Json::Value& pending) {
  const ModuleNames names(pending);
  std::vector<Row> rows{{"request", "from", "thread", "to", "for", "time-out", "handled by"}};
  for (const Json::Value& request : common::arrayAt(member(pending, "requests"), "requests")) {
    rows.push_back({text(request, "operation"), names.of(request, "module"),
                    threadOf(request, "thread"), names.of(part(request, "receiver"), "module"),
                    spanText(seconds(request, "waiting")), spanText(seconds(request, "timeout")),
                    threadOf(request, "handler")});
  }
  return rows;
}

std::vector<Row> handlerTable(const Json::Value& pending) {
  const ModuleNames names(pending);
  std::vector<Row> rows{{"handler", "in", "thread", "from", "for", "waits for"}};
  for (const Json::Value& handler : common::arrayAt(member(pending, "handlers"), "handlers")) {
    rows.push_back({operationText(handler), names.of(handler, "module"),
                    threadOf(handler, "thread"), names.of(part(handler, "sender"), "module"),
                    spanText(seconds(handler, "running")), waitText(handler, names)});
  }
  return rows;
}

std::vector<std::string> circles(const Json::Value& pending) {
  const ModuleNames names(pending);
  std::vector<std::string> ways;
  for (const Json::Value& circle : common::arrayAt(member(pending, "circles"), "circles")) {
    std::string way;
    for (const Json::Value& module : common::arrayAt(circle, "circles")) {
      way += (way.empty() ? "" : " -> ") + names.whole(common::withoutControls(module.asString()));
    }
    ways.push_back(way);
  }
  return ways;
}

std::vector<std::string> leftOut(const Json::Value& pending, const char* key) {
  const ModuleNames names(pending);
  std::vector<std::string> all;
  if (const Json::Value& more = member(pending, key); !more.isNull()) {
    for (const Json::Value& rest : common::arrayAt(more, key)) {
      all.push_back("and " + text(rest, "count") + " more of " + names.of(rest, "module"));
    }
  }
  return all;
}

std::vector<Row> slowTable(const Json::Value& slow) {
  const ModuleNames names(slow);
  std::vector<Row> rows{{"handler", "in", "count", "mean", "half within", "99% within", "longest"}};
  for (const Json::Value& handler : common::arrayAt(member(slow, "handlers"), "handlers")) {
    const bool isOthers = member(handler, "operation").isNull();
    rows.push_back({isOthers ? "others" : operationText(handler), names.of(handler, "module"),
                    text(handler, "count"), spanText(seconds(handler, "mean")),
                    spanText(seconds(handler, "median")),
                    spanText(seconds(handler, "percentile99")),
                    spanText(seconds(handler, "longest"))});
  }
  return rows;
}

std::string pendingText(const Json::Value& pending) {
  std::string all = linesOr("no request waits\n", requestTable(pending)) +
                    moreText(pending, "moreRequests") + "\n" +
                    linesOr("no handler runs\n", handlerTable(pending)) +
                    moreText(pending, "moreHandlers");
  for (const std::string& way : circles(pending)) {
    all += "\nmodules wait for each other: " + way + "\n";
  }
  return all;
}

std::string slowText(const Json::Value& slow) {
  return linesOr("no handler has run\n", slowTable(slow));
}

}  // namespace qov::ctl
