#include "tools/qovctl/top_screen.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "modules/common/json_object.h"
#include "tools/qovctl/agent_parts.h"
#include "tools/qovctl/agent_text.h"
#include "tools/qovctl/top_table.h"

namespace qov::ctl {
namespace {

double droppedBy(const Json::Value& module) {
  double all = 0;
  for (const Json::Value& count : part(module, "dropped")) {
    all += count.isNumeric() ? count.asDouble() : 0;
  }
  return all;
}

double figureOf(const Json::Value& module, TopOrder order) {
  switch (order) {
    case TopOrder::kId:
      break;
    case TopOrder::kQueue:
      return seconds(part(module, "queue"), "blocks");
    case TopOrder::kBusy:
      return seconds(module, "busy");
    case TopOrder::kHandled:
      return seconds(module, "handledPerSecond");
    case TopOrder::kOldest:
      return seconds(part(module, "pending"), "oldest");
    case TopOrder::kDropped:
      return droppedBy(module);
  }
  return 0;  // as they come
}

/// Those with the highest figures first, in the member array `key`.
template <class Figure>
void sort(Json::Value& object, const char* key, const Figure& figure) {
  const Json::Value& array = common::arrayAt(object[key], key);
  std::vector<Json::Value> all(array.begin(), array.end());
  std::stable_sort(all.begin(), all.end(), [&](const Json::Value& a, const Json::Value& b) {
    return figure(a) > figure(b);
  });
  Json::Value sorted(Json::arrayValue);
  for (Json::Value& element : all) {
    sorted.append(std::move(element));
  }
  object[key] = std::move(sorted);
}

std::string numberText(double number, int decimals = 0) {
  std::array<char, 32> bytes{};
  std::snprintf(bytes.data(), bytes.size(), "%.*f", decimals, std::clamp(number, 0.0, 1e15));
  return bytes.data();
}

std::string rateText(double rate) {
  return numberText(rate, rate > 0 && rate < 10 ? 1 : 0);
}

/// That of the status, with a column for how much is handled now.
std::vector<Row> modulesTable(const Json::Value& status) {
  std::vector<Row> table = moduleTable(status);
  const Row& headings = table.front();
  const auto at = std::find(headings.begin(), headings.end(), "handled") - headings.begin() + 1;
  table.front().insert(table.front().begin() + at, "handled/s");
  for (Json::ArrayIndex i = 0; i + 1 < table.size(); ++i) {
    const Json::Value& rate = status["modules"][i]["handledPerSecond"];
    Row& row = table[i + 1];
    row.insert(row.begin() + at, rate.isNumeric() ? rateText(rate.asDouble()) : "-");
  }
  return table;
}

std::vector<Row> circleTable(const Json::Value& pending) {
  std::vector<Row> table{{"modules that wait for each other"}};
  for (const std::string& way : circles(pending)) {
    table.push_back({way});
  }
  return table;
}

std::vector<Row> leftOutTable(const Json::Value& pending) {
  std::vector<Row> table{{"left out by the agent"}};
  for (const std::string& rest : leftOut(pending, "moreRequests")) {
    table.push_back({"requests: " + rest});
  }
  for (const std::string& rest : leftOut(pending, "moreHandlers")) {
    table.push_back({"running: " + rest});
  }
  return table;
}

/// Tells the two tables of handlers apart.
std::vector<Row> named(const char* name, std::vector<Row> table) {
  table.front().front() = name;
  return table;
}

std::vector<std::vector<Row>> tablesOf(const Json::Value& document, TopOrder order) {
  Json::Value status = part(document, "status");
  Json::Value pending = part(document, "pending");
  sort(status, "modules", [&](const Json::Value& module) { return figureOf(module, order); });
  sort(pending, "requests", [](const Json::Value& request) { return seconds(request, "waiting"); });
  sort(pending, "handlers", [](const Json::Value& handler) { return seconds(handler, "running"); });
  return {modulesTable(status),  circleTable(pending),
          requestTable(pending), named("running", handlerTable(pending)),
          leftOutTable(pending), named("slowest", slowTable(part(document, "slow"))),
          linkTable(status)};
}

/// Of all modules together.
std::string sumsOf(const Json::Value& status) {
  const Json::Value& modules = common::arrayAt(member(status, "modules"), "modules");
  const auto sum = [&](const auto& figure) {
    double all = 0;
    for (const Json::Value& module : modules) {
      all += figure(module);
    }
    return all;
  };
  const auto sumOf = [&](TopOrder order) {
    return sum([&](const Json::Value& module) { return figureOf(module, order); });
  };
  const auto sumOfMember = [&](const char* key) {
    return sum([&](const Json::Value& module) { return seconds(module, key); });
  };
  return "busy " + numberText(sumOf(TopOrder::kBusy)) + "/" + numberText(sumOfMember("workers")) +
         "  queue " + numberText(sumOf(TopOrder::kQueue)) + "  handled/s " +
         rateText(sumOf(TopOrder::kHandled)) + "  timed out " +
         numberText(sumOfMember("timedOut")) + "  dropped " + numberText(sumOf(TopOrder::kDropped));
}

Screen headOf(const Json::Value& status) {
  Screen head{{text(status, "process") + "  pid " + text(status, "pid") + "  version " +
               text(status, "version") + "  up " + spanText(seconds(status, "uptime")) +
               "  log level " + text(part(status, "log"), "level")},
              {sumsOf(status)}};
  const Json::Value configuration = part(status, "configuration");
  if (text(configuration, "changedSinceStart") == "true") {
    head.push_back({"changed since the start: " + text(configuration, "file"), true});
  }
  return head;
}

/// What reaches the terminal.
std::string printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

/// `screen` with no more and no longer lines than there is room for.
Screen fitted(Screen screen, ScreenSize size) {
  screen.resize(std::min(screen.size(), size.rows));
  for (ScreenLine& line : screen) {
    line.text = cut(printable(std::move(line.text)), size.columns);
  }
  return screen;
}

}  // namespace

const char* nameOf(TopOrder order) {
  switch (order) {
    case TopOrder::kId:
      break;
    case TopOrder::kQueue:
      return "queue";
    case TopOrder::kBusy:
      return "busy";
    case TopOrder::kHandled:
      return "handled/s";
    case TopOrder::kOldest:
      return "oldest";
    case TopOrder::kDropped:
      return "dropped";
  }
  return "id";
}

TopOrder after(TopOrder order) {
  return order == TopOrder::kDropped ? TopOrder::kId
                                     : static_cast<TopOrder>(static_cast<int>(order) + 1);
}

Screen topScreen(const Json::Value& document, TopOrder order, ScreenSize size) {
  Screen screen = headOf(part(document, "status"));
  const std::vector<std::vector<Row>> tables = tablesOf(document, order);
  std::vector<std::size_t> rows;
  rows.reserve(tables.size());
  for (const std::vector<Row>& table : tables) {
    rows.push_back(table.size() - 1);
  }
  const std::vector<std::size_t> shown =
      rowsThatFit(rows, size.rows - std::min(size.rows, screen.size()));
  for (std::size_t i = 0; i < tables.size(); ++i) {
    if (shown[i] > 0) {
      std::vector<std::string> lines = fittingLines(tables[i], size.columns);
      screen.push_back({});
      screen.push_back({lines.front(), true});
      lines.erase(lines.begin());
      for (const std::string& line : firstLines(lines, shown[i])) {
        screen.push_back({line});
      }
    }
  }
  return fitted(std::move(screen), size);
}

Screen notice(const std::string& text, std::size_t columns) {
  Screen lines;
  for (std::size_t at = 0; columns > 0 && at < text.size(); at += columns) {
    lines.push_back({printable(text.substr(at, columns)), true});
  }
  return lines;
}

}  // namespace qov::ctl
